# Another build uses the installed library with the same compiler and flags; not when that builds
# for another machine, whose tools a project of its own would have to be told of.
if (NOT CMAKE_CROSSCOMPILING)
    add_executable (install_test install_test.cc)
    target_compile_definitions (install_test PRIVATE
        Q5_CMAKE="${CMAKE_COMMAND}" Q5_COMPILER="${CMAKE_CXX_COMPILER}"
        Q5_FLAGS="${CMAKE_CXX_FLAGS}" Q5_BUILD="${PROJECT_BINARY_DIR}"
        Q5_PROGRAM="${CMAKE_CURRENT_SOURCE_DIR}/installed")
    target_link_libraries (install_test PRIVATE q5_shell GTest::gtest_main)
    add_dependencies (install_test q5_net q5_scan_client)
    discover_tests (install_test)
endif ()
