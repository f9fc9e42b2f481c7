// Plays the sessions of a folder, tests/programs/transcripts, and compares what they print, whole;
// rewrites them when the environment has Q5_RENEW. CONTRIBUTING.md describes their form.
#include "tests/expected.h"
#include "tests/shell.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string.h>

namespace fs = std::filesystem;

static bool starts (const std::string &line, const char *mark)
{
    return line.rfind (mark, 0) == 0;
}

static std::string replaced (std::string text, const std::string &part, const std::string &by)
{
    for (size_t at = 0; (at = text.find (part, at)) != std::string::npos; at += by.size ()) {
        text.replace (at, part.size (), by);
    }
    return text;
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

static std::string without_times (std::string text)
{
    const std::string time = "\"time\":\"";
    for (size_t at = 0; (at = text.find (time + "2", at)) != std::string::npos;) {
        at += time.size ();
        text.replace (at, text.find ('"', at) - at, "NOW");
    }
    return text;
}

static std::string play (const shell_t &shell, const std::string &command)
{
    outcome_t outcome = shell.run (command);
    std::string text = shown (outcome.output, "") + shown (outcome.errors, "! ");
    text += outcome.status == 0 ? "" : "? " + std::to_string (outcome.status) + "\n";
    return replaced (without_times (text), shell.folder + "/work", "FOLDER");
}

// The transcript as a run of its commands writes it.
static std::string written_by_run (std::istream &transcript)
{
    shell_t shell;
    fs::copy (Q5_EXPECTED "/" Q5_TRANSCRIPTS "/files", shell.folder + "/work");
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

struct transcript : testing::TestWithParam<std::string> {};

// The first of the programs that it needs, in a line "# Needs: ...", and this machine lacks.
static std::string missing_program (const std::string &path)
{
    return shell_t ()
        .run ("for program in $(sed -n 's/^# Needs: //p' '" + path +
              "'); do command -v $program >/dev/null || { echo $program; break; }; done")
        .output;
}

TEST_P (transcript, holds)
{
    const std::string file = Q5_TRANSCRIPTS "/" + GetParam () + ".txt";
    if (std::string program = missing_program (Q5_EXPECTED "/" + file); !program.empty ()) {
        GTEST_SKIP () << "this machine has no " << program;
    }
    std::ifstream expected (Q5_EXPECTED "/" + file);
    std::string text = written_by_run (expected);
    ASSERT_NE (text, "") << file;
    expect_file (file, text);
}

// A library with sanitizers cannot be preloaded into a program without.
static bool needs_plain_programs ([[maybe_unused]] const std::string &name)
{
#ifdef Q5_SANITIZED
    return has (name, "_native");
#else
    return false;
#endif
}

static std::vector<std::string> names ()
{
    std::vector<std::string> all;
    for (const fs::directory_entry &entry :
         fs::directory_iterator (Q5_EXPECTED "/" Q5_TRANSCRIPTS)) {
        std::string name = entry.path ().stem ();
        if (entry.path ().extension () == ".txt" && name != "CMakeLists" &&
            !needs_plain_programs (name)) {
            all.push_back (name);
        }
    }
    return all;
}

INSTANTIATE_TEST_SUITE_P (all, transcript, testing::ValuesIn (names ()),
                          [] (auto &info) { return info.param; });
