# Debian has GoogleTest for the target in source only (package googletest): built here.
find_path (Q5_GTEST_SOURCE googletest/src/gtest-all.cc PATHS /usr/src/googletest
    NO_CMAKE_FIND_ROOT_PATH REQUIRED)

find_package (Threads REQUIRED)
add_library (gtest STATIC EXCLUDE_FROM_ALL ${Q5_GTEST_SOURCE}/googletest/src/gtest-all.cc)
target_include_directories (gtest SYSTEM PUBLIC ${Q5_GTEST_SOURCE}/googletest/include
    PRIVATE ${Q5_GTEST_SOURCE}/googletest)
target_link_libraries (gtest PUBLIC Threads::Threads)
add_library (gtest_main STATIC EXCLUDE_FROM_ALL ${Q5_GTEST_SOURCE}/googletest/src/gtest_main.cc)
target_link_libraries (gtest_main PUBLIC gtest)
add_library (GTest::gtest ALIAS gtest)
add_library (GTest::gtest_main ALIAS gtest_main)
