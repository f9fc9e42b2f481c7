# Whole programs: the daemon that ships, on the emulated chassis, over TCP port 1971.
if (NOT TARGET q5_chassis OR NOT TARGET q5_chassis_preload)
    return ()
endif ()
add_library (q5_test_daemon STATIC system/daemon.cc)
string (REPLACE ";" " " emulator "${CMAKE_CROSSCOMPILING_EMULATOR}")
target_compile_definitions (q5_test_daemon PRIVATE
    Q5_LAUNCHER="$<TARGET_FILE:q5_chassis>" Q5_PRELOAD="$<TARGET_FILE:q5_chassis_preload>"
    Q5_DAEMON="$<TARGET_FILE:q5_scand>" Q5_EMULATOR="${emulator}")
add_dependencies (q5_test_daemon q5_chassis q5_chassis_preload q5_scand)

add_executable (system_test system/system_test.cc)
target_link_libraries (system_test PRIVATE q5_test_daemon q5_scan_client GTest::gtest_main)
discover_tests (system_test PROPERTIES RESOURCE_LOCK port1971)

# Two machines, of two byte orders: the target's daemon under this machine's client library and
# command line, and the other way round. Needs a build for this machine.
if (NOT CMAKE_CROSSCOMPILING OR NOT EXISTS ${Q5_HOST_BUILD}/tests/system_test)
    return ()
endif ()
foreach (test system_test tools_system_test)
    add_test (NAME ${tree}/target_daemon.host_${test} COMMAND ${Q5_HOST_BUILD}/tests/${test})
    set_tests_properties (${tree}/target_daemon.host_${test} PROPERTIES
        RESOURCE_LOCK port1971
        ENVIRONMENT "Q5_TEST_EMULATOR=${emulator};Q5_TEST_PRELOAD=$<TARGET_FILE:q5_chassis_preload>;Q5_TEST_DAEMON=$<TARGET_FILE:q5_scand>")
    add_test (NAME ${tree}/host_daemon.target_${test} COMMAND ${test})
    set_tests_properties (${tree}/host_daemon.target_${test} PROPERTIES
        RESOURCE_LOCK port1971
        ENVIRONMENT "Q5_TEST_EMULATOR=;Q5_TEST_LAUNCHER=${Q5_HOST_BUILD}/chassis/q5_chassis;Q5_TEST_DAEMON=${Q5_HOST_BUILD}/scan/q5_scand")
endforeach ()
