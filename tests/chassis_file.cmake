if (NOT TARGET q5_chassis_file)
    return ()
endif ()

add_executable (chassis_file_test chassis_file_test.cc)
target_link_libraries (chassis_file_test PRIVATE q5_chassis_file GTest::gtest_main)
discover_tests (chassis_file_test)

# The launcher becomes another program, which an emulated launcher cannot.
if (TARGET q5_chassis_preload AND NOT CMAKE_CROSSCOMPILING)
    add_executable (launcher_test launcher_test.cc)
    target_compile_definitions (launcher_test PRIVATE
        Q5_LAUNCHER="$<TARGET_FILE:q5_chassis>" Q5_PROBE="$<TARGET_FILE:launcher_probe>")
    target_link_libraries (launcher_test PRIVATE q5_shell GTest::gtest_main)
    add_dependencies (launcher_test launcher_probe)
    discover_tests (launcher_test)
endif ()
