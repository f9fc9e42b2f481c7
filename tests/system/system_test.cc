#include "scan/q5_scan_client.h"
#include "tests/system/daemon.h"

#include <fstream>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <thread>

constexpr int claim = 1;
constexpr int release = 2;
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

static bytes_t text (const std::string &characters)
{
    return bytes_t (characters.begin (), characters.end ());
}

static const bytes_t ask_3 = words ({2, 1, 3, ask, 4, 0});
static const bytes_t answer_3 = words ({4}) + bytes_t ({11, 12, 13, 14});
static const std::string bad_slot =
    "assertion failed. q5_scan_server.cc:46 (m->slot >= 0 && m->slot < Q5_SCAN_NUM_SLOTS)";
static const bytes_t bad_batch = words ({2, 1, 40, ask, 0, 0});

TEST (q5_scand, serves_a_batch_byte_by_byte_and_answers_every_request)
{
    daemon_t daemon ({cards});
    connection_t client;
    for (uint8_t byte : words ({2,   7,  3, ask, 4,   0,  3, echo, 8,   3,  23, ask, 16,   0, 5,
                                ask, 16, 0, 6,   ask, 16, 0, 21,   ask, 16, 0,  3,   echo, 0, 2}) +
                            bytes_t{1, 2, 3, 4, 5}) {
        client.send ({byte});
    }
    EXPECT_EQ (client.rest (), answer_3 + words ({3}) + bytes_t ({1, 2, 3}) + words ({4}) +
                                   text ("slow") + words ({-1, -3, -2, 2}));
    EXPECT_EQ (play (ask_3 + bytes_t (1000)), answer_3) << "bytes after a batch do no harm";
    EXPECT_EQ (daemon.errors (), "");
}

TEST (q5_scand, says_why_it_refused_before_the_client_sees_the_end)
{
    daemon_t daemon ({cards});
    for (int i = 0; i < 3; i++) {
        EXPECT_TRUE (play (bad_batch).empty ());
        EXPECT_EQ (daemon.line (0), bad_slot);
        EXPECT_EQ (play (ask_3), answer_3) << "the next client is served";
    }
    std::string file = daemon.folder + ".out";
    daemon.end (SIGTERM);
    daemon_t second ({cards, true, false, file});
    EXPECT_TRUE (play (bad_batch).empty ());
    std::string line;
    std::getline (std::ifstream (file), line);
    EXPECT_EQ (line, bad_slot);
    unlink (file.c_str ());
}

TEST (q5_scand, keeps_serving_when_nobody_reads_its_output)
{
    daemon_options_t options{cards};
    options.close_output = true;
    daemon_t daemon (options);
    for (int i = 0; i < 300; i++) {
        EXPECT_TRUE (play (bad_batch).empty ());
    }
    EXPECT_EQ (play (ask_3), answer_3);
}

TEST (q5_scand, one_client_holds_the_bus_and_others_are_dropped_without_a_word)
{
    daemon_t daemon ({cards});
    EXPECT_EQ (play (words ({7, 1, 0, claim, 0, 0})), words ({1}));
    EXPECT_TRUE (play (ask_3).empty ());
    connection_t early;
    early.send (words ({8}));
    EXPECT_TRUE (early.rest ().empty ()) << "dropped after its id";
    EXPECT_EQ (play (words ({7, 2, 3, ask, 0, 0, 0, release, 0, 0})), words ({4, 1}));
    EXPECT_EQ (play (ask_3), answer_3);
    EXPECT_EQ (daemon.line (0), std::nullopt);
}

TEST (q5_scand, outlives_clients_that_go_at_any_point)
{
    daemon_t daemon ({cards});
    const bytes_t batch = words ({2, 2, 3, echo, 4000, 4000, 3, ask, 4, 0}) + bytes_t (4000, 1);
    for (size_t sent = 0; sent < 60; sent += 3) {
        connection_t client;
        client.send (bytes_t (batch.begin (), batch.begin () + sent));
    }
    for (size_t taken : {0, 1, 4, 5, 2000, 4004, 4006}) {
        connection_t client;
        linger abort_at_once = {1, 0};
        setsockopt (client.fd, SOL_SOCKET, SO_LINGER, &abort_at_once, sizeof (abort_at_once));
        client.send (batch);
        EXPECT_EQ (client.receive (taken).size (), taken);
    }
    EXPECT_EQ (play (ask_3), answer_3);
}

TEST (q5_scand, keeps_no_descriptor_of_a_thousand_connections)
{
    daemon_t daemon ({cards});
    play (ask_3);
    int before = daemon.num_descriptors ();
    for (int i = 0; i < 1000; i++) {
        if (i % 2) {
            connection_t gone;
        } else {
            play (bad_batch);
        }
        daemon.line (0);
    }
    EXPECT_EQ (play (ask_3), answer_3);
    EXPECT_EQ (daemon.num_descriptors (), before);
}

TEST (q5_scand, takes_its_port_again_at_once)
{
    for (int i = 0; i < 3; i++) {
        daemon_t daemon ({cards});
        EXPECT_EQ (play (ask_3), answer_3);
    }
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

static int start_on (const std::string &board, std::string *errors)
{
    daemon_options_t options{"[board]\n" + board + cards};
    options.wait = false;
    daemon_t daemon (options);
    EXPECT_EQ (daemon.line (), std::nullopt);
    int status = daemon.end (0);
    *errors = daemon.errors ();
    return status;
}

TEST (q5_scand, ends_when_the_driver_fails)
{
    std::string errors;
    int status = start_on ("device = false", &errors);
    EXPECT_EQ (errors, "can't get scanp_fd.\n");
    EXPECT_TRUE (WIFEXITED (status) && WEXITSTATUS (status) == 255);

    status = start_on ("buffer = 0", &errors);
    EXPECT_TRUE (WIFSIGNALED (status) && WTERMSIG (status) == SIGABRT);
    EXPECT_NE (errors.find ("scanp.cc:27: scanp_get_phys_mem: Assertion `addr != 0' failed."),
               std::string::npos)
        << errors;

    status = start_on ("dpram = 0x7FFFFFFF", &errors);
    EXPECT_TRUE (WIFSIGNALED (status) && WTERMSIG (status) == SIGABRT);
    EXPECT_NE (errors.find ("scanp.cc:34: scanp_get_dpmem_offset: Assertion "
                            "`offset != ((uint)0x7fffffff)' failed."),
               std::string::npos)
        << errors;
}

TEST (q5_scand, aborts_when_a_cp_command_fails)
{
    daemon_t daemon ({"[board]\ncpcr = 1\n" + cards});
    EXPECT_TRUE (play (words ({2, 1, 21, ask, 4, 0})) == words ({-2}))
        << "no command is needed yet";
    EXPECT_TRUE (play (ask_3).empty ());
    int status = daemon.end (0);
    EXPECT_TRUE (WIFSIGNALED (status) && WTERMSIG (status) == SIGABRT);
    EXPECT_NE (
        daemon.errors ().find ("scanp.cc:41: scanp_do_cpcr_command: Assertion `cc == 0' failed."),
        std::string::npos);
}

// 4094 bytes out and back; the closing character lies in the receive buffer. -1 is an address too.
TEST (q5_scand, works_with_buffers_at_any_address)
{
    for (const char *address : {"0x01F40000", "0x01F40ABC", "0xEFFFD001"}) {
        daemon_t daemon ({std::string ("[board]\nbuffer = ") + address + cards});
        bytes_t data (4094);
        for (size_t i = 0; i < data.size (); i++) {
            data[i] = static_cast<uint8_t> (i * 7 + 1);
        }
        bytes_t batch = words ({2, 1, 3, echo, 4096, 4094}) + data;
        EXPECT_EQ (play (batch), words ({4094}) + data) << address;
        EXPECT_EQ (play (batch), words ({4094}) + data) << address;
    }
    daemon_t nowhere ({"[board]\nbuffer = 0xFFFFFFFF" + cards});
    EXPECT_EQ (play (words ({2, 1, 21, ask, 4, 0})), words ({-2}))
        << "it starts, on a null mapping";
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
    bytes_t batch = words ({2, 100});
    bytes_t expected;
    for (int i = 0; i < 100; i++) {
        batch = batch + words ({3, ask, 4, 0});
        expected = expected + answer_3;
    }
    for (int i = 0; i < 100; i++) {
        ASSERT_EQ (play (batch), expected);
    }
}

TEST (q5_scand, is_spoken_to_by_the_client_class)
{
    signal (SIGPIPE, SIG_IGN);
    daemon_t daemon ({cards});
    q5_scan_client_t client ("127.0.0.1", 1971);
    q5_scan_client_t other ("localhost", 1971);
    other.client_id = 3;
    EXPECT_EQ (client.claim (), 1);
    EXPECT_EQ (other.claim (), 0);
    EXPECT_EQ (client.send_short (3, 0x10, 0x20, "xyz", 3), 1);

    uint8_t tx[3] = {5, 6, 7};
    uint8_t rx[2][8] = {};
    q5_scan_command_t commands[2] = {{echo, 3, 2, 8, tx, rx[0], 0},
                                     {echo, 3, 1, 8, tx + 2, rx[1], 0}};
    EXPECT_EQ (other.execute_batch (2, commands), 0);
    EXPECT_EQ (client.execute_batch (2, commands), 1);
    EXPECT_EQ (commands[0].result, 2);
    EXPECT_EQ (commands[1].result, 1);
    EXPECT_EQ (rx[0][1], 6);
    EXPECT_EQ (rx[1][0], 7);
    EXPECT_EQ (client.release (), 1);
    EXPECT_EQ (other.claim (), 1);
}
