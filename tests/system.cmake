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
gtest_discover_tests (system_test PROPERTIES RESOURCE_LOCK port1971)
