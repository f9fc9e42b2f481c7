// The daemon's entry, under another name.
#include "scanp/scan_port.h"

#include <gtest/gtest.h>
#include <signal.h>

int entry (); // the daemon's main

// In place of the devices: shows how a broken pipe is handled by then, and fails unexpectedly.
void scan_port_init ()
{
    struct sigaction action;
    sigaction (SIGPIPE, nullptr, &action);
    bool handled = action.sa_handler != SIG_DFL && action.sa_handler != SIG_IGN;
    fputs (handled ? "a handler; " : "no handler; ", stderr);
    throw 7;
}

TEST (entry, handles_broken_pipes_before_the_devices_and_ends_with_last_words)
{
    EXPECT_EXIT ([] () noexcept { entry (); }(), testing::KilledBySignal (SIGABRT),
                 "a handler; q5_scand: aborted by an unexpected exception");
}
