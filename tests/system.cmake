# Whole programs: the daemon that ships, on the emulated chassis, over TCP port 1971.
if (NOT TARGET q5_chassis OR NOT TARGET q5_chassis_preload)
    return ()
endif ()
add_library (q5_test_daemon STATIC EXCLUDE_FROM_ALL system/daemon.cc)
target_link_libraries (q5_test_daemon PUBLIC q5_shell)

add_executable (system_test system/system_test.cc)
target_link_libraries (system_test PRIVATE q5_test_daemon q5_scan_client)
discover_network_tests (system_test)

# The bytes that docs/protocol.md shows, played against the daemon.
add_executable (protocol_doc_test system/protocol_doc_test.cc)
target_compile_definitions (protocol_doc_test PRIVATE
    Q5_PROTOCOL_PAGE="${PROJECT_SOURCE_DIR}/docs/protocol.md")
target_link_libraries (protocol_doc_test PRIVATE q5_test_daemon)
discover_network_tests (protocol_doc_test)

# Two machines, of two byte orders: the target's daemon under this machine's client library and
# command line, and the other way round. Needs a build for this machine.
if (NOT CMAKE_CROSSCOMPILING OR NOT EXISTS ${Q5_HOST_BUILD}/tests/system_test)
    return ()
endif ()
foreach (test system_test tools_system_test)
    add_test (NAME ${tree}/target_daemon.host_${test} COMMAND ${Q5_HOST_BUILD}/tests/${test})
    set_property (TEST ${tree}/target_daemon.host_${test} PROPERTY
        ENVIRONMENT "Q5_TEST_PATH=${q5_chassis_folder}:${q5_scand_folder}")
    add_test (NAME ${tree}/host_daemon.target_${test}
        COMMAND ${own_network} ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:${test}>)
    set_property (TEST ${tree}/host_daemon.target_${test} PROPERTY
        ENVIRONMENT "Q5_TEST_PATH=${Q5_HOST_BUILD}/chassis:${Q5_HOST_BUILD}/scan")
endforeach ()
