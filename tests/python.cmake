# The Python client, against the daemon.
find_program (PYTHON python3)
if (NOT PYTHON OR CMAKE_CROSSCOMPILING OR CMAKE_CXX_FLAGS MATCHES "-fsanitize"
    OR NOT TARGET q5_chassis_preload)
    return ()
endif ()
add_test (NAME ${tree}/python.client WORKING_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}/python
    COMMAND ${own_network} ${PYTHON} -B -W error -m unittest q5_scan_test)
set_property (TEST ${tree}/python.client PROPERTY ENVIRONMENT
    PYTHONPATH=${PROJECT_SOURCE_DIR}/python Q5_DOCS=${PROJECT_SOURCE_DIR}/docs
    Q5_CHASSIS=$<TARGET_FILE:q5_chassis> Q5_DAEMON=$<TARGET_FILE:q5_scand>)

# Its types, where the machine has the checker.
find_program (MYPY mypy)
if (MYPY)
    add_test (NAME ${tree}/python.types
        COMMAND ${MYPY} --strict --cache-dir /dev/null ${PROJECT_SOURCE_DIR}/python/q5_scan.py)
endif ()
