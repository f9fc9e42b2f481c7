# Whole programs: the daemon that ships, on the emulated chassis, over TCP port 1971.
if (NOT TARGET q5_scan OR NOT TARGET q5_chassis OR NOT TARGET q5_chassis_preload)
    return ()
endif ()

# Under the emulator without those that are about words alone.
if (CMAKE_CROSSCOMPILING)
    set (filter TEST_FILTER -*/chassis_file:*/command_line:*/usage)
endif ()
add_transcripts (transcript_test transcripts ${filter})

# The front that ships, in the real HAProxy, between clients and the daemon.
find_program (HAPROXY haproxy PATHS /usr/sbin)
if (HAPROXY AND NOT CMAKE_CROSSCOMPILING AND NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
    add_transcripts (haproxy_test haproxy TEST_SUFFIX .haproxy)
endif ()

# The examples of the pages.
add_executable (examples_test examples_test.cc)
target_compile_definitions (examples_test PRIVATE
    Q5_MAN_PAGES="${PROJECT_BINARY_DIR}/packaging/man")
target_link_libraries (examples_test PRIVATE q5_shell)
discover_network_tests (examples_test)

# Two machines, of two byte orders: the target's daemon under this machine's client library and
# command line, and the other way round, in the sessions that are about what goes between them. The
# rest is seen with both ends on one machine. Needs a build for this machine.
if (NOT CMAKE_CROSSCOMPILING OR NOT EXISTS ${Q5_HOST_BUILD}/tests/transcript_test)
    return ()
endif ()
set (sessions --gtest_filter=*/batches:*/builtin:*/edits:*/inventory:*/protocol:*/watch)
add_test (NAME ${tree}/target_daemon.host_transcript_test
    COMMAND ${own_network} ${Q5_HOST_BUILD}/tests/transcript_test ${sessions})
add_test (NAME ${tree}/target_daemon.host_examples_test
    COMMAND ${own_network} ${Q5_HOST_BUILD}/tests/examples_test)
set_tests_properties (${tree}/target_daemon.host_transcript_test
    ${tree}/target_daemon.host_examples_test PROPERTIES
    ENVIRONMENT "Q5_TEST_PATH=${q5_chassis_folder}:${q5_scand_folder}")
add_test (NAME ${tree}/host_daemon.target_transcript_test COMMAND ${own_network}
    ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:transcript_test> ${sessions})
set_property (TEST ${tree}/host_daemon.target_transcript_test PROPERTY
    ENVIRONMENT "Q5_TEST_PATH=${Q5_HOST_BUILD}/chassis:${Q5_HOST_BUILD}/scan")
