// Runs the examples of README, docs and man pages, and compares what they show. In Markdown an
// example is a ```console block, in a man page it is between .EX and .EE; its commands begin with
// "$ ". A line "..." matches any lines.
#include "tests/shell.h"

#include <filesystem>
#include <fnmatch.h>
#include <fstream>
#include <gtest/gtest.h>
#include <regex>
#include <sstream>
#include <string.h>

namespace fs = std::filesystem;

struct example_t {
    std::string command;
    std::string output;
};
using block_t = std::vector<example_t>;

static std::string without_roff (const std::string &line)
{
    std::string text = std::regex_replace (line, std::regex (R"(\\\(aq)"), "'");
    text = std::regex_replace (text, std::regex (R"(\\(-)|\\[^e])"), "$1");
    return std::regex_replace (text, std::regex (R"(\\e)"), "\\");
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

// A command that starts the daemon has no output here when that answers; it is ended then.
static outcome_t run_example (const shell_t &shell, const std::string &command)
{
    bool ends_with_daemon = fnmatch ("*q5_scand", command.c_str (), 0) == 0;
    if (!ends_with_daemon) {
        return shell.run ("{ " + command + "\n} 2>&1");
    }
    const std::string listen = "--listen ";
    size_t at = command.find (listen);
    std::string host = at == command.npos ? "127.0.0.1" : command.substr (at + listen.size ());
    return shell.run (command + " >log 2>&1 & daemon=$!\n" +
                      "for i in $(seq 100); do q5_scan --host " + host.substr (0, host.find (' ')) +
                      " run 3 51 >answer 2>&1 && break; sleep 0.1; done\n"
                      "kill $daemon; wait $daemon; grep -q relay answer || cat log answer");
}

static bool matches (const std::string &shown, const std::string &output)
{
    std::string pattern = std::regex_replace (shown, std::regex (R"([*?[\\])"), R"(\$&)");
    pattern = std::regex_replace (pattern, std::regex ("(^|\n)\\.\\.\\.\n"), "$1*");
    return fnmatch (pattern.c_str (), output.c_str (), 0) == 0;
}

// Runs the examples that start a chassis, or those for a daemon that serves, and returns how many.
static int run_examples (const fs::path &page, bool with_chassis)
{
    int count = 0;
    for (const block_t &block : blocks_of (page)) {
        if (block.empty () ||
            (block.front ().command.rfind ("q5_chassis ", 0) == 0) != with_chassis) {
            continue;
        }
        shell_t shell;
        for (const example_t &example : block) {
            outcome_t outcome = run_example (shell, example.command);
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
    shell_t shell;
    background_t daemon (shell);
    ASSERT_TRUE (daemon.start ("q5_chassis --fast -- q5_scand"));
    EXPECT_GE (run_examples (Q5_MAN_PAGES "/q5_scan.1", false), 5);
    EXPECT_GE (run_examples (Q5_SOURCES "/README.md", false), 5);
    for (const fs::directory_entry &page : fs::directory_iterator (Q5_SOURCES "/docs")) {
        run_examples (page.path (), false);
    }
}

TEST (examples, start_a_chassis)
{
    EXPECT_GE (run_examples (Q5_MAN_PAGES "/q5_scand.8", true), 1);
    EXPECT_GE (run_examples (Q5_MAN_PAGES "/q5_chassis.1", true), 3);
    EXPECT_GE (run_examples (Q5_SOURCES "/README.md", true), 2);
    EXPECT_GE (run_examples (Q5_SOURCES "/docs/chassis.md", true), 4);
    for (const char *file : {"'/^.EX/,/^.EE/{//!p}' " Q5_MAN_PAGES "/q5_chassis.toml.5",
                             "'/^```toml/,/^```$/{//!p}' " Q5_SOURCES "/docs/chassis.md"}) {
        outcome_t outcome = shell_t ().run (
            std::string ("sed -n ") + file +
            " >chassis.toml; q5_chassis --file chassis.toml --check | grep '^   3 '");
        EXPECT_EQ (outcome.status, 0) << file << outcome.errors;
    }
}
