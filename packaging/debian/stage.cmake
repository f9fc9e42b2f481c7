# Runs in CPack between installation and packing, one folder for each component: what Debian wants
# in every package, where it wants it.
set (packages_daemon q5-scand-base)
set (packages_service q5-scand)
set (packages_client-dev libq5-scan-dev)
set (packages_tools q5-scan)
set (packages_chassis q5-chassis)
set (packages_wireshark q5-scan-wireshark)
set (packages_python python3-q5-scan)

foreach (component ${CPACK_COMPONENTS_ALL})
    set (root ${CPACK_TEMPORARY_DIRECTORY}/${component})
    set (package ${packages_${component}})
    if (EXISTS ${root}/usr/lib/systemd)
        file (MAKE_DIRECTORY ${root}/lib)
        file (RENAME ${root}/usr/lib/systemd ${root}/lib/systemd)
        file (RENAME ${root}/usr/lib/udev ${root}/lib/udev)
        file (REMOVE_RECURSE ${root}/usr/lib) # empty by now
    endif ()
    file (COPY ${CPACK_Q5_DEBIAN}/copyright ${CPACK_Q5_DEBIAN}/changelog
        DESTINATION ${root}/usr/share/doc/${package})
    if (EXISTS ${CPACK_Q5_DEBIAN}/${package}.lintian-overrides)
        file (MAKE_DIRECTORY ${root}/usr/share/lintian/overrides)
        file (COPY_FILE ${CPACK_Q5_DEBIAN}/${package}.lintian-overrides
            ${root}/usr/share/lintian/overrides/${package})
    endif ()
    file (GLOB_RECURSE texts ${root}/usr/share/man/*.[1-9])
    execute_process (COMMAND gzip -9n ${texts} ${root}/usr/share/doc/${package}/changelog
        COMMAND_ERROR_IS_FATAL ANY)
    execute_process (COMMAND chmod -R u=rwX,go=rX ${root} COMMAND_ERROR_IS_FATAL ANY)
endforeach ()
