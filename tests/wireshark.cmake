# The Wireshark dissector: sessions with tshark, on captures that `capture` makes up.
find_program (TSHARK tshark)
if (NOT TSHARK OR CMAKE_CROSSCOMPILING OR CMAKE_CXX_FLAGS MATCHES "-fsanitize"
    OR NOT TARGET q5_test_daemon)
    return ()
endif ()
add_executable (capture wireshark/capture.cc)
add_executable (wireshark_test transcript_test.cc)
target_compile_definitions (wireshark_test PRIVATE Q5_TRANSCRIPTS="wireshark")
target_link_libraries (wireshark_test PRIVATE q5_test_daemon)
add_dependencies (wireshark_test capture)
discover_network_tests (wireshark_test NO_PRETTY_VALUES TEST_SUFFIX .wireshark)
