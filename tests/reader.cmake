add_executable (client_test client_test.cc)
target_link_libraries (client_test PRIVATE q5_scan_client)
discover_network_tests (client_test)

add_executable (batch_test batch_test.cc)
target_link_libraries (batch_test PRIVATE q5_scan_client)
discover_network_tests (batch_test)

add_executable (message_test message_test.cc)
target_link_libraries (message_test PRIVATE q5_scan_client GTest::gtest_main)
discover_tests (message_test)

# The client side, once with a signed and once with an unsigned char: processors differ in theirs, and
# the library has this one's.
if (CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|amd64|i.86)$")
    set (other unsigned)
    add_library (q5_scan_client_signed ALIAS q5_scan_client)
else ()
    set (other signed)
    add_library (q5_scan_client_unsigned ALIAS q5_scan_client)
endif ()
get_target_property (sources q5_scan_client SOURCES)
list (TRANSFORM sources PREPEND ../scan/)
add_library (q5_scan_client_${other} STATIC EXCLUDE_FROM_ALL ${sources})
target_compile_options (q5_scan_client_${other} PUBLIC -f${other}-char)
target_link_libraries (q5_scan_client_${other} PUBLIC q5_net Threads::Threads)

function (add_char_test name)
    foreach (sign signed unsigned)
        add_executable (${name}_${sign}_test ${name}_test.cc)
        target_link_libraries (${name}_${sign}_test PRIVATE q5_scan_client_${sign})
        discover_network_tests (${name}_${sign}_test TEST_SUFFIX .${sign}_char)
    endforeach ()
endfunction ()

add_char_test (reader)
