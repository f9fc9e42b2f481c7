# Sweeps: everything between two ends, instead of samples.
add_executable (sweep_session_test sweep_session_test.cc ../fuzz/wire.cc)
target_link_libraries (sweep_session_test PRIVATE q5_scan_server GTest::gtest_main)
target_link_options (sweep_session_test PRIVATE
    -Wl,--wrap=read,--wrap=write,--wrap=_Z18scan_port_transferjiiPKhiPh)
if (CMAKE_CROSSCOMPILING OR CMAKE_CXX_FLAGS MATCHES "-fsanitize")
    set (step 97) # a session takes ten times as long
else ()
    set (step 1)
endif ()
target_compile_definitions (sweep_session_test PRIVATE Q5_SWEEP_STEP=${step})
target_compile_options (sweep_session_test PRIVATE -O2)
discover_tests (sweep_session_test)

add_executable (sweep_transfer_test sweep_transfer_test.cc)
target_link_libraries (sweep_transfer_test PRIVATE q5_scanp GTest::gtest_main)
discover_tests (sweep_transfer_test)

# The rest would take an hour under the emulator; sanitizers keep freed memory, add threads, and are
# no part of a library that is preloaded.
if (CMAKE_CROSSCOMPILING OR CMAKE_CXX_FLAGS MATCHES "-fsanitize" OR NOT TARGET q5_scan OR NOT TARGET q5_chassis)
    return ()
endif ()

# Clients by the thousand, and what they leave of the programs.
add_executable (long_run_test long_run_test.cc)
target_link_libraries (long_run_test PRIVATE q5_scan_client q5_shell)
discover_network_tests (long_run_test)

# Stands before the chassis's library in tests/transcripts/failing_calls_native.txt.
add_library (failing_calls MODULE failing_calls.cc)
set_target_properties (failing_calls PROPERTIES PREFIX "")
target_link_libraries (failing_calls PRIVATE ${CMAKE_DL_LIBS})
add_dependencies (q5_shell failing_calls)
