if (NOT TARGET q5_chassis_file)
    return ()
endif ()

add_executable (chassis_file_test chassis_file_test.cc)
target_link_libraries (chassis_file_test PRIVATE q5_chassis_file GTest::gtest_main)
discover_tests (chassis_file_test)
