# The bytes that docs/protocol.md shows, played against the daemon.
if (TARGET q5_test_daemon)
    add_executable (protocol_doc_test system/protocol_doc_test.cc)
    target_compile_definitions (protocol_doc_test PRIVATE
        Q5_PROTOCOL_PAGE="${PROJECT_SOURCE_DIR}/docs/protocol.md")
    target_link_libraries (protocol_doc_test PRIVATE q5_test_daemon GTest::gtest_main)
    discover_tests (protocol_doc_test PROPERTIES RESOURCE_LOCK port1971)
endif ()
