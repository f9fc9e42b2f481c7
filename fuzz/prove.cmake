# The work of fuzz/prove: see there. A patch begins with a line "TARGET: what is wrong".
cmake_minimum_required (VERSION 3.25)
cmake_path (GET CMAKE_CURRENT_LIST_DIR PARENT_PATH source)
set (copy ${source}/build/prove)

string (REGEX MATCHALL "[^ ]+" patches "${patches}")
if (NOT patches)
    file (GLOB patches ${source}/fuzz/faults/*.patch)
endif ()

# Files that are as they were keep their times, and so what was built of them.
execute_process (COMMAND git ls-files --cached --others --exclude-standard
    WORKING_DIRECTORY ${source} OUTPUT_VARIABLE files COMMAND_ERROR_IS_FATAL ANY)
string (REGEX MATCHALL "[^\n]+" files "${files}")
foreach (name ${files})
    if (EXISTS ${source}/${name})
        execute_process (COMMAND ${CMAKE_COMMAND} -E copy_if_different ${source}/${name} ${copy}/${name}
            COMMAND_ERROR_IS_FATAL ANY)
    endif ()
endforeach ()
execute_process (COMMAND ${CMAKE_COMMAND} --preset fuzz WORKING_DIRECTORY ${copy}
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)

function (apply patch)
    execute_process (COMMAND patch --silent -p1 ${ARGN} -i ${patch} WORKING_DIRECTORY ${copy}
        RESULT_VARIABLE result)
    if (result)
        message (FATAL_ERROR "${patch} does not fit: renew it")
    endif ()
endfunction ()

set (missed "")
foreach (patch ${patches})
    cmake_path (ABSOLUTE_PATH patch)
    file (STRINGS ${patch} head LIMIT_COUNT 1)
    string (REGEX MATCH "^([a-z_]+): (.*)" head "${head}")
    set (target ${CMAKE_MATCH_1})
    set (what ${CMAKE_MATCH_2})
    apply (${patch})
    execute_process (COMMAND ${CMAKE_COMMAND} --build build/fuzz --target fuzz_${target}
        WORKING_DIRECTORY ${copy} OUTPUT_VARIABLE output RESULT_VARIABLE failed)
    apply (${patch} --reverse)
    if (failed)
        message (FATAL_ERROR "${output}${patch}: does not build")
    endif ()
    file (REMOVE_RECURSE ${copy}/build/new)
    file (MAKE_DIRECTORY ${copy}/build/new)
    file (GLOB words ${copy}/fuzz/dictionaries/${target}.txt)
    list (TRANSFORM words PREPEND -dict=)
    string (TIMESTAMP begin "%s%f")
    execute_process (COMMAND build/fuzz/fuzz/fuzz_${target} -seed=1 -max_total_time=10 -timeout=5
            -print_final_stats=1 -artifact_prefix=build/ ${words} build/new fuzz/corpus/${target}
        WORKING_DIRECTORY ${copy} OUTPUT_VARIABLE log ERROR_VARIABLE log RESULT_VARIABLE result)
    string (TIMESTAMP end "%s%f")
    math (EXPR tenths "(${end} - ${begin}) / 100000")
    math (EXPR seconds "${tenths} / 10")
    math (EXPR tenths "${tenths} % 10")
    string (REGEX MATCH "number_of_executed_units: *([0-9]+)" stat "${log}")
    if (result EQUAL 0)
        list (APPEND missed ${patch})
        message ("MISSED ${target}: ${what}: ${CMAKE_MATCH_1} executions in ${seconds}.${tenths} s")
    else ()
        message ("found  ${target}: ${what}: after ${CMAKE_MATCH_1} executions, ${seconds}.${tenths} s")
    endif ()
endforeach ()
if (missed)
    message (FATAL_ERROR "not found: ${missed}")
endif ()
