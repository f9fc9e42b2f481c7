# Runs in CPack between installation and packing, one directory for each component: what Debian wants
# in every package, where it wants it.
set (packages_daemon q5-scand-base)
set (packages_service q5-scand)
set (packages_client-dev libq5-scan-dev)
set (packages_tools q5-scan)
set (packages_chassis q5-chassis)
set (packages_front q5-scan-front)
set (packages_wireshark q5-scan-wireshark)
set (packages_python python3-q5-scan)

# Without it CPack would write packages without Depends, and not say so.
if (CPACK_DEBIAN_PACKAGE_SHLIBDEPS)
    find_program (DPKG_SHLIBDEPS dpkg-shlibdeps)
    if (NOT DPKG_SHLIBDEPS)
        message (FATAL_ERROR "dpkg-shlibdeps is missing, which finds what the packages depend on: "
            "install the package dpkg-dev")
    endif ()
endif ()

foreach (component ${CPACK_COMPONENTS_ALL})
    set (root ${CPACK_TEMPORARY_DIRECTORY}/${component})
    set (package ${packages_${component}})
    foreach (kind systemd udev)
        if (EXISTS ${root}/usr/lib/${kind})
            file (MAKE_DIRECTORY ${root}/lib)
            file (RENAME ${root}/usr/lib/${kind} ${root}/lib/${kind})
        endif ()
    endforeach ()
    file (GLOB left ${root}/usr/lib/*)
    if (NOT left)
        file (REMOVE_RECURSE ${root}/usr/lib)
    endif ()
    file (COPY ${CPACK_Q5_DEBIAN}/copyright ${CPACK_Q5_DEBIAN}/changelog
        DESTINATION ${root}/usr/share/doc/${package})
    if (EXISTS ${CPACK_Q5_DEBIAN}/${package}/lintian-overrides)
        file (MAKE_DIRECTORY ${root}/usr/share/lintian/overrides)
        file (COPY_FILE ${CPACK_Q5_DEBIAN}/${package}/lintian-overrides
            ${root}/usr/share/lintian/overrides/${package})
    endif ()
    file (GLOB_RECURSE texts ${root}/usr/share/man/*.[1-9])
    execute_process (COMMAND gzip -9n ${texts} ${root}/usr/share/doc/${package}/changelog
        COMMAND_ERROR_IS_FATAL ANY)
    execute_process (COMMAND chmod -R u=rwX,go=rX ${root} COMMAND_ERROR_IS_FATAL ANY)
endforeach ()
