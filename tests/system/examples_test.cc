// Runs the examples of README, docs and man pages against the daemon on the built-in chassis, and
// compares what they show. In Markdown an example is a ```console block, in a man page stands
// between .EX and .EE; its commands begin with "$ ". A line "..." stands for any lines.
#include "tests/shell.h"
#include "tests/system/daemon.h"

#include <fstream>
#include <gtest/gtest.h>
#include <regex>

namespace fs = std::filesystem;

struct example_t {
    std::string command;
    std::string output;
};
using block_t = std::vector<example_t>;

static std::string without_roff (std::string line)
{
    const std::pair<const char *, const char *> escapes[] = {
        {R"(\\\(aq)", "'"}, {R"(\\&)", ""}, {R"(\\-)", "-"}, {R"(\\e)", "\\"}};
    for (auto &[escape, text] : escapes) {
        line = std::regex_replace (line, std::regex (escape), text);
    }
    return line;
}

static std::vector<block_t> blocks_of (const fs::path &page)
{
    bool is_markdown = page.extension () == ".md";
    const std::string begin = is_markdown ? "```console" : ".EX";
    const std::string end = is_markdown ? "```" : ".EE";
    std::vector<block_t> blocks;
    bool inside = false;
    std::ifstream text (page);
    for (std::string line; std::getline (text, line);) {
        if (line == (inside ? end : begin)) {
            inside = !inside;
            blocks.resize (blocks.size () + inside);
        } else if (inside) {
            line = is_markdown ? line : without_roff (line);
            if (line.rfind ("$ ", 0) == 0) {
                blocks.back ().push_back ({line.substr (2), ""});
            } else if (!blocks.back ().empty ()) {
                blocks.back ().back ().output += line + "\n";
            }
        }
    }
    return blocks;
}

// A block belongs to the command line when it calls it and starts no daemon.
static bool is_for_q5_scan (const block_t &block)
{
    std::string commands;
    for (const example_t &example : block) {
        commands += example.command + "\n";
    }
    return std::regex_search (commands, std::regex ("(^|\n|[|] )q5_scan ")) &&
           !std::regex_search (commands, std::regex ("q5_chassis|q5_scand|cmake|\\./"));
}

static bool matches (const std::string &shown, const std::string &output)
{
    std::string pattern =
        std::regex_replace (shown, std::regex ("[\\^$.*+?()\\[\\]{}|\\\\]"), "\\$&");
    pattern = std::regex_replace (pattern, std::regex ("(^|\n)\\\\.\\\\.\\\\.\n"), "$1[^]*");
    return std::regex_match (output, std::regex (pattern));
}

static int run_examples (const fs::path &page)
{
    int count = 0;
    for (const block_t &block : blocks_of (page)) {
        shell_t shell;
        for (const example_t &example : is_for_q5_scan (block) ? block : block_t ()) {
            outcome_t outcome = shell.run ("{ " + example.command + "\n} 2>&1");
            EXPECT_TRUE (matches (example.output, outcome.output))
                << page << "\n$ " << example.command << "\n"
                << outcome.output << "shown:\n"
                << example.output;
            count++;
        }
    }
    return count;
}

TEST (examples, show_what_happens)
{
    daemon_t daemon;
    for (const char *page : {"q5_scan.1", "q5_scand.8", "q5_chassis.1", "q5_chassis.toml.5"}) {
        ASSERT_TRUE (fs::exists (fs::path (Q5_MAN_PAGES) / page));
        run_examples (fs::path (Q5_MAN_PAGES) / page);
    }
    EXPECT_GE (run_examples (fs::path (Q5_MAN_PAGES) / "q5_scan.1"), 9);
    run_examples (fs::path (Q5_SOURCES) / "README.md");
    for (const fs::directory_entry &page :
         fs::directory_iterator (fs::path (Q5_SOURCES) / "docs")) {
        run_examples (page.path ());
    }
}
