// One session of the server at a time, over a socket pair, on the emulated chassis.
#include "scan/q5_scan_server.h"
#include "tests/board.h"

#include <errno.h>
#include <limits.h>
#include <random>
#include <sys/syscall.h>

constexpr int claim = 1;
constexpr int release = 2;
constexpr int echo = 0x93;
constexpr int ask = 0x33;
const std::string module = "q5_scan_server.cc";

// How many more writes of this process succeed; -1: all.
static int writes_left = -1;

extern "C" ssize_t write (int fd, const void *bytes, size_t size)
{
    if (writes_left == 0) {
        errno = EPIPE;
        return -1;
    }
    writes_left -= writes_left > 0;
    return syscall (SYS_write, fd, bytes, size);
}

class session : public board_test {
  protected:
    q5_scan_server_t the_server;
    q5_scan_server_t *server = &the_server;
    bytes_t reply;

    void SetUp () override
    {
        settings.card (3).answers (ask, {11, 12, 13, 14}).echoes (echo);
        settings.card (4).fails (fault_t::silent);
        power_up ();
        scan_port_init ();
    }
    // Serves one connection that sends `batch` and closes early; returns the message of the
    // failure.
    std::string serve (const bytes_t &batch)
    {
        socket_pair_t wire;
        wire.send (batch);
        shutdown (wire.here, SHUT_WR);
        std::string message = message_of ([&] { server->handle (wire.there); });
        reply = wire.received ();
        return message;
    }
    size_t num_transfers () const
    {
        return log->commands.size () / 2;
    }
};

// One request after the id and the count.
static bytes_t one (int64_t id, int64_t slot, int64_t command, int64_t rxlen,
                    const bytes_t &tx = {})
{
    return words ({id, 1, slot, command, rxlen, int64_t (tx.size ())}) + tx;
}

TEST_F (session, starts_with_nobody_holding_the_bus)
{
    EXPECT_EQ (server->owner_id, 0);
    EXPECT_EQ (message_of ([&] { server->handle (0); }), assertion (module, 58, "this && fd"));
}

static void handle_with_null ()
{
    null_object<q5_scan_server_t> ()->q5_scan_server_t::handle (5);
}

static void check_with_null ()
{
    scan_request_t m = {99, 0, 0, 0};
    null_object<q5_scan_server_t> ()->check_request (&m);
}

static void scan_with_null ()
{
    null_object<q5_scan_server_t> ()->scan (99, 0, -1, nullptr, -1, nullptr);
}

TEST_F (session, checks_of_scan_and_check_request_speak_in_their_order)
{
    EXPECT_EQ (message_of (handle_with_null), assertion (module, 58, "this && fd"));
    EXPECT_EQ (message_of (check_with_null), assertion (module, 39, "this"));
    EXPECT_EQ (message_of (scan_with_null), assertion (module, 27, "this"));

    uint8_t b[1];
    const std::string buffers = assertion (module, 28, "txbuf && rxbuf");
    const std::string txlen = assertion (module, 29, "txlen >= 0");
    const std::string rxlen = assertion (module, 30, "rxlen >= 0 && rxlen <= Q5_SCAN_MAX_RX");
    const std::string slot = assertion (module, 32, "slot >=0 && slot < Q5_SCAN_NUM_SLOTS");
    auto scan = [&] (int s, int t, uint8_t *tb, int r, uint8_t *rb) {
        return message_of ([&] { server->scan (s, ask, t, tb, r, rb); });
    };
    EXPECT_EQ (scan (32, -1, nullptr, -1, b), buffers);
    EXPECT_EQ (scan (32, -1, b, -1, nullptr), buffers);
    EXPECT_EQ (scan (32, -1, b, -1, b), txlen);
    EXPECT_EQ (scan (32, 0, b, -1, b), rxlen);
    EXPECT_EQ (scan (32, 0, b, 4097, b), rxlen);
    EXPECT_EQ (scan (32, 0, b, 4096, b), slot);
    EXPECT_EQ (scan (-1, 0, b, 0, b), slot);
    EXPECT_EQ (server->scan (3, ask, 4095, b, 0, b), -4)
        << "a long txlen is the transfer's to refuse";
}

TEST_F (session, refuses_a_malformed_batch_with_the_check_that_speaks_first)
{
    const std::string full_read =
        assertion ("kp_literate.cc", 12, "fd >= 0 && buffer && length > 0");
    const std::string count = assertion (module, 72, "num_requests <= MAX_REQUESTS");
    const std::string slot = assertion (module, 46, "m->slot >= 0 && m->slot < Q5_SCAN_NUM_SLOTS");
    const std::string txlen = assertion (module, 47, "m->txlen >= 0 && m->txlen <= Q5_SCAN_MAX_TX");
    const std::string rxlen = assertion (module, 48, "m->rxlen >= 0 && m->rxlen <= Q5_SCAN_MAX_RX");
    const std::string sum = assertion (module, 82, "m->txlen + tx_count <= Q5_SCAN_MAX_TX");
    const std::string short_headers = assertion (module, 75, "r");
    const std::string short_transmit = assertion (module, 85, "r");
    auto header = [] (int64_t slot, int64_t rxlen, int64_t txlen) {
        return words ({2, 1, slot, ask, rxlen, txlen});
    };
    struct case_t {
        bytes_t batch;
        std::string message;
    };
    const bytes_t claimed = words ({2, 2, 3, claim, 0, 0});
    for (const case_t &c : {
             case_t{{}, assertion (module, 61, "r == sizeof (id)")},
             {{0, 0, 2}, assertion (module, 61, "r == sizeof (id)")},
             {words ({2}), assertion (module, 68, "r == sizeof (num_requests)")},
             {words ({2}) + bytes_t{0, 0, 0}, assertion (module, 68, "r == sizeof (num_requests)")},
             {words ({2, 0}), full_read},
             {words ({2, -1}), full_read},
             {words ({2, INT_MIN}), full_read},
             {words ({2, -0x7FFFFFF0}), full_read}, // times 16: 256 in 32 bits
             {words ({2, -0x6FFFFFFF}), full_read}, // times 16: 16 in 32 bits
             {words ({2, 101}), count},
             {words ({2, 0x10000001}), count},
             {words ({2, INT_MAX}), count},
             {words ({2, 1}), short_headers},
             {words ({2, 1, 3, ask, 0}), short_headers},
             {words ({2, 100, 3, ask, 0, 0}), short_headers},
             {header (32, -1, -1), slot},
             {header (-1, 0, 0), slot},
             {header (INT_MIN, 0, 0), slot},
             {header (INT_MAX, 0, 0), slot},
             {header (31, -1, -1), txlen},
             {header (3, 0, 4095), txlen},
             {header (3, 0, INT_MAX), txlen},
             {header (3, 0, INT_MIN), txlen},
             {header (3, -1, 0), rxlen},
             {header (3, 4097, 0), rxlen},
             {header (3, INT_MIN, 0), rxlen},
             {header (3, 4096, 1), short_transmit},
             {header (3, 0, 4094) + bytes_t (4093), short_transmit},
             {claimed + words ({32, claim, 0, 0}), slot},
             {claimed + words ({3, claim, 4097, 0}), rxlen},
             // The sum counts a claim's bytes too; it is tested before the bytes are read.
             {words ({2, 2, 3, claim, 0, 2048, 3, ask, 0, 2047}) + bytes_t (2048), sum},
             {words ({2, 2, 3, ask, 0, 4094, 3, ask, 0, 1}) + bytes_t (4094), sum},
             // Each header is checked after the bytes of those before it have been read.
             {words ({2, 2, 3, ask, 0, 9, 32, ask, 0, 0}) + bytes_t (8), short_transmit},
             {words ({2, 2, 3, ask, 0, 9, 32, ask, 0, 0}) + bytes_t (9), slot},
         }) {
        EXPECT_EQ (serve (c.batch), c.message);
        EXPECT_TRUE (reply.empty ()) << c.message;
        EXPECT_EQ (server->owner_id, 0) << c.message;
        EXPECT_EQ (num_transfers (), 0u) << c.message;
    }
}

TEST_F (session, takes_no_more_than_eight_bytes_to_refuse_a_count)
{
    for (int64_t count : {101, 0, -1, -0x7FFFFFF0}) {
        socket_pair_t wire;
        wire.send (words ({2, count, 7}));
        EXPECT_NE (message_of ([&] { server->handle (wire.there); }), "");
        char left[16];
        EXPECT_EQ (recv (wire.there, left, sizeof (left), MSG_DONTWAIT), 4);
    }
}

TEST_F (session, accepts_every_limit_itself)
{
    bytes_t largest = words ({2, 100});
    for (int i = 0; i < 100; i++) {
        largest = largest + words ({31, ask, 4096, 0});
    }
    EXPECT_EQ (serve (largest), "");
    bytes_t expected;
    for (int i = 0; i < 100; i++) {
        expected = expected + words ({-2});
    }
    EXPECT_EQ (reply, expected);

    EXPECT_EQ (serve (words ({2, 2, 3, echo, 4, 2047, 3, echo, 4, 2047}) + bytes_t (2047, 7) +
                      bytes_t (2047, 9)),
               "");
    EXPECT_EQ (reply, words ({2047, 0x07070707, 2047, 0x09090909}));
    bytes_t full (4094, 0x5C);
    EXPECT_EQ (serve (one (2, 3, echo, 4096, full)), "");
    EXPECT_EQ (bytes_t (reply.begin (), reply.end () - 0), words ({4094}) + full);
}

TEST_F (session, answers_a_result_and_no_more_bytes_than_were_wanted)
{
    EXPECT_EQ (serve (one (2, 3, ask, 0)), "");
    EXPECT_EQ (reply, words ({4}));
    EXPECT_EQ (serve (one (2, 3, ask, 3)), "");
    EXPECT_EQ (reply, words ({4}) + bytes_t ({11, 12, 13}));
    EXPECT_EQ (serve (one (2, 3, ask, 4096)), "");
    EXPECT_EQ (reply, words ({4}) + bytes_t ({11, 12, 13, 14}));
    EXPECT_EQ (serve (one (2, 4, ask, 16)), "");
    EXPECT_EQ (reply, words ({-3}));
    EXPECT_EQ (serve (words ({2, 3, 4, ask, 16, 0, 21, ask, 16, 0, 3, ask, 1, 0})), "");
    EXPECT_EQ (reply, words ({-3, -2, 4}) + bytes_t ({11}))
        << "a failed request does not end a batch";
    EXPECT_EQ (serve (one (2, 3, ask, 0) + bytes_t (50, 1)), "") << "bytes after a batch";
    EXPECT_EQ (reply, words ({4}));
}

TEST_F (session, gives_each_request_its_own_transmit_bytes)
{
    EXPECT_EQ (
        serve (words ({2, 4, 0, claim, 0, 3, 3, echo, 5, 5, 0, release, 0, 1, 3, echo, 2, 2}) +
               bytes_t{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}),
        "");
    EXPECT_EQ (reply,
               words ({1, 5}) + bytes_t ({4, 5, 6, 7, 8}) + words ({1, 2}) + bytes_t ({10, 11}));
}

TEST_F (session, one_client_holds_the_bus)
{
    struct step_t {
        int64_t id;
        int64_t command;
        bytes_t reply;
        int owner;
    };
    const bytes_t done = words ({1});
    const bytes_t dropped;
    for (const step_t &step : {step_t{5, release, done, 0},
                               {0, claim, done, 0}, // id 0 cannot hold the bus
                               {5, claim, done, 5},
                               {5, claim, done, 5},
                               {6, claim, dropped, 5},
                               {6, release, dropped, 5},
                               {0, release, dropped, 5},
                               {6, ask, dropped, 5},
                               {5, ask, words ({4}), 5},
                               {5, release, done, 0},
                               {-1, claim, done, -1},
                               {1, ask, dropped, -1},
                               {-1, release, done, 0},
                               {6, ask, words ({4}), 0}}) {
        EXPECT_EQ (serve (one (step.id, 3, step.command, 0)), "");
        EXPECT_EQ (reply, step.reply) << step.id << " " << step.command;
        EXPECT_EQ (server->owner_id, step.owner);
    }
    server->owner_id = 7;
    EXPECT_EQ (serve (words ({8})), "") << "dropped after four bytes, before anything else is read";
}

TEST_F (session, a_claim_answers_one_stale_byte_when_asked_for_data)
{
    EXPECT_EQ (
        serve (words ({2, 4, 3, ask, 4, 0, 0, claim, 8, 0, 0, release, 1, 0, 0, claim, 0, 0})), "");
    EXPECT_EQ (reply, words ({4}) + bytes_t ({11, 12, 13, 14}) + words ({1}) + bytes_t ({11}) +
                          words ({1}) + bytes_t ({11}) + words ({1}));
}

TEST_F (session, a_client_gone_stops_the_batch_and_what_ran_stays_done)
{
    struct case_t {
        int writes; // that succeed before the client is gone
        int line;
        const char *text;
        size_t transfers;
        int owner;
        size_t received;
    };
    const bytes_t batch =
        words ({9, 4, 0, claim, 0, 0, 3, echo, 8, 3, 3, ask, 0, 0, 0, release, 0, 0});
    for (const case_t &c : {case_t{0, 121, "r == sizeof (p)", 0, 9, 0},
                            {1, 121, "r == sizeof (p)", 1, 9, 4},
                            {2, 129, "r == result", 1, 9, 8},
                            {3, 121, "r == sizeof (p)", 2, 9, 11},
                            {4, 121, "r == sizeof (p)", 2, 0, 15}}) {
        log->commands.clear ();
        server->owner_id = 0;
        socket_pair_t wire;
        wire.send (batch + bytes_t ({1, 2, 3}));
        writes_left = c.writes;
        std::string message = message_of ([&] { server->handle (wire.there); });
        writes_left = -1;
        EXPECT_EQ (message, assertion (module, c.line, c.text));
        EXPECT_EQ (server->owner_id, c.owner);
        EXPECT_EQ (num_transfers (), c.transfers);
        EXPECT_EQ (wire.received ().size (), c.received);
    }
}

TEST_F (session, a_reply_leaves_as_its_request_ends)
{
    socket_pair_t wire;
    wire.send (words ({2, 2, 3, ask, 4, 0, 3, ask, 0, 0}));
    std::vector<size_t> waiting;
    log->on_command = [&] (uint32_t) {
        char reply[64];
        waiting.push_back (std::max<ssize_t> (
            recv (wire.here, reply, sizeof (reply), MSG_PEEK | MSG_DONTWAIT), 0));
    };
    server->handle (wire.there);
    EXPECT_EQ (waiting, (std::vector<size_t>{0, 0, 8, 8}));
    EXPECT_EQ (wire.received ().size (), 12u);
}

TEST_F (session, survives_whatever_bytes_arrive)
{
    std::mt19937 random (1971);
    const std::vector<int64_t> odd = {0,    1,       2,       3,          31,         32,
                                      4094, 4095,    4096,    4097,       100,        101,
                                      -1,   INT_MIN, INT_MAX, 0x10000000, 0x7FFFF002, -4094};
    auto below = [&] (unsigned n) { return static_cast<int64_t> (random () % n); };
    auto pick = [&] { return odd[below (odd.size ())]; };
    for (int i = 0; i < 3000; i++) {
        bytes_t batch = words ({below (3), below (4) ? 1 + below (3) : pick ()});
        for (int64_t k = below (5); k > 0; k--) {
            batch = batch + words ({pick () & 31, pick (), pick (), below (2) ? 0 : pick ()});
        }
        batch.resize (batch.size () + below (64), 0x55);
        serve (batch);
    }
    server->owner_id = 0;
    EXPECT_EQ (serve (one (2, 3, ask, 4)), "");
    EXPECT_EQ (reply, words ({4}) + bytes_t ({11, 12, 13, 14}));
}
