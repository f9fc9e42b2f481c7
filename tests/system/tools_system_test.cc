// The command line against the daemon on the emulated chassis.
#include "tests/system/daemon.h"

#include <gtest/gtest.h>

static std::string card (const std::string &value)
{
    return "[[card]]\nslot = 9\nanswer = [{ command = 51, types = \"b\", fields = [" + value +
           "] }, { command = 83, hex = \"\" }]\n";
}

TEST (command_line, watches_until_it_is_interrupted)
{
    daemon_t daemon ({card ("1")});
    const shell_t &shell = daemon.shell;
    shell.write ("plugged", card ("2"));
    outcome_t outcome =
        shell.run ("q5_scan watch 9 --interval 0.01 > shown & watching=$!\n"
                   "wait_for () { for i in $(seq 1000); do grep -q \"$1\" shown && return; sleep "
                   "0.01; done; }\n"
                   "wait_for b=1\nmv plugged chassis.toml\nwait_for b=2\n"
                   "kill -TERM $watching\nwait $watching");
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
