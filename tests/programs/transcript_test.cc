// Plays the sessions of the folders of transcripts and compares what they print, whole; rewrites
// them when the environment has Q5_RENEW. CONTRIBUTING.md describes their form.
#include "tests/expected.h"
#include "tests/shell.h"

#include <filesystem>
#include <regex>
#include <sstream>
#include <string.h>

namespace fs = std::filesystem;

static bool starts (const std::string &line, const char *mark)
{
    return line.rfind (mark, 0) == 0;
}

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
        if (starts (line, "> ")) {
            command += "\n" + line.substr (2);
        } else if (starts (line, "#") || starts (line, "$ ") || starts (line, "& ")) {
            finish ();
            command = starts (line, "$ ") ? line.substr (2) : "";
        } else {
            continue; // what was printed when the transcript was written
        }
        text += line + "\n";
        if (starts (line, "& ")) {
            EXPECT_TRUE (background.start (line.substr (2))) << line << "\n" << shell.read ("log");
        }
    }
    finish ();
    return text;
}

// The first of the programs that it needs, in a line "# Needs: ...", and this machine lacks.
static std::string missing_program (const fs::path &path)
{
    return shell_t ()
        .run ("for program in $(sed -n 's/^# Needs: //p' '" + path.string () +
              "'); do command -v $program >/dev/null || { echo $program; break; }; done")
        .output;
}

struct transcript : testing::TestWithParam<std::string> {};

TEST_P (transcript, holds)
{
    const fs::path path = fs::path (Q5_EXPECTED) / GetParam ();
    if (std::string program = missing_program (path); !program.empty ()) {
        GTEST_SKIP () << "this machine has no " << program;
    }
    std::string text = written_by_run (path);
    ASSERT_NE (text, "") << path;
    expect_file (GetParam (), text);
}

// A library with sanitizers cannot be preloaded into a program without.
#ifdef Q5_SANITIZED
constexpr bool plays_native = false;
#else
constexpr bool plays_native = true;
#endif

static std::vector<std::string> files ()
{
    std::vector<std::string> all;
    for (const std::string folder : {Q5_TRANSCRIPTS}) {
        for (const auto &entry : fs::directory_iterator (Q5_EXPECTED "/" + folder)) {
            const std::string name = entry.path ().filename ();
            if (entry.path ().extension () == ".txt" && name != "CMakeLists.txt" &&
                (plays_native || !has (name, "_native"))) {
                all.push_back (folder + "/" + name);
            }
        }
    }
    return all;
}

INSTANTIATE_TEST_SUITE_P (all, transcript, testing::ValuesIn (files ()),
                          [] (auto &info) { return fs::path (info.param).stem ().string (); });
