# The emulated board, and the library that puts it under a program.
if (CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|amd64)$")
    set (access_decoder access_decode_x86_64.cc)
elseif (CMAKE_SYSTEM_PROCESSOR MATCHES "^(ppc|powerpc)$")
    set (access_decoder access_decode_powerpc.cc)
else ()
    message (FATAL_ERROR "The emulated chassis traps register accesses and knows the instructions "
        "of x86_64 and powerpc, not of '${CMAKE_SYSTEM_PROCESSOR}': add an access decoder, or "
        "configure with -DQ5_CHASSIS=OFF -DQ5_TESTS=OFF")
endif ()

add_library (q5_chassis_core STATIC
    access_trap.cc ${access_decoder} board_memory.cc chassis.cc door.cc own_descriptor.cc pins.cc scc_receiver.cc
    scc_setup.cc scc_transmitter.cc slot_card.cc trace.cc)
set_target_properties (q5_chassis_core PROPERTIES
    POSITION_INDEPENDENT_CODE ON CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
target_link_libraries (q5_chassis_core PUBLIC ${CMAKE_DL_LIBS})

add_library (q5_chassis_preload MODULE preload.cc)
set_target_properties (q5_chassis_preload PROPERTIES OUTPUT_NAME q5_chassis)
target_link_libraries (q5_chassis_preload PRIVATE q5_chassis_core q5_chassis_file)
set (exports ${CMAKE_CURRENT_SOURCE_DIR}/preload.map)
target_link_options (q5_chassis_preload PRIVATE
    -static-libstdc++ -static-libgcc -Wl,--version-script=${exports})
set_property (TARGET q5_chassis_preload PROPERTY LINK_DEPENDS ${exports})
install (TARGETS q5_chassis_preload
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/q5_chassis COMPONENT chassis)
