// Promises made in passing, where another way would hurt somebody.
#include "scan/q5_scan_reader.h"
#include "scanp/scan_port.h"
#include "tests/fake_server.h"

#include <gtest/gtest.h>
#include <signal.h>

// Programs compare the limits in the preprocessor.
#if Q5_SCAN_NUM_SLOTS != 32 || Q5_SCAN_MAX_TX != 4094 || Q5_SCAN_MAX_RX != 4096 ||                 \
    MAX_REQUESTS != 100 || MAX_PUTS != 1000
#error "a limit has changed, or is no macro any more"
#endif

int entry (); // the daemon's main

// In place of the devices: shows how a broken pipe is met by then, and fails as nobody expects.
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
                 "a handler; q5_scand: ended by an unexpected exception");
}

TEST (client, execute_has_no_upper_limits_and_reads_nothing_for_a_negative_length)
{
    bytes_t tx (4095, 7), rx (5000, 9);
    fake_server_t server (words ({0, 5}) + 99 * words ({0}));
    std::vector<q5_scan_command_t> commands (101);
    commands[0] = {51, 3, 4095, 4097, tx.data (), rx.data (), 0};
    commands[1] = {51, 4, 0, -1, nullptr, rx.data (), 0};
    q5_scan_client_t client ("127.0.0.1", server.port);
    EXPECT_EQ (client.execute (101, commands.data ()), 1);
    EXPECT_EQ (server.received (), words ({2, 101, 3, 51, 4097, 4095}) + tx +
                                       words ({4, 51, -1, 0}) + 99 * words ({0, 0, 0, 0}));
    EXPECT_EQ (commands[1].result, 5);
    EXPECT_EQ (rx, bytes_t (5000, 9));
}

TEST (reader, keeps_its_cursor_through_a_fetch)
{
    fake_server_t server (64 * words ({0}));
    q5_scan_reader_t reader ("127.0.0.1", server.port);
    reader.typed_buffers[3] = {5, {2, 'b', 'h', 40, 41}};
    reader.begin_message (3);
    EXPECT_EQ (reader.get_type () + reader.get_byte (), 'b' + 40);
    EXPECT_EQ (reader.fetch_all (), 1);
    EXPECT_EQ (reader.begin_message (3), 0) << "empty now";
    EXPECT_EQ (reader.get_type () + reader.get_byte (), 'h' + 41);
}
