# What the compiler makes of the code: what the linked daemon carries and, on the target, the layout
# of the records and the order of device accesses. Sanitizers add code and symbols of their own.
if (CMAKE_CXX_FLAGS MATCHES "-fsanitize")
    return ()
endif ()

# No streams, no demangler, nothing of the client, no shared C++ runtime.
add_test (NAME ${tree}/daemon.carries_what_it_needs_and_no_more
    COMMAND ${CMAKE_NM} -C $<TARGET_FILE:q5_scand>)
set_tests_properties (${tree}/daemon.carries_what_it_needs_and_no_more PROPERTIES
    PASS_REGULAR_EXPRESSION " q5_scan_server_t::handle\\("
    FAIL_REGULAR_EXPRESSION "std::(ios_base|locale|basic_|num_put)|__cxa_demangle|kp_client_t::|q5_scan_(client|reader)_t::|gethostbyname|GLIBCXX_")

# Offset to top, type and handle: no destructor.
math (EXPR vtable_size "3 * ${CMAKE_SIZEOF_VOID_P}" OUTPUT_FORMAT HEXADECIMAL)
string (SUBSTRING ${vtable_size} 2 -1 vtable_size)
add_test (NAME ${tree}/daemon.has_a_server_with_one_virtual_slot
    COMMAND ${CMAKE_NM} -C -S $<TARGET_FILE:q5_scand>)
set_property (TEST ${tree}/daemon.has_a_server_with_one_virtual_slot PROPERTY
    PASS_REGULAR_EXPRESSION " 0*${vtable_size} [dV] vtable for q5_scan_server_t\n")

if (CMAKE_SYSTEM_PROCESSOR STREQUAL ppc)
    add_custom_command (OUTPUT daemon.code DEPENDS q5_scand
        COMMAND ${CMAKE_OBJDUMP} -d -C --no-show-raw-insn $<TARGET_FILE:q5_scand> > daemon.code)
    add_executable (target_test target_test.cc device_order_test.cc daemon.code)
    target_compile_definitions (target_test PRIVATE
        Q5_CODE="${CMAKE_CURRENT_BINARY_DIR}/daemon.code")
    target_link_libraries (target_test PRIVATE GTest::gtest_main)
    discover_tests (target_test)

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

# The counts are those of the presets' own trees and their compiler.
if (tree MATCHES "^(release|powerpc)$" AND CMAKE_CXX_COMPILER_VERSION MATCHES "^12\\.")
    add_test (NAME ${tree}/instructions
        COMMAND ${PROJECT_SOURCE_DIR}/bench/instructions ${PROJECT_BINARY_DIR})
    set_property (TEST ${tree}/instructions PROPERTY RESOURCE_LOCK port1971)
endif ()
