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
    Q5_CODE="${CMAKE_CURRENT_BINARY_DIR}/daemon.code")
target_link_libraries (target_test PRIVATE GTest::gtest_main)
if (CMAKE_SYSTEM_PROCESSOR STREQUAL ppc)
    add_custom_command (OUTPUT daemon.code DEPENDS q5_scand
        COMMAND ${CMAKE_OBJDUMP} -d -C --no-show-raw-insn $<TARGET_FILE:q5_scand> > daemon.code)
    target_sources (target_test PRIVATE target_test.cc device_order_test.cc daemon.code)

    # The device layer as a builder compiles it that asks for large files everywhere.
    get_target_property (sources q5_scanp SOURCES)
    list (TRANSFORM sources PREPEND ../scanp/)
    get_target_property (options q5_scanp COMPILE_OPTIONS)
    add_library (scanp_of_builder OBJECT ${sources})
    target_compile_definitions (scanp_of_builder PRIVATE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
    target_compile_options (scanp_of_builder PRIVATE ${options})
    add_test (NAME ${tree}/target.opens_devices_with_plain_offsets
        COMMAND ${CMAKE_NM} -u $<TARGET_OBJECTS:scanp_of_builder> COMMAND_EXPAND_LISTS)
    set_tests_properties (${tree}/target.opens_devices_with_plain_offsets PROPERTIES
        PASS_REGULAR_EXPRESSION "U open\n" FAIL_REGULAR_EXPRESSION "U [_a-z]*64")
endif ()
discover_tests (target_test)

# The counts are those of the presets' own trees and their compiler.
if (tree MATCHES "^(release|powerpc)$" AND CMAKE_CXX_COMPILER_VERSION MATCHES "^12\\.")
    add_test (NAME ${tree}/instructions
        COMMAND ${PROJECT_SOURCE_DIR}/bench/instructions ${PROJECT_BINARY_DIR})
    set_property (TEST ${tree}/instructions PROPERTY RESOURCE_LOCK port1971)
endif ()
