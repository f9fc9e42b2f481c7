# The command line; then its examples, against the daemon.
if (NOT TARGET q5_scan)
    return ()
endif ()

add_executable (tools_test tools_test.cc)
target_link_libraries (tools_test PRIVATE q5_shell q5_scan_tool)
discover_network_tests (tools_test)

if (TARGET q5_test_daemon)
    add_executable (tools_system_test system/tools_system_test.cc system/examples_test.cc)
    target_compile_definitions (tools_system_test PRIVATE
        Q5_SOURCES="${PROJECT_SOURCE_DIR}" Q5_MAN_PAGES="${PROJECT_BINARY_DIR}/packaging/man")
    target_link_libraries (tools_system_test PRIVATE q5_test_daemon q5_scan_tool)
    discover_network_tests (tools_system_test)
endif ()

# Sessions with the programs, and what they print. The build looks at the folder itself, so that a
# new file becomes a test.
if (TARGET q5_test_daemon)
    file (GLOB sessions CONFIGURE_DEPENDS transcripts/*.txt)
    add_executable (transcript_test transcript_test.cc)
    target_compile_definitions (transcript_test PRIVATE Q5_TRANSCRIPTS="transcripts")
    set_property (TARGET transcript_test PROPERTY LINK_DEPENDS ${sessions})
    target_link_libraries (transcript_test PRIVATE q5_test_daemon)
    discover_network_tests (transcript_test NO_PRETTY_VALUES)
endif ()
