# What the compiler makes of the code: what the linked daemon carries and, on the target, the layout
# of the records and the order of device accesses. Sanitizers add code and symbols of their own.
if (CMAKE_CXX_FLAGS MATCHES "-fsanitize")
    return ()
endif ()

add_custom_command (OUTPUT daemon.symbols DEPENDS q5_scand
    COMMAND ${CMAKE_NM} -C -S $<TARGET_FILE:q5_scand> > daemon.symbols)
add_executable (target_test daemon_symbols_test.cc daemon.symbols)
target_compile_definitions (target_test PRIVATE
    Q5_SYMBOLS="${CMAKE_CURRENT_BINARY_DIR}/daemon.symbols"
    Q5_CODE="${CMAKE_CURRENT_BINARY_DIR}/transfer.code")
target_link_libraries (target_test PRIVATE GTest::gtest_main)
if (CMAKE_SYSTEM_PROCESSOR STREQUAL ppc)
    add_custom_command (OUTPUT transfer.code DEPENDS q5_scanp
        COMMAND ${CMAKE_OBJDUMP} -d -r -C --no-show-raw-insn $<TARGET_FILE:q5_scanp> > transfer.code)
    target_sources (target_test PRIVATE target_test.cc device_order_test.cc transfer.code)
endif ()
discover_tests (target_test)
