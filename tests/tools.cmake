# The command line; then its examples, against the daemon.
if (NOT TARGET q5_scan)
    return ()
endif ()
string (REPLACE ";" " " emulator "${CMAKE_CROSSCOMPILING_EMULATOR}")
set (program "Q5_SCAN_COMMAND=\"${emulator} $<TARGET_FILE:q5_scan>\"")

add_executable (tools_test tools_test.cc)
target_compile_definitions (tools_test PRIVATE ${program})
target_link_libraries (tools_test PRIVATE q5_scan_tool GTest::gtest_main)
add_dependencies (tools_test q5_scan)
discover_tests (tools_test)

if (TARGET q5_chassis AND TARGET q5_chassis_preload)
    add_executable (tools_system_test system/tools_system_test.cc system/examples_test.cc)
    target_compile_definitions (tools_system_test PRIVATE ${program}
        Q5_SOURCES="${PROJECT_SOURCE_DIR}" Q5_EMULATOR="${emulator}"
        Q5_LAUNCHER="$<TARGET_FILE:q5_chassis>" Q5_DAEMON="$<TARGET_FILE:q5_scand>"
        Q5_MAN_PAGES="${PROJECT_BINARY_DIR}/packaging/man")
    target_link_libraries (tools_system_test PRIVATE
        q5_test_daemon q5_scan_tool GTest::gtest_main)
    add_dependencies (tools_system_test q5_scan)
    discover_tests (tools_system_test PROPERTIES RESOURCE_LOCK port1971)
endif ()
