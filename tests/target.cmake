# What the target's compiler makes of the code: layout of the records, order of device accesses,
# and what the linked daemon carries.
if (TARGET q5_chassis_core)
    add_executable (target_test target_test.cc)
    target_link_libraries (target_test PRIVATE q5_scanp q5_chassis_core GTest::gtest_main)
    discover_tests (target_test)
endif ()

# Sanitizers add code and symbols of their own.
if (CMAKE_CXX_FLAGS MATCHES "-fsanitize")
    return ()
endif ()

add_custom_command (OUTPUT daemon.symbols DEPENDS q5_scand
    COMMAND ${CMAKE_NM} -C -S $<TARGET_FILE:q5_scand> > daemon.symbols)
add_custom_command (OUTPUT transfer.code DEPENDS q5_scanp
    COMMAND ${CMAKE_OBJDUMP} -d -r -C --no-show-raw-insn $<TARGET_FILE:q5_scanp> > transfer.code)
add_executable (target_code_test target_code_test.cc daemon.symbols)
target_compile_definitions (target_code_test PRIVATE
    Q5_SYMBOLS="${CMAKE_CURRENT_BINARY_DIR}/daemon.symbols")
if (CMAKE_SYSTEM_PROCESSOR MATCHES "ppc|powerpc")
    target_sources (target_code_test PRIVATE transfer.code device_order_test.cc)
    set_property (SOURCE device_order_test.cc PROPERTY COMPILE_DEFINITIONS
        Q5_CODE="${CMAKE_CURRENT_BINARY_DIR}/transfer.code")
endif ()
target_link_libraries (target_code_test PRIVATE GTest::gtest_main)
discover_tests (target_code_test)
