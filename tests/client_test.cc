#include "net/exception.h"
#include "scan/q5_scan_client.h"
#include "tests/fake_server.h"

#include <gtest/gtest.h>

static const std::string module = "q5_scan_server.cc";
static const std::string slot_text = "c->slot >= 0 && c->slot < Q5_SCAN_NUM_SLOTS";

using execute_t = int32_t (q5_scan_client_t::*) (int32_t, q5_scan_command_t *);
static const execute_t both_orders[] = {&q5_scan_client_t::execute,
                                        &q5_scan_client_t::execute_batch};

// Two requests with data; the first wants four bytes back.
struct two_commands_t {
    uint8_t tx[5] = {0xa1, 0xa2, 0xb1, 0xb2, 0xb3};
    uint8_t rx[8] = {9, 9, 9, 9, 9, 9, 9, 9};
    q5_scan_command_t commands[2] = {{77, 3, 2, 4, tx, rx, 99}, {-78, 31, 3, 0, tx + 2, 0, 99}};
};

TEST (client, sends_each_order_and_stores_the_replies)
{
    const bytes_t first = words ({3, 77, 4, 2}), second = words ({31, -78, 0, 3});
    const bytes_t a = {0xa1, 0xa2}, b = {0xb1, 0xb2, 0xb3};
    const bytes_t streams[] = {words ({-7, 2}) + first + a + second + b,
                               words ({-7, 2}) + first + second + a + b};
    for (int i = 0; i < 2; i++) {
        int before = num_descriptors ();
        fake_server_t server (words ({10}) + bytes_t{1, 2, 3, 4} + words ({-3}));
        q5_scan_client_t client ("127.0.0.1", server.port);
        EXPECT_EQ (client.client_id, 2);
        client.client_id = -7;
        two_commands_t t;
        EXPECT_EQ ((client.*both_orders[i]) (2, t.commands), 1);
        EXPECT_EQ (server.received (), streams[i]);
        EXPECT_EQ (t.commands[0].result, 10) << "whole, though four bytes were wanted";
        EXPECT_EQ (t.commands[1].result, -3);
        EXPECT_EQ (bytes_t (t.rx, t.rx + 8), (bytes_t{1, 2, 3, 4, 9, 9, 9, 9}));
        EXPECT_EQ (num_descriptors (), before);
    }
}

TEST (client, keeps_what_came_before_the_stream_ended)
{
    struct case_t {
        bytes_t reply;
        int whole;
        int32_t first, second;
    };
    const bytes_t data = {1, 2, 3, 4};
    for (const case_t &c :
         {case_t{{}, 0, 99, 99}, case_t{{0, 0, 0}, 0, 99, 99},
          case_t{words ({4}) + bytes_t{1, 2, 3}, 0, 4, 99}, case_t{words ({4}) + data, 1, 4, 99},
          case_t{words ({0}) + bytes_t{0xff, 0xff, 0xff}, 1, 0, 99}}) {
        for (execute_t execute : both_orders) {
            int before = num_descriptors ();
            fake_server_t server (c.reply);
            q5_scan_client_t client ("127.0.0.1", server.port);
            two_commands_t t;
            EXPECT_EQ ((client.*execute) (2, t.commands), 0);
            server.received ();
            EXPECT_EQ (t.commands[0].result, c.first);
            EXPECT_EQ (t.commands[1].result, c.second);
            EXPECT_EQ (num_descriptors (), before);
        }
        fake_server_t server (c.reply);
        q5_scan_client_t client ("127.0.0.1", server.port);
        two_commands_t t;
        int fd = client.connect_to (client.host, client.port);
        EXPECT_EQ (client.exchange_batch (fd, 2, t.commands), c.whole);
        EXPECT_EQ (close (fd), 0) << "the connection stays the caller's";
    }
}

// The descriptor of this process that is connected to the port; -1 when there is none.
static int connection_to (int port)
{
    sockaddr_in peer;
    for (int fd = 0; fd < 256; fd++) {
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
        int line;
        std::string text;
    };
    uint8_t byte = 0;
    for (const case_t &c : {case_t{{5, 32, 1, 1, nullptr, nullptr, 0}, 185, slot_text},
                            case_t{{5, -1, 0, 0, nullptr, nullptr, 0}, 185, slot_text},
                            case_t{{5, 0, 1, 1, nullptr, nullptr, 0}, 186, "!c->txlen || c->txbuf"},
                            case_t{{5, 0, 1, -1, &byte, nullptr, 0}, 187, "!c->rxlen || c->rxbuf"},
                            case_t{{5, 0, -1, 0, &byte, nullptr, 0}, 0, ""}}) {
        bool bad_length = c.line == 0;
        bytes_t sent = words ({2, 2, 3, 77, 4, 2}) + bytes_t{0xa1, 0xa2};
        sent = bad_length ? sent + words ({0, 5, 0, -1}) : sent;
        two_commands_t t;
        t.commands[1] = c.bad;
        fake_server_t server ({});
        q5_scan_client_t client ("127.0.0.1", server.port);
        EXPECT_EQ (message_of ([&] { client.execute (2, t.commands); }),
                   bad_length ? assertion ("kp_literate.cc", 27, "fd >= 0 && buffer && length > 0")
                              : assertion (module, c.line, c.text));
        EXPECT_EQ (close (connection_to (server.port)), 0) << "to be left open";
        EXPECT_EQ (server.received (), sent);

        int before = num_descriptors ();
        fake_server_t unused ({});
        q5_scan_client_t careful ("127.0.0.1", unused.port);
        EXPECT_EQ (message_of ([&] { careful.execute_batch (2, t.commands); }),
                   bad_length
                       ? assertion (module, 206, "c->txlen >= 0 && c->txlen <= Q5_SCAN_MAX_TX")
                       : assertion (module, c.line, c.text));
        EXPECT_TRUE (unused.received ().empty ());
        EXPECT_EQ (num_descriptors (), before);
    }
}

TEST (client, execute_takes_a_negative_count_for_an_empty_batch_and_no_other_without_requests)
{
    fake_server_t server ({});
    q5_scan_client_t client ("127.0.0.1", server.port);
    q5_scan_command_t c = {};
    EXPECT_EQ (client.execute (-5, &c), 1);
    EXPECT_EQ (server.received (), words ({2, -5}));
    for (execute_t execute : both_orders) {
        const std::string expected = assertion (module, 161, "num_commands && commands");
        EXPECT_EQ (message_of ([&] { (client.*execute) (0, &c); }), expected);
        EXPECT_EQ (message_of ([&] { (client.*execute) (1, nullptr); }), expected);
        EXPECT_EQ ((client.*execute) (1, &c), 0) << "nobody listens any more";
    }
}

TEST (client, a_batch_is_checked_against_every_limit)
{
    q5_scan_client_t client ("127.0.0.1", 1);
    static uint8_t bytes[Q5_SCAN_MAX_RX + 1];
    auto check = [&] (std::vector<std::pair<int, int>> lengths) {
        std::vector<q5_scan_command_t> commands;
        for (auto [txlen, rxlen] : lengths) {
            commands.push_back ({51, 0, txlen, rxlen, bytes, bytes, 0});
        }
        std::string message =
            message_of ([&] { client.check_batch (commands.size (), commands.data ()); });
        size_t colon = message.find (':');
        return colon == std::string::npos ? 0 : std::stoi (message.substr (colon + 1));
    };
    using lengths_t = std::vector<std::pair<int, int>>;
    for (auto [lengths, line] :
         {std::pair{lengths_t{{4094, 4096}, {0, 4096}}, 0}, std::pair{lengths_t{{4095, 0}}, 206},
          std::pair{lengths_t{{0, 4097}}, 207}, std::pair{lengths_t{{0, -1}}, 207},
          std::pair{lengths_t{{2047, 0}, {2047, 0}}, 0},
          std::pair{lengths_t{{2048, 0}, {2047, 0}}, 208}, std::pair{lengths_t (100, {40, 0}), 0},
          std::pair{lengths_t (101, {0, 0}), 201}}) {
        EXPECT_EQ (check (lengths), line);
    }
    q5_scan_command_t c = {};
    EXPECT_EQ (message_of ([&] { client.execute_batch (-1, &c); }),
               assertion (module, 201, "num_commands > 0 && num_commands <= MAX_REQUESTS"));
}

TEST (client, claims_and_releases_when_the_daemon_says_more_than_0)
{
    for (auto [operation, command] :
         {std::pair{&q5_scan_client_t::claim, 1}, std::pair{&q5_scan_client_t::release, 2}}) {
        for (auto [reply, granted] :
             {std::pair{words ({1}), 1}, std::pair{words ({0}), 0}, std::pair{words ({-1}), 0},
              std::pair{words ({7}), 1}, std::pair{bytes_t{0, 0, 1}, 0}}) {
            fake_server_t server (reply);
            q5_scan_client_t client ("127.0.0.1", server.port);
            EXPECT_EQ ((client.*operation) (), granted);
            EXPECT_EQ (server.received (), words ({2, 1, 0, command, 0, 0}));
            EXPECT_EQ ((client.*operation) (), 0) << "nobody listens any more";
        }
    }
}

TEST (client, sends_short_messages_of_up_to_27_bytes)
{
    const bytes_t p = {10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23,
                       24, 25, 26, 27, 28, 29, 30, 31, 32, 33, 34, 35, 36, 37};
    for (int size : {27, 1, 0, -1, -2}) {
        fake_server_t server (words ({-1}));
        q5_scan_client_t client ("127.0.0.1", server.port);
        EXPECT_EQ (client.send_short (9, 0xfe, 0x02, p.data (), size), 1) << "whatever the result";
        bytes_t sent = bytes_t{0xfe, 0x02} + bytes_t (p.begin (), p.begin () + std::max (size, 0));
        sent.resize (size + 2);
        EXPECT_EQ (server.received (), words ({2, 1, 9, 147, 0, size + 2}) + sent);
    }
    fake_server_t server ({});
    q5_scan_client_t client ("127.0.0.1", server.port);
    const std::string expected = assertion (module, 234, "this && p && size < 28");
    EXPECT_EQ (message_of ([&] { client.send_short (9, 1, 2, p.data (), 28); }), expected);
    EXPECT_EQ (message_of ([&] { client.send_short (9, 1, 2, nullptr, 0); }), expected);
    EXPECT_EQ (message_of ([] { null_object<q5_scan_client_t> ()->send_short (0, 1, 2, "", 0); }),
               expected);
    EXPECT_TRUE (server.received ().empty ()) << "thrown before connecting";
}
