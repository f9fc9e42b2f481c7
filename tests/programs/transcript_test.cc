// Plays the sessions of the folders of transcripts and compares what they print, whole; rewrites
// them when the environment has Q5_RENEW. CONTRIBUTING.md describes their form.
#include "tests/expected.h"
#include "tests/shell.h"

#include <filesystem>
#include <regex>
#include <sstream>
#include <string.h>

namespace fs = std::filesystem;

// Output as the transcript has it: each line after its mark, one that would read as something else
// after a backslash, control characters as their pictures.
static std::string shown (const std::string &output, const std::string &mark)
{
    std::istringstream lines (output);
    std::string text;
    for (std::string line; std::getline (lines, line);) {
        bool is_taken = mark.empty () && !line.empty () && strchr ("#$&>!?\\", line[0]);
        text += mark + (is_taken ? "\\" : "");
        for (char c : line) {
            bool is_control = static_cast<unsigned char> (c) < ' ';
            text += is_control ? "\xE2\x90" + std::string (1, '\x80' + c) : std::string (1, c);
        }
        text += "\n";
    }
    return text + (output.empty () || output.back () == '\n' ? "" : "\\ no end of line\n");
}

static std::string play (const shell_t &shell, const std::string &command)
{
    outcome_t outcome = shell.run (command);
    std::string text = shown (outcome.output, "") + shown (outcome.errors, "! ");
    text += outcome.status == 0 ? "" : "? " + std::to_string (outcome.status) + "\n";
    static const std::regex time ("\"time\":\"2[^\"]*");
    text = std::regex_replace (text, time, "\"time\":\"NOW");
    return std::regex_replace (text, std::regex (shell.folder + "/work"), "FOLDER");
}

// The transcript as a run of its commands writes it.
static std::string written_by_run (const fs::path &path)
{
    shell_t shell;
    fs::copy (path.parent_path () / "files", shell.folder + "/work");
    std::ifstream transcript (path);
    background_t background (shell);
    std::string text, command;
    auto finish = [&] {
        text += command.empty () ? "" : play (shell, command);
        command = "";
    };
    for (std::string line; std::getline (transcript, line);) {
        const std::string mark = line.substr (0, 2);
        if (mark == "> ") {
            command += "\n" + line.substr (2);
        } else if (line[0] == '#' || mark == "$ " || mark == "& ") {
            finish ();
            command = mark == "$ " ? line.substr (2) : "";
        } else {
            continue; // what was printed when the transcript was written
        }
        text += line + "\n";
        if (mark == "& ") {
            EXPECT_TRUE (background.start (line.substr (2))) << line << "\n" << shell.read ("log");
        }
    }
    finish ();
    return text;
}

struct transcript : testing::TestWithParam<std::string> {};

TEST_P (transcript, holds)
{
    const fs::path path = fs::path (Q5_EXPECTED) / GetParam ();
    const std::string needed = "$(sed -n 's/^# Needs: //p' '" + path.string () + "')";
    outcome_t missing = shell_t ().run ("for program in " + needed +
                                        "; do command -v $program >&2 || echo $program; done");
    if (!missing.output.empty ()) {
        GTEST_SKIP () << "this machine lacks " << missing.output;
    }
    std::string text = written_by_run (path);
    ASSERT_NE (text, "") << path;
    expect_file (GetParam (), text);
}

INSTANTIATE_TEST_SUITE_P (all, transcript, testing::Values (Q5_TRANSCRIPTS),
                          [] (auto &info) { return fs::path (info.param).stem ().string (); });
