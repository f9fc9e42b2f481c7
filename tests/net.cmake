add_executable (net_test net_test.cc)
target_link_libraries (net_test PRIVATE q5_net)
discover_network_tests (net_test)
