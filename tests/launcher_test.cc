// The launcher as a whole program.
#include "tests/shell.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <link.h>

namespace fs = std::filesystem;

struct Launcher : testing::Test {
    shell_t shell;
    std::string folder = shell.folder + "/work";
    int status = -1;

    void SetUp () override
    {
        fs::current_path (folder);
    }
    void TearDown () override
    {
        fs::current_path ("/");
    }
    static void write (const std::string &name, const std::string &text)
    {
        std::ofstream (name, std::ios::binary) << text;
        fs::permissions (name, fs::perms::owner_all);
    }
    // Runs a command line; returns what it printed.
    std::string run (const std::string &command)
    {
        outcome_t outcome = shell.run (command);
        status = outcome.status;
        return outcome.output + outcome.errors;
    }
};

static const std::string launcher = "'" Q5_LAUNCHER "' ";

TEST_F (Launcher, StartsNothingWhenSomethingIsWrong)
{
    write ("broken.toml", "[[card]]\nslot = 31");
    write ("good.toml", "[[card]]\nslot = 30");
    write ("data", "neither");
    fs::permissions ("data", fs::perms::owner_read);
    std::ifstream file (Q5_LAUNCHER, std::ios::binary);
    std::string elf (std::istreambuf_iterator<char> (file), {});
    write ("static", elf.substr (0, sizeof (ElfW (Ehdr)))); // no interpreter
    write ("q5_chassis", elf);
    fs::create_directory ("a b");
    fs::copy ("q5_chassis", "a b");
    write ("a b/libq5_chassis.so", "");
    elf[offsetof (ElfW (Ehdr), e_machine)] ^= 1;
    write ("foreign", elf);
    const std::string touch = " -- touch started";
    const std::vector<std::tuple<std::string, int, std::string>> cases = {
        {launcher + "--file broken.toml" + touch, 2, "broken.toml:2: card.slot: found 31"},
        {launcher + "--file none.toml" + touch, 2, "none.toml: cannot be read: No such file"},
        {launcher + "--file ''" + touch, 2, "--file: expected a path, found nothing"},
        {launcher + "--trace no/trace" + touch, 2, "no/trace: cannot be written: No such file"},
        {launcher + "--file good.toml --trace good.toml" + touch, 2, "is the chassis file"},
        {launcher + "--file good.toml --vcd good.toml" + touch, 2, "is the chassis file"},
        {launcher + "--trace one --vcd one" + touch, 2, "one: is the trace"},
        {launcher + "--vcd -" + touch, 2, "expected a file of its own, found -"},
        {"flock one " + launcher + "--vcd one" + touch, 2, "one: the waveform of a running"},
        {launcher + "--slow" + touch, 2, "not expected: --slow"},
        {launcher, 2, "no program to run"},
        {launcher + "-- no_such_program_here", 127, "no_such_program_here: No such file"},
        {launcher + "-- ./data", 126, "./data: Permission denied"},
        {launcher + "-- ./static", 126, "./static: cannot run on the chassis: it is linked"},
        {launcher + "-- ./foreign", 126, "./foreign: cannot run on the chassis: it is for another"},
        {"./q5_chassis" + touch, 2, folder + "/libq5_chassis.so nor "},
        {"'a b/q5_chassis'" + touch, 2, "a b/libq5_chassis.so: cannot be preloaded from a path"},
    };
    for (const auto &[command, expected, message] : cases) {
        std::string output = run (command);
        EXPECT_EQ (status, expected) << command;
        EXPECT_NE (output.find (message), std::string::npos) << output;
        EXPECT_FALSE (fs::exists ("started")) << command;
    }
    EXPECT_EQ (fs::file_size ("good.toml"), 18u);
}

TEST_F (Launcher, BecomesTheProgram)
{
    write ("trace", "of an older run");
    const std::string probe = " -- '" Q5_PROBE "' 42";
    std::string preload = "LD_PRELOAD=" Q5_LAUNCHER;
    preload.replace (preload.rfind ('/'), std::string::npos, "/libq5_chassis.so\n");
    std::string example =
        run (launcher + "--example >c.toml; " + launcher + "--file c.toml --check");
    EXPECT_NE (example.find ("5       100  framing              51 (3), 83 (4)\n"),
               std::string::npos);
    EXPECT_EQ (example, run (launcher + "--check"));
    EXPECT_EQ (run (launcher + "--file c.toml --trace trace --vcd dump --fast" + probe + " | sort"),
               preload + "Q5_CHASSIS_FAST=1\nQ5_CHASSIS_FILE=" + folder +
                   "/c.toml\nQ5_CHASSIS_TRACE=" + folder + "/trace\nQ5_CHASSIS_VCD=" + folder +
                   "/dump\n");
    EXPECT_EQ (fs::file_size ("trace"), 0u);
    preload.pop_back ();
    const std::string next = "/usr/bin/env " + preload + " Q5_CHASSIS_VCD=dump '" Q5_PROBE "' door";
    write ("dump", std::string (9999, 120));
    run (next);
    EXPECT_FALSE (has (text_of ("dump"), "x")) << "of an older run";
    EXPECT_TRUE (has (run ("flock dump " + next), "dump: the waveform of another program"));
    EXPECT_EQ (run ("Q5_CHASSIS_FAST=1 Q5_CHASSIS_FILE=x " + launcher + probe), preload + "\n")
        << "what is set from outside but not asked for does not get through";
    EXPECT_EQ (status, 42);
}
