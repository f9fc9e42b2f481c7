# Plays the seeds of one target, then goes on from them for two seconds, always in the same order:
# cmake -D program=FILE -D corpus=FOLDER -D work=FOLDER -P test.cmake. What is new goes to `work`.
cmake_minimum_required (VERSION 3.25)

file (GLOB seeds ${corpus}/*)
if (NOT seeds)
    message (FATAL_ERROR "${corpus}: no seeds: put at least one input of the target there")
endif ()
file (REMOVE_RECURSE ${work})
file (MAKE_DIRECTORY ${work}/new ${work}/found)
cmake_path (GET corpus FILENAME target)
file (GLOB words ${CMAKE_CURRENT_LIST_DIR}/dictionaries/${target}.txt)
list (TRANSFORM words PREPEND -dict=)
execute_process (COMMAND ${program} ${words} -seed=1 -max_total_time=2 -timeout=100 -report_slow_units=100 -rss_limit_mb=1024
        -print_final_stats=1 -artifact_prefix=${work}/found/ ${work}/new ${corpus}
    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
file (GLOB found ${work}/found/*)
if (NOT result EQUAL 0 OR found)
    string (REPLACE ";" "\n    ${program} " again "${found}")
    message ("${output}")
    message (FATAL_ERROR "${program} found something (${result}). To play it again:\n    ${program} ${again}")
endif ()
string (REGEX MATCH "stat::number_of_executed_units: *([0-9]+)" stat "${output}")
message ("${CMAKE_MATCH_1} inputs, nothing found")
