# The chassis file and the launcher. q5_chassis_file also goes into the preload library.
set_property (DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS builtin.toml)
file (READ builtin.toml BUILTIN_CHASSIS)
configure_file (builtin.cc.in builtin.cc @ONLY)

# Both libraries are headers alone. Links to just these two keep the rest of the host's headers out
# of a cross build.
find_path (TOMLPLUSPLUS_INCLUDE toml++/toml.h PATHS /usr/include NO_CMAKE_FIND_ROOT_PATH REQUIRED)
find_path (CLI11_INCLUDE CLI/CLI.hpp PATHS /usr/include NO_CMAKE_FIND_ROOT_PATH REQUIRED)
set (headers ${CMAKE_CURRENT_BINARY_DIR}/headers)
file (MAKE_DIRECTORY ${headers})
file (CREATE_LINK ${TOMLPLUSPLUS_INCLUDE}/toml++ ${headers}/toml++ SYMBOLIC)
file (CREATE_LINK ${CLI11_INCLUDE}/CLI ${headers}/CLI SYMBOLIC)

add_library (q5_chassis_file STATIC
    answer.cc chassis_file.cc chassis_watch.cc ${CMAKE_CURRENT_BINARY_DIR}/builtin.cc)
target_include_directories (q5_chassis_file SYSTEM PRIVATE ${headers})
set_target_properties (q5_chassis_file PROPERTIES
    POSITION_INDEPENDENT_CODE ON CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)

add_executable (q5_chassis q5_chassis.cc chassis_summary.cc preload_check.cc)
target_link_libraries (q5_chassis PRIVATE q5_chassis_file)
target_include_directories (q5_chassis SYSTEM PRIVATE ${headers})

# Where an installed launcher finds the preload library, from its own directory.
file (RELATIVE_PATH library_path ${CMAKE_INSTALL_FULL_BINDIR}
    ${CMAKE_INSTALL_FULL_LIBDIR}/q5_chassis/libq5_chassis.so)
target_compile_definitions (q5_chassis PRIVATE
    Q5_VERSION="${PROJECT_VERSION}" Q5_INSTALLED_LIBRARY="${library_path}")
install (TARGETS q5_chassis RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT chassis)
