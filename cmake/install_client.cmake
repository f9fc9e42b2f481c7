# What lets another build find the installed client library: a CMake package and a pkg-config file.
# Both find their directories relative to themselves, so that the tree can be moved anywhere.
include (CMakePackageConfigHelpers)

set (package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/q5_scan)
configure_package_config_file (${CMAKE_CURRENT_LIST_DIR}/q5_scan-config.cmake.in
    ${PROJECT_BINARY_DIR}/q5_scan-config.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file (${PROJECT_BINARY_DIR}/q5_scan-config-version.cmake
    COMPATIBILITY SameMajorVersion)
install (FILES ${PROJECT_BINARY_DIR}/q5_scan-config.cmake
    ${PROJECT_BINARY_DIR}/q5_scan-config-version.cmake
    DESTINATION ${package_dir} COMPONENT client-dev)
install (EXPORT q5_scan_targets NAMESPACE q5_scan:: FILE q5_scan-targets.cmake
    DESTINATION ${package_dir} COMPONENT client-dev)

set (pc_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if (IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR} OR IS_ABSOLUTE ${CMAKE_INSTALL_INCLUDEDIR})
    set (pc_prefix ${CMAKE_INSTALL_PREFIX})
    set (pc_libdir ${CMAKE_INSTALL_FULL_LIBDIR})
else ()
    file (RELATIVE_PATH pc_prefix /${pc_dir} /)
    string (REGEX REPLACE "/$" "" pc_prefix "\${pcfiledir}/${pc_prefix}")
    set (pc_libdir "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
endif ()
set (pc_includedir ${CMAKE_INSTALL_INCLUDEDIR}/q5_scan)
cmake_path (ABSOLUTE_PATH pc_includedir BASE_DIRECTORY "\${prefix}")
configure_file (${CMAKE_CURRENT_LIST_DIR}/q5_scan.pc.in ${PROJECT_BINARY_DIR}/q5_scan.pc @ONLY)
install (FILES ${PROJECT_BINARY_DIR}/q5_scan.pc DESTINATION ${pc_dir} COMPONENT client-dev)
