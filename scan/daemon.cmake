# The daemon. It carries the C++ runtime inside, trimmed to what it calls, so that a board needs
# none and loads none.
option (Q5_STATIC "Link the C library into the daemon too" OFF)

add_executable (q5_scand q5_scand.cc q5_scan_server.cc)
target_link_libraries (q5_scand PRIVATE q5_net_daemon q5_scanp_daemon)
target_compile_options (q5_scand PRIVATE ${Q5_DAEMON_OPTIONS})
target_link_options (q5_scand PRIVATE ${Q5_DAEMON_OPTIONS})

# The sanitizers bring a runtime of their own that wants the shared one.
if (NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
    target_sources (q5_scand PRIVATE terminate.cc)
    target_link_options (q5_scand PRIVATE -static-libstdc++ -static-libgcc)
endif ()
target_link_options (q5_scand PRIVATE -Wl,-z,relro,-z,now)
if (Q5_STATIC)
    target_link_options (q5_scand PRIVATE -static)
endif ()
install (TARGETS q5_scand DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT daemon)
