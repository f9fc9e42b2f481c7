// The launcher as a whole program.
#include <algorithm>
#include <elf.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <link.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>

namespace fs = std::filesystem;

struct outcome_t {
    int status = -1;
    std::string output; // standard output and standard error
};

struct Launcher : testing::Test {
    std::string folder = testing::TempDir () + "q5_launcher_XXXXXX";

    void SetUp () override
    {
        ASSERT_NE (mkdtemp (folder.data ()), nullptr);
    }
    void TearDown () override
    {
        fs::remove_all (folder);
    }
    std::string in_folder (const std::string &name)
    {
        return folder + "/" + name;
    }
    std::string write (const std::string &name, const std::string &text)
    {
        std::ofstream (in_folder (name), std::ios::binary) << text;
        fs::permissions (in_folder (name), fs::perms::owner_all);
        return in_folder (name);
    }
    // Runs a shell command line in the folder.
    outcome_t shell (const std::string &command)
    {
        outcome_t outcome;
        FILE *pipe = popen (("cd '" + folder + "' && exec 2>&1; " + command).c_str (), "r");
        for (int c; (c = fgetc (pipe)) != EOF;) {
            outcome.output += static_cast<char> (c);
        }
        int status = pclose (pipe);
        outcome.status = WIFEXITED (status) ? WEXITSTATUS (status) : 256 + WTERMSIG (status);
        return outcome;
    }
    outcome_t launch (const std::string &arguments)
    {
        return shell ("exec '" Q5_LAUNCHER "' " + arguments);
    }
};

static bool contains (const std::string &text, const std::string &part)
{
    return text.find (part) != std::string::npos;
}

TEST_F (Launcher, StartsNothingWhenARequestIsWrong)
{
    write ("broken.toml", "[[card]]\nslot = 31");
    write ("good.toml", "[[card]]\nslot = 30");
    const std::vector<std::tuple<std::string, int, std::string>> cases = {
        {"--file broken.toml", 2, "q5_chassis: broken.toml:2: card.slot: found 31"},
        {"--file none.toml", 2, "q5_chassis: none.toml: cannot be read: No such file"},
        {"--file ''", 2, "--file: expected a path, found nothing"},
        {"--trace none/trace", 2, "q5_chassis: none/trace: cannot be written: No such file"},
        {"--file good.toml --trace good.toml", 2, "good.toml: is the chassis file"},
        {"--slow", 2, "not expected: --slow"},
    };
    for (const auto &[options, status, message] : cases) {
        outcome_t outcome = launch (options + " -- touch started");
        EXPECT_EQ (outcome.status, status) << options;
        EXPECT_PRED2 (contains, outcome.output, message) << options;
        EXPECT_FALSE (fs::exists (in_folder ("started"))) << options;
    }
    EXPECT_EQ (fs::file_size (in_folder ("good.toml")), 18u);
}

TEST_F (Launcher, TellsAShellsStatusOfAProgramThatCannotRun)
{
    write ("data", "neither");
    fs::permissions (in_folder ("data"), fs::perms::owner_read);
    EXPECT_EQ (launch ("-- ./none").status, 127);
    EXPECT_EQ (launch ("-- no_such_program_here").status, 127);
    EXPECT_EQ (launch ("-- ./data").status, 126);
    EXPECT_EQ (launch ("").status, 2);
}

static std::string without_interpreter (std::string elf)
{
    ElfW (Ehdr) header;
    std::copy_n (elf.data (), sizeof (header), reinterpret_cast<char *> (&header));
    auto *segment = reinterpret_cast<ElfW (Phdr) *> (elf.data () + header.e_phoff);
    auto *end = segment + header.e_phnum;
    std::find_if (segment, end, [] (auto &s) { return s.p_type == PT_INTERP; })->p_type = PT_NULL;
    return elf;
}

TEST_F (Launcher, RefusesWhatCannotBePreloaded)
{
    std::ifstream file (Q5_LAUNCHER, std::ios::binary);
    std::string elf (std::istreambuf_iterator<char> (file), {});
    write ("static", without_interpreter (elf));
    elf[offsetof (ElfW (Ehdr), e_machine)] ^= 1;
    write ("foreign", elf);
    for (const char *why : {"static", "foreign"}) {
        outcome_t outcome = launch (std::string ("-- ./") + why);
        EXPECT_EQ (outcome.status, 126);
        EXPECT_PRED2 (contains, outcome.output, std::string ("./") + why + ": cannot run");
    }
}

TEST_F (Launcher, NeedsThePreloadLibrary)
{
    fs::copy_file (Q5_LAUNCHER, in_folder ("q5_chassis"));
    outcome_t outcome = shell ("./q5_chassis -- true");
    EXPECT_EQ (outcome.status, 2);
    EXPECT_PRED2 (contains, outcome.output, folder + "/libq5_chassis.so nor ");
}

TEST_F (Launcher, BecomesTheProgram)
{
    write ("c.toml", "");
    write ("trace", "of an older run");
    const std::string library =
        fs::path (Q5_LAUNCHER).parent_path ().string () + "/libq5_chassis.so";
    outcome_t outcome = launch ("--file c.toml --trace trace --fast -- '" Q5_PROBE "' 42");
    EXPECT_EQ (outcome.status, 42);
    EXPECT_EQ (outcome.output, folder + "/c.toml," + folder + "/trace,1," + library + ",42\n");
    EXPECT_EQ (fs::file_size (in_folder ("trace")), 0u);

    // What is set from outside but not asked for does not get through.
    outcome = shell ("export Q5_CHASSIS_FAST=1 Q5_CHASSIS_FILE=x; exec '" Q5_LAUNCHER
                     "' -- '" Q5_PROBE "' --terminate");
    EXPECT_EQ (outcome.status, 256 + SIGTERM);
    EXPECT_EQ (outcome.output, "unset,unset,unset," + library + ",--terminate\n");
}

TEST_F (Launcher, PrintsAnExampleThatItTakes)
{
    outcome_t outcome =
        shell ("'" Q5_LAUNCHER "' --example >e.toml && '" Q5_LAUNCHER "' --file e.toml --check");
    EXPECT_EQ (outcome.status, 0);
    EXPECT_PRED2 (contains, outcome.output, "5       100  framing              51 (3), 83 (4)\n");
    EXPECT_EQ (outcome.output, launch ("--check").output);
}
