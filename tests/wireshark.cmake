# The Wireshark dissector: sessions with tshark, on captures that `capture` makes up.
find_program (TSHARK tshark)
if (NOT TSHARK OR CMAKE_CROSSCOMPILING OR CMAKE_CXX_FLAGS MATCHES "-fsanitize"
    OR NOT TARGET q5_chassis)
    return ()
endif ()
add_executable (capture wireshark/capture.cc)
add_transcripts (wireshark_test wireshark TEST_SUFFIX .wireshark)
add_dependencies (wireshark_test capture)
