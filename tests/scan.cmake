if (NOT TARGET q5_chassis_door)
    return ()
endif ()
add_executable (scan_test scan_test.cc)
target_link_libraries (scan_test PRIVATE q5_scan_server q5_chassis_door GTest::gtest_main)
discover_tests (scan_test)

# Promises made in passing. The daemon's entry is in it, under another name.
add_executable (pinned_test pinned_test.cc ../scan/q5_scand.cc ../scan/terminate.cc)
set_source_files_properties (../scan/q5_scand.cc PROPERTIES COMPILE_DEFINITIONS main=entry)
target_link_libraries (pinned_test PRIVATE q5_scan_server q5_scan_client GTest::gtest_main)
discover_tests (pinned_test)
