add_executable (scan_test scan_test.cc)
target_link_libraries (scan_test PRIVATE q5_scan_server q5_chassis_core GTest::gtest_main)
gtest_discover_tests (scan_test)
