# What tests of whole programs and of the network share.

# Expected outputs, kept as files and compared whole. Rewritten by the target `renew`.
add_compile_definitions (Q5_SOURCES="${PROJECT_SOURCE_DIR}"
    Q5_EXPECTED="${CMAKE_CURRENT_SOURCE_DIR}")
if (NOT CMAKE_CROSSCOMPILING)
    add_custom_target (renew USES_TERMINAL
        COMMAND ${CMAKE_COMMAND} -E env Q5_RENEW=1 ${CMAKE_CTEST_COMMAND} -L renew)
endif ()

# What most tests read first, once.
file (TOUCH ${CMAKE_CURRENT_BINARY_DIR}/empty.cc)
add_library (q5_test_header STATIC EXCLUDE_FROM_ALL ${CMAKE_CURRENT_BINARY_DIR}/empty.cc)
target_link_libraries (q5_test_header PUBLIC GTest::gtest)
target_precompile_headers (q5_test_header PRIVATE <gtest/gtest.h>)

# A network of its own, for each test of a program.
set (own_network ${CMAKE_CURRENT_SOURCE_DIR}/own_network.sh)

function (discover_network_tests target)
    target_link_libraries (${target} PRIVATE GTest::gtest_main)
    set_property (TARGET ${target} PROPERTY
        CROSSCOMPILING_EMULATOR ${own_network} ${CMAKE_CROSSCOMPILING_EMULATOR})
    discover_tests (${target} ${ARGN})
endfunction ()

# add_network_test (NAME COMMAND...), for scripts.
function (add_network_test name)
    add_test (NAME ${tree}/${name} COMMAND ${own_network} ${ARGN})
    set_property (TEST ${tree}/${name} PROPERTY SKIP_RETURN_CODE 77)
endfunction ()

# Command lines, with the programs of this build in the path; those that an emulator runs through
# scripts.
string (REPLACE ";" " " emulator "${CMAKE_CROSSCOMPILING_EMULATOR}")
set (path)
add_library (q5_shell STATIC EXCLUDE_FROM_ALL shell.cc)
set (programs q5_scan q5_scand q5_scand_start q5_chassis)
if (NOT emulator)
    foreach (program fake_daemon fake_client)
        add_executable (${program} programs/${program}.cc)
        target_link_libraries (${program} PRIVATE q5_net)
    endforeach ()
    add_executable (launcher_probe programs/launcher_probe.cc)
    # It calls what it finds by name, whatever the types there.
    target_compile_options (launcher_probe PRIVATE $<$<CXX_COMPILER_ID:Clang>:-fno-sanitize=function>)
    list (APPEND programs fake_daemon fake_client launcher_probe)
endif ()
foreach (program ${programs})
    if (NOT TARGET ${program})
        continue ()
    endif ()
    add_dependencies (q5_shell ${program})
    set (folder $<TARGET_FILE_DIR:${program}>)
    if (emulator)
        set (script "#!/bin/sh\nexec @emulator@ @program@ \"$@\"\n")
        if (program STREQUAL q5_chassis)
            file (READ programs/emulated_chassis.in script)
            string (REPLACE @preload@ $<TARGET_FILE:q5_chassis_preload> script "${script}")
        endif ()
        string (REPLACE @emulator@ "${emulator}" script "${script}")
        string (REPLACE @program@ $<TARGET_FILE:${program}> script "${script}")
        string (REPLACE @daemon@ $<TARGET_FILE:q5_scand> script "${script}")
        set (folder ${CMAKE_CURRENT_BINARY_DIR}/bin/${program})
        file (GENERATE OUTPUT ${folder}/${program} CONTENT "${script}"
            FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
    endif ()
    list (APPEND path ${folder})
    set (${program}_folder ${folder})
endforeach ()
if (TARGET q5_chassis_preload)
    add_dependencies (q5_shell q5_chassis_preload)
endif ()
list (JOIN path : path)
target_compile_definitions (q5_shell PRIVATE Q5_PATH="${path}" Q5_BUILD="${PROJECT_BINARY_DIR}")
add_dependencies (q5_shell q5_net q5_scan_client) # they are installed

# add_transcripts (FOLDER): sessions with the programs, and what they print, for transcript_test. The
# build looks at the folder itself, so that a new file becomes a test.
function (add_transcripts folder)
    file (GLOB sessions CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}/tests ${folder}/*.txt)
    set_property (GLOBAL APPEND PROPERTY Q5_TRANSCRIPTS ${sessions})
endfunction ()
