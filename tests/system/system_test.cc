#include "scan/q5_scan_client.h"
#include "tests/system/daemon.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

constexpr int ask = 0x33;
constexpr int echo = 0x93;

// Slot 3 answers and echoes, slot 23 is a slow one, slot 5 breaks its answers, slot 6 keeps silent.
static const std::string cards = R"(
[[card]]
slot = 3
answer = [ { command = 0x33, hex = "0B 0C 0D 0E" }, { command = 0x93, echo = true } ]
[[card]]
slot = 23
answer = [ { command = 0x33, text = "slow" } ]
[[card]]
slot = 5
fault = "framing"
answer = [ { command = 0x33, hex = "01 02 03" } ]
[[card]]
slot = 6
fault = "silent"
answer = [ { command = 0x33, hex = "01" } ]
)";

static const bytes_t ask_3 = words ({2, 1, 3, ask, 4, 0});
static const bytes_t answer_3 = words ({4}) + bytes_t ({11, 12, 13, 14});
static const std::string bad_slot =
    "assertion failed. q5_scan_server.cc:46 (m->slot >= 0 && m->slot < Q5_SCAN_NUM_SLOTS)";
static const bytes_t bad_batch = words ({2, 1, 40, ask, 0, 0});

TEST (q5_scand, serves_a_batch_byte_by_byte_and_answers_every_request)
{
    daemon_t daemon ({cards});
    connection_t client;
    const bytes_t batch = words ({2,   7,  3, ask, 4,   0,  3, echo, 8,   3,  23, ask, 16,   0, 5,
                                  ask, 16, 0, 6,   ask, 16, 0, 21,   ask, 16, 0,  3,   echo, 0, 2});
    for (uint8_t byte : batch + bytes_t{1, 2, 3, 4, 5}) {
        client.send ({byte});
    }
    EXPECT_EQ (client.rest (), answer_3 + words ({3}) + bytes_t ({1, 2, 3}) + words ({4}) +
                                   bytes_t ({'s', 'l', 'o', 'w'}) + words ({-1, -3, -2, 2}));
    EXPECT_EQ (daemon.errors (), "");
}

TEST (q5_scand, says_why_it_refused_before_the_client_sees_the_end)
{
    daemon_t daemon ({cards});
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ (play (bad_batch), bytes_t ());
        EXPECT_EQ (daemon.line (0), bad_slot);
        EXPECT_EQ (play (ask_3), answer_3) << "the next client is served";
    }
}

TEST (q5_scand, keeps_serving_when_nobody_reads_its_output)
{
    daemon_options_t options{cards};
    options.close_output = true;
    daemon_t daemon (options);
    for (int i = 0; i < 300; i++) {
        EXPECT_EQ (play (bad_batch), bytes_t ());
    }
    EXPECT_EQ (play (ask_3), answer_3);
}

TEST (q5_scand, outlives_a_thousand_clients_that_go_at_any_point_and_starts_again_behind_them)
{
    const bytes_t batch = words ({2, 2, 3, echo, 4000, 4000, 3, ask, 4, 0}) + bytes_t (4000, 1);
    {
        daemon_t daemon ({cards});
        play (ask_3);
        int before = daemon.num_descriptors ();
        for (size_t i = 0; i < 500; i++) {
            connection_t gone;
            gone.send (bytes_t (batch.begin (), batch.begin () + i % 60));
            gone.close ();
            play ({}); // the daemon is done with it: its backlog is short
            daemon.line (0);
        }
        for (size_t taken : {0, 1, 4, 5, 2000, 4004, 4006}) {
            connection_t client;
            linger abort_at_once = {1, 0};
            setsockopt (client.fd, SOL_SOCKET, SO_LINGER, &abort_at_once, sizeof (abort_at_once));
            client.send (batch);
            EXPECT_EQ (client.receive (taken).size (), taken);
        }
        connection_t lingering; // at the daemon's end, which closes first
        lingering.send (ask_3);
        EXPECT_EQ (lingering.rest (), answer_3);
        EXPECT_EQ (daemon.num_descriptors (), before);
    }
    daemon_t again ({cards});
    EXPECT_EQ (play (ask_3), answer_3);
}

TEST (q5_scand, listens_on_every_address_with_a_backlog_of_7)
{
    daemon_t daemon ({cards});
    char line[200] = "";
    FILE *sockets = popen ("ss -Hltn 'sport = :1971'", "r");
    EXPECT_NE (fgets (line, sizeof (line), sockets), nullptr);
    pclose (sockets);
    char address[50] = "";
    int backlog = 0;
    sscanf (line, "LISTEN %*d %d %49s", &backlog, address);
    EXPECT_EQ (backlog, 7);
    EXPECT_STREQ (address, "0.0.0.0:1971");
}

TEST (q5_scand, prints_and_ends_with_0_when_the_port_is_taken)
{
    daemon_t daemon ({cards});
    daemon_options_t options{cards};
    options.wait = false;
    daemon_t second (options);
    EXPECT_EQ (second.line (), "error kp_server.cc:33 (Address already in use)");
    int status = second.end (0);
    EXPECT_TRUE (WIFEXITED (status) && WEXITSTATUS (status) == 0);
    EXPECT_EQ (play (ask_3), answer_3);
}

TEST (q5_scand, starts_on_a_null_mapping_of_its_buffers)
{
    daemon_t daemon ({"[board]\nbuffer = 0xFFFFFFFF" + cards});
    EXPECT_EQ (play (words ({2, 1, 21, ask, 4, 0})), words ({-2}));
}

TEST (q5_scand, sees_cards_pulled_and_plugged_while_it_runs)
{
    daemon_t daemon ({cards});
    EXPECT_EQ (play (ask_3), answer_3);
    daemon.plug ("");
    EXPECT_EQ (play (ask_3), words ({-3}));
    daemon.plug (cards);
    EXPECT_EQ (play (ask_3), answer_3);
    daemon.plug ("[[card]]\nslot = 99\n");
    EXPECT_EQ (play (ask_3), answer_3) << "a broken edit leaves the old chassis";
    EXPECT_NE (daemon.errors ().find ("chassis.toml:2: "), std::string::npos) << daemon.errors ();
}

TEST (q5_scand, carries_ten_thousand_transfers)
{
    daemon_t daemon ({cards});
    const bytes_t batch = words ({2, 100}) + 100 * words ({3, ask, 4, 0});
    for (int i = 0; i < 100; i++) {
        ASSERT_EQ (play (batch), 100 * answer_3);
    }
}

TEST (q5_scand, is_spoken_to_by_the_client_class)
{
    signal (SIGPIPE, SIG_IGN);
    daemon_t daemon ({cards});
    q5_scan_client_t client ("127.0.0.1", 1971), other ("localhost", 1971);
    other.client_id = 3;
    EXPECT_EQ (client.claim (), 1);
    EXPECT_EQ (other.claim (), 0);
    EXPECT_EQ (client.send_short (3, 0x10, 0x20, "xyz", 3), 1);
    uint8_t tx[3] = {5, 6, 7}, rx[8] = {};
    q5_scan_command_t commands[2] = {{echo, 3, 2, 4, tx, rx, 0},
                                     {echo, 3, 1, 4, tx + 2, rx + 4, 0}};
    EXPECT_EQ (client.execute_batch (2, commands), 1);
    EXPECT_EQ (bytes_t (rx, rx + 8), (bytes_t{5, 6, 0, 0, 7, 0, 0, 0}));
    EXPECT_EQ (client.release (), 1);
    EXPECT_EQ (other.claim (), 1);
}
