#include "scan/q5_scan_client.h"
#include "tests/fake_server.h"

#include <gtest/gtest.h>

using execute_t = int32_t (q5_scan_client_t::*) (int32_t, q5_scan_command_t *);
static const execute_t both_orders[] = {&q5_scan_client_t::execute,
                                        &q5_scan_client_t::execute_batch};

// A client, and a server that replies to it.
struct pair_t {
    fake_server_t server;
    q5_scan_client_t client;

    explicit pair_t (const bytes_t &reply) : server (reply), client ("127.0.0.1", server.port) {}
};

// Two requests with data; the first wants four bytes back.
struct two_commands_t {
    uint8_t tx[5] = {0xa1, 0xa2, 0xb1, 0xb2, 0xb3};
    uint8_t rx[8] = {9, 9, 9, 9, 9, 9, 9, 9};
    q5_scan_command_t commands[2] = {{77, 3, 2, 4, tx, rx, 99}, {-78, 31, 3, 0, tx + 2, 0, 99}};
};

TEST (client, sends_each_order_and_stores_the_replies_as_far_as_they_came)
{
    struct case_t {
        bytes_t reply;
        int whole;
        int32_t first, second; // results; 99: untouched
    };
    const bytes_t data = {1, 2, 3, 4};
    const std::vector<case_t> cases = {
        {words ({10}) + data + words ({-3}), 2, 10, -3},
        {{}, -1, 99, 99},
        {{0, 0, 0}, 0, 99, 99},
        {words ({4}) + bytes_t{1, 2, 3}, 0, 4, 99},
        {words ({4}) + data, 1, 4, 99},
        {words ({0}) + bytes_t{0xff, 0xff, 0xff}, 1, 0, 99},
    };
    const bytes_t first = words ({3, 77, 4, 2}), second = words ({31, -78, 0, 3});
    const bytes_t a = {0xa1, 0xa2}, b = {0xb1, 0xb2, 0xb3};
    const bytes_t streams[] = {words ({-7, 2}) + first + a + second + b,
                               words ({-7, 2}) + first + second + a + b};
    for (const case_t &c : cases) {
        for (int i = 0; i < 2; i++) {
            int before = num_descriptors ();
            pair_t p (c.reply);
            EXPECT_EQ (p.client.client_id, 2);
            p.client.client_id = -7;
            two_commands_t t;
            EXPECT_EQ ((p.client.*both_orders[i]) (2, t.commands), c.whole == 2);
            EXPECT_EQ (p.server.received (), streams[i]);
            EXPECT_EQ (t.commands[0].result, c.first);
            EXPECT_EQ (t.commands[1].result, c.second);
            EXPECT_EQ (bytes_t (t.rx + 4, t.rx + 8), bytes_t (4, 9)) << "only four were wanted";
            EXPECT_EQ (bytes_t (t.rx, t.rx + 4) == data, c.whole > 0 && c.first > 0);
            EXPECT_EQ (num_descriptors (), before);
        }
        pair_t p (c.reply);
        two_commands_t t;
        int fd = p.client.connect_to (p.client.host, p.client.port);
        EXPECT_EQ (p.client.exchange_batch (fd, 2, t.commands), c.whole);
        EXPECT_EQ (close (fd), 0) << "the connection stays the caller's";
    }
}

// The descriptor of this process that is connected to the port; -1 when there is none.
static int connection_to (int port)
{
    sockaddr_in peer;
    for (int fd = 0; fd < 64; fd++) {
        socklen_t size = sizeof (peer);
        if (getpeername (fd, reinterpret_cast<sockaddr *> (&peer), &size) == 0 &&
            peer.sin_family == AF_INET && ntohs (peer.sin_port) == port) {
            return fd;
        }
    }
    return -1;
}

TEST (client, a_bad_record_throws_in_the_middle_of_execute_and_before_execute_batch_connects)
{
    struct case_t {
        q5_scan_command_t bad;
        std::string where, batch_where;
        bytes_t sent; // of the bad record
    };
    uint8_t byte = 0;
    const bytes_t first_tx = {0xa1, 0xa2};
    const std::string slot = "q5_scan_server.cc:185 (c->slot >= 0 && c->slot < Q5_SCAN_NUM_SLOTS)";
    const std::string tx = "q5_scan_server.cc:186 (!c->txlen || c->txbuf)";
    const std::string rx = "q5_scan_server.cc:187 (!c->rxlen || c->rxbuf)";
    const std::vector<case_t> cases = {
        {{5, 32, 1, 1, nullptr, nullptr, 0}, slot, slot, {}},
        {{5, -1, 0, 0, nullptr, nullptr, 0}, slot, slot, {}},
        {{5, 0, 1, 1, nullptr, nullptr, 0}, tx, tx, {}},
        {{5, 0, 1, -1, &byte, nullptr, 0}, rx, rx, {}},
        {{5, 0, -1, 0, &byte, nullptr, 0},
         "kp_literate.cc:27 (fd >= 0 && buffer && length > 0)",
         "q5_scan_server.cc:206 (c->txlen >= 0 && c->txlen <= Q5_SCAN_MAX_TX)",
         words ({0, 5, 0, -1})},
    };
    for (const case_t &c : cases) {
        two_commands_t t;
        t.commands[1] = c.bad;
        pair_t p ({});
        EXPECT_ASSERTION (p.client.execute (2, t.commands), c.where);
        EXPECT_EQ (close (connection_to (p.server.port)), 0) << "to be left open";
        EXPECT_EQ (p.server.received (), words ({2, 2, 3, 77, 4, 2}) + first_tx + c.sent);

        int before = num_descriptors ();
        pair_t unused ({});
        EXPECT_ASSERTION (unused.client.execute_batch (2, t.commands), c.batch_where);
        EXPECT_EQ (unused.server.received (), bytes_t ());
        EXPECT_EQ (num_descriptors (), before);
    }
}

TEST (client, execute_takes_a_negative_count_for_an_empty_batch_and_no_other_without_requests)
{
    pair_t p ({});
    q5_scan_command_t c = {};
    EXPECT_EQ (p.client.execute (-5, &c), 1);
    EXPECT_EQ (p.server.received (), words ({2, -5}));
    for (execute_t execute : both_orders) {
        const std::string where = "q5_scan_server.cc:161 (num_commands && commands)";
        EXPECT_ASSERTION ((p.client.*execute) (0, &c), where);
        EXPECT_ASSERTION ((p.client.*execute) (1, nullptr), where);
        EXPECT_EQ ((p.client.*execute) (1, &c), 0) << "nobody listens any more";
    }
}

TEST (client, a_batch_is_checked_against_every_limit)
{
    struct case_t {
        std::vector<std::pair<int, int>> lengths; // to transmit, to receive
        std::string message;
    };
    const std::string a = "assertion failed. q5_scan_server.cc:";
    const std::string tx = a + "206 (c->txlen >= 0 && c->txlen <= Q5_SCAN_MAX_TX)";
    const std::string rx = a + "207 (c->rxlen >= 0 && c->rxlen <= Q5_SCAN_MAX_RX)";
    const std::string sum = a + "208 (c->txlen + tx_count <= Q5_SCAN_MAX_TX)";
    const std::string count = a + "201 (num_commands > 0 && num_commands <= MAX_REQUESTS)";
    const std::vector<case_t> cases = {
        {{{4094, 4096}, {0, 4096}}, ""},
        {{{4095, 0}}, tx},
        {{{0, 4097}}, rx},
        {{{0, -1}}, rx},
        {{{2047, 0}, {2047, 0}}, ""},
        {{{2048, 0}, {2047, 0}}, sum},
        {std::vector (100, std::pair (40, 0)), ""},
        {std::vector (101, std::pair (0, 0)), count},
    };
    q5_scan_client_t client ("127.0.0.1", 1);
    static uint8_t bytes[Q5_SCAN_MAX_RX + 1];
    for (const case_t &c : cases) {
        std::vector<q5_scan_command_t> commands;
        for (auto [txlen, rxlen] : c.lengths) {
            commands.push_back ({51, 0, txlen, rxlen, bytes, bytes, 0});
        }
        auto check = [&] { client.check_batch (commands.size (), commands.data ()); };
        EXPECT_EQ (message_of (check), c.message);
    }
    q5_scan_command_t c = {};
    EXPECT_EQ (message_of ([&] { client.execute_batch (-1, &c); }), count);
}

TEST (client, claims_and_releases_when_the_daemon_says_more_than_0)
{
    const std::vector<std::pair<bytes_t, int>> replies = {
        {words ({1}), 1}, {words ({0}), 0}, {words ({-1}), 0}, {words ({7}), 1}, {{0, 0, 1}, 0},
    };
    for (const auto &[reply, granted] : replies) {
        pair_t claiming (reply), releasing (reply);
        EXPECT_EQ (claiming.client.claim (), granted);
        EXPECT_EQ (claiming.server.received (), words ({2, 1, 0, 1, 0, 0}));
        EXPECT_EQ (releasing.client.release (), granted);
        EXPECT_EQ (releasing.server.received (), words ({2, 1, 0, 2, 0, 0}));
    }
}

TEST (client, sends_short_messages_of_up_to_27_bytes)
{
    bytes_t bytes (27, 10);
    bytes[26] = 11;
    for (int size : {27, 1, 0, -1, -2}) {
        pair_t p (words ({-1}));
        EXPECT_EQ (p.client.send_short (9, 0xfe, 2, bytes.data (), size), 1)
            << "whatever the result";
        bytes_t sent =
            bytes_t{0xfe, 2} + bytes_t (bytes.begin (), bytes.begin () + std::max (size, 0));
        sent.resize (size + 2);
        EXPECT_EQ (p.server.received (), words ({2, 1, 9, 147, 0, size + 2}) + sent);
    }
    pair_t p ({});
    const std::string where = "q5_scan_server.cc:234 (this && p && size < 28)";
    EXPECT_ASSERTION (p.client.send_short (9, 1, 2, bytes.data (), 28), where);
    EXPECT_ASSERTION (p.client.send_short (9, 1, 2, nullptr, 0), where);
    EXPECT_ASSERTION (null_object<q5_scan_client_t> ()->send_short (0, 1, 2, "", 0), where);
    EXPECT_EQ (p.server.received (), bytes_t ()) << "thrown before connecting";
}
