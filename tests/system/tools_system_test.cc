// The command line against the daemon on the emulated chassis.
#include "tests/shell.h"
#include "tests/system/daemon.h"
#include "tools/report.h"

#include <gtest/gtest.h>

static bool has (const std::string &text, const std::string &part)
{
    return text.find (part) != std::string::npos;
}

TEST (command_line, tells_who_holds_the_bus)
{
    daemon_t daemon;
    shell_t shell;
    EXPECT_EQ (shell.run ("q5_scan --id 7 claim").status, 0);
    outcome_t dropped = shell.run ("q5_scan run 3 51");
    EXPECT_EQ (dropped.status, 4);
    EXPECT_TRUE (has (dropped.errors, "another id holds the bus (this batch went out as id 2)"));
    EXPECT_EQ (shell.run ("q5_scan run 3 51 --id 7").status, 0);
    EXPECT_EQ (shell.run ("q5_scan release --id 7").status, 0);
    EXPECT_EQ (shell.run ("q5_scan run 3 51").status, 0);
    EXPECT_TRUE (has (shell.run ("q5_scan --id 0 claim").output, "id 0 holds nothing"));
    EXPECT_EQ (shell.run ("q5_scan run 3 51").status, 0);
}

TEST (command_line, puts_every_failure_of_a_slot_into_words)
{
    std::string chassis;
    const char *faults[] = {"framing", "line low", "silent", "wrong address",
                            "endless transmitter"};
    for (int slot = 0; slot < 5; slot++) {
        chassis += "[[card]]\nslot = " + std::to_string (slot) + "\nfault = \"" + faults[slot] +
                   "\"\nanswer = [{ command = 51, hex = \"00\" }]\n";
    }
    chassis += "[[card]]\nslot = 5\naddress = 0xA5\nanswer = [{ command = 51, hex = \"00\" }]\n";
    daemon_t daemon ({chassis});
    outcome_t outcome = shell_t ().run ("q5_scan --json fetch 0 1 2 3 4 5 31");
    EXPECT_EQ (outcome.status, 1);
    json_t slots = json_t::parse (outcome.output)["slots"];
    const char *states[] = {"line error",
                            "no such slot, or line low",
                            "no card, or silent",
                            "no card, or silent",
                            "not sent",
                            "wrong address",
                            "no such slot, or line low"};
    ASSERT_EQ (slots.size (), std::size (states));
    for (size_t i = 0; i < std::size (states); i++) {
        EXPECT_EQ (slots[i]["state"], states[i]) << i;
    }
}

static std::string card (const std::string &value)
{
    return "[[card]]\nslot = 9\nanswer = [{ command = 51, types = \"b\", fields = [" + value +
           "] }, { command = 83, hex = \"\" }]\n";
}

TEST (command_line, watches_until_it_is_interrupted)
{
    daemon_t daemon ({card ("1")});
    shell_t shell;
    shell.write ("plugged", card ("2"));
    outcome_t outcome =
        shell.run ("q5_scan watch 9 --interval 0.01 > shown & watching=$!\n"
                   "wait_for () { for i in $(seq 1000); do grep -q \"$1\" shown && return; sleep "
                   "0.01; done; }\n"
                   "wait_for b=1\ncp plugged " +
                   daemon.folder + "/new; mv " + daemon.folder + "/new " + daemon.folder +
                   "/chassis.toml\nwait_for b=2\nkill -TERM $watching\nwait $watching");
    EXPECT_EQ (outcome.status, 0) << outcome.errors;
    std::string shown = shell.read ("shown");
    EXPECT_TRUE (has (shown, "round 1\n   SLOT  STATE")) << shown;
    EXPECT_TRUE (has (shown, "\n*  9     ok     1       b      b=2")) << shown;
    EXPECT_FALSE (has (shown, "\n*  9     ok     1       b      b=1")) << shown;
    EXPECT_FALSE (has (shown, "\033")) << "no control sequence outside a terminal";

    EXPECT_EQ (
        shell.run ("q5_scan watch 9 --interval 0 --count 3 --json | grep -c '\"ok\":true'").output,
        "3\n");
}
