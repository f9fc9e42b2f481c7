// The linked daemon, by its symbols (nm -C -S).
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>

static std::string symbols ()
{
    std::ostringstream text;
    text << std::ifstream (Q5_SYMBOLS).rdbuf ();
    return text.str ();
}

TEST (daemon_code, carries_no_streams_no_demangler_and_nothing_of_the_client)
{
    std::string text = symbols ();
    ASSERT_NE (text.find (" q5_scan_server_t::handle("), std::string::npos);
    for (const char *unwanted : {"std::ios_base", "std::locale", "std::basic_", "std::num_put",
                                 "__cxa_demangle", "kp_client_t::", "q5_scan_client_t::",
                                 "q5_scan_reader_t::", "gethostbyname", "GLIBCXX_"}) {
        EXPECT_EQ (text.find (unwanted), std::string::npos) << unwanted;
    }
}

TEST (daemon_code, the_server_has_one_virtual_slot)
{
    std::istringstream lines (symbols ());
    size_t address = 0, size = 0;
    std::string line;
    while (std::getline (lines, line) &&
           line.find ("vtable for q5_scan_server_t") == std::string::npos) {
    }
    std::istringstream (line) >> std::hex >> address >> size;
    EXPECT_EQ (size, 3 * sizeof (void *)) << "offset to top, type, handle: no destructor";
}
