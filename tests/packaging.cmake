# Debian packages, and the start on the board.
if (CMAKE_CXX_FLAGS MATCHES "-fsanitize")
    return ()
endif ()
set (scripts ${CMAKE_CURRENT_SOURCE_DIR}/packaging)

if (CMAKE_CROSSCOMPILING)
    set (architecture powerpc)
else ()
    set (architecture amd64)
    add_test (NAME ${tree}/packaging.unit
        COMMAND ${scripts}/unit ${CMAKE_COMMAND} ${PROJECT_BINARY_DIR})
    add_test (NAME ${tree}/packaging.recipes
        COMMAND ${scripts}/recipes ${PROJECT_SOURCE_DIR} ${PROJECT_VERSION})
    add_test (NAME ${tree}/packaging.size COMMAND ${own_network} ${PROJECT_SOURCE_DIR}/packaging/size)
    set_tests_properties (${tree}/packaging.size PROPERTIES
        PASS_REGULAR_EXPRESSION "this machine, shared C.. runtime +[0-9]+ kB resident")
    if (TARGET q5_chassis)
        add_test (NAME ${tree}/packaging.init
            COMMAND ${own_network} ${scripts}/init ${PROJECT_SOURCE_DIR}/packaging/init/q5_scand
            $<TARGET_FILE:q5_chassis> $<TARGET_FILE:q5_scand> $<TARGET_FILE:q5_scand_start>)
    endif ()
endif ()
add_test (NAME ${tree}/packaging.packages COMMAND ${scripts}/packages ${CMAKE_CPACK_COMMAND}
    ${PROJECT_BINARY_DIR} ${PROJECT_VERSION} ${architecture})
