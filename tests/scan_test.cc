// One session of the server at a time, over a socket pair, on the emulated chassis.
#include "scan/q5_scan_server.h"
#include "tests/board.h"

#include <errno.h>
#include <limits.h>
#include <sys/syscall.h>

constexpr int claim = 1;
constexpr int release = 2;
constexpr int echo = 0x93;
constexpr int ask = 0x33;

// How many more writes of this process succeed; -1: all. A read or a write moves a thousand bytes
// at the most.
static int writes_left = -1;
constexpr size_t most_at_once = 1000;

// What the reads asked for, and less than 0, what the writes did.
static std::vector<int> sizes;

extern "C" ssize_t read (int fd, void *bytes, size_t size)
{
    sizes.push_back (size);
    return syscall (SYS_read, fd, bytes, std::min (size, most_at_once));
}

extern "C" ssize_t write (int fd, const void *bytes, size_t size)
{
    sizes.push_back (-size);
    errno = EPIPE;
    writes_left -= writes_left > 0;
    return writes_left == 0 ? -1 : syscall (SYS_write, fd, bytes, std::min (size, most_at_once));
}

// One request after the id and the count.
static bytes_t one (int64_t slot, int64_t command, int64_t rxlen, const bytes_t &tx = {})
{
    return words ({2, 1, slot, command, rxlen, int64_t (tx.size ())}) + tx;
}

static bytes_t header (int64_t slot, int64_t rxlen, int64_t txlen)
{
    return words ({2, 1, slot, ask, rxlen, txlen});
}

class session : public board_test {
  protected:
    q5_scan_server_t server;
    bytes_t reply;
    size_t unread; // bytes of the batch

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
        std::string message = message_of ([&] { server.handle (wire.there); });
        reply = wire.received ();
        bytes_t rest (8192);
        unread = std::max<ssize_t> (recv (wire.there, rest.data (), rest.size (), MSG_DONTWAIT), 0);
        return message;
    }
    size_t num_transfers () const
    {
        return log->commands.size () / 2;
    }
};

TEST_F (session, checks_a_call_in_the_listed_order)
{
    q5_scan_server_t *null = null_object<q5_scan_server_t> ();
    scan_request_t m = {99, 0, 0, 0};
    EXPECT_ASSERTION (null->q5_scan_server_t::handle (5), "q5_scan_server.cc:58 (this && fd)");
    EXPECT_ASSERTION (server.handle (0), "q5_scan_server.cc:58 (this && fd)");
    EXPECT_ASSERTION (null->check_request (&m), "q5_scan_server.cc:39 (this)");
    EXPECT_ASSERTION (null->scan (99, 0, -1, nullptr, -1, nullptr), "q5_scan_server.cc:27 (this)");

    uint8_t b[1];
    const std::string buffers = "q5_scan_server.cc:28 (txbuf && rxbuf)";
    const std::string rxlen = "q5_scan_server.cc:30 (rxlen >= 0 && rxlen <= Q5_SCAN_MAX_RX)";
    const std::string slot = "q5_scan_server.cc:32 (slot >=0 && slot < Q5_SCAN_NUM_SLOTS)";
    EXPECT_ASSERTION (server.scan (32, ask, -1, nullptr, -1, b), buffers);
    EXPECT_ASSERTION (server.scan (32, ask, -1, b, -1, nullptr), buffers);
    EXPECT_ASSERTION (server.scan (32, ask, -1, b, -1, b), "q5_scan_server.cc:29 (txlen >= 0)");
    EXPECT_ASSERTION (server.scan (32, ask, 0, b, -1, b), rxlen);
    EXPECT_ASSERTION (server.scan (32, ask, 0, b, 4097, b), rxlen);
    EXPECT_ASSERTION (server.scan (32, ask, 0, b, 4096, b), slot);
    EXPECT_ASSERTION (server.scan (-1, ask, 0, b, 0, b), slot);
    EXPECT_EQ (server.scan (3, ask, 4095, b, 0, b), -4) << "the transfer's to refuse";
}

// A batch that is cut off, and counts out of range: see sweep_session_test.cc.
TEST_F (session, refuses_a_malformed_batch_with_the_check_that_speaks_first)
{
    struct case_t {
        std::string where;
        std::vector<bytes_t> batches;
        size_t unread = 0;
    };
    const std::string slot = ":46 (m->slot >= 0 && m->slot < Q5_SCAN_NUM_SLOTS)";
    const std::string txlen = ":47 (m->txlen >= 0 && m->txlen <= Q5_SCAN_MAX_TX)";
    const std::string rxlen = ":48 (m->rxlen >= 0 && m->rxlen <= Q5_SCAN_MAX_RX)";
    const std::string sum = ":82 (m->txlen + tx_count <= Q5_SCAN_MAX_TX)";
    const bytes_t claimed = words ({2, 2, 3, claim, 0, 0}), zeros (4094);
    const bytes_t then_bad = words ({2, 2, 3, ask, 0, 9, 32, ask, 0, 0});
    const std::vector<case_t> cases = {
        {slot, {header (32, -1, -1), header (-1, 0, 0), claimed + words ({32, claim, 0, 0})}},
        {slot, {header (INT_MIN, 0, 0), header (INT_MAX, 0, 0)}},
        {txlen, {header (31, -1, -1), header (3, 0, 4095)}},
        {txlen, {header (3, 0, INT_MAX), header (3, 0, INT_MIN)}},
        {rxlen, {header (3, -1, 0), header (3, 4097, 0), header (3, INT_MIN, 0)}},
        {rxlen, {header (3, INT_MAX, 0), claimed + words ({3, claim, 4097, 0})}},
        // The sum counts a claim's bytes too; it is tested before the bytes are read.
        {sum, {words ({2, 2, 3, claim, 0, 2048, 3, ask, 0, 2047}) + bytes_t (2048 + 5)}, 5},
        {sum, {words ({2, 2, 3, ask, 0, 4094, 3, ask, 0, 1}) + zeros}},
        // Each header is checked after the bytes of those before it have been read.
        {":85 (r)", {then_bad + bytes_t (8)}},
        {slot, {then_bad + bytes_t (9)}},
    };
    for (const case_t &c : cases) {
        for (const bytes_t &batch : c.batches) {
            EXPECT_EQ (serve (batch), "assertion failed. q5_scan_server.cc" + c.where);
            EXPECT_EQ (unread, c.unread) << c.where;
            EXPECT_EQ (reply, bytes_t ()) << c.where;
            EXPECT_EQ (server.owner_id, 0) << c.where;
            EXPECT_EQ (num_transfers (), 0u) << c.where;
        }
    }
}

TEST_F (session, answers_each_request_with_a_result_and_no_more_bytes_than_were_wanted)
{
    const bytes_t all = {11, 12, 13, 14}, first = {11}, four = words ({4}), done = words ({1});
    const bytes_t numbers = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
    const bytes_t sevens (2047, 7), nines (2047, 9);
    bytes_t full (4094);
    std::generate (full.begin (), full.end (), [i = 0] () mutable { return i++ / 16; });
    const std::vector<std::pair<bytes_t, bytes_t>> cases = {
        {one (3, ask, 0), four},
        {one (3, ask, 3), four + bytes_t{11, 12, 13}},
        {one (3, ask, 4096), four + all},
        {one (4, ask, 16), words ({-3})},
        {words ({2, 3, 4, ask, 16, 0, 21, ask, 16, 0, 3, ask, 1, 0}), words ({-3, -2, 4}) + first},
        {one (3, ask, 0) + bytes_t (50, 1), four},
        // Each request has its own transmit bytes, a claim too.
        {words ({2, 4, 0, claim, 0, 3, 3, echo, 5, 5, 0, release, 0, 1, 3, echo, 2, 2}) + numbers,
         words ({1, 5}) + bytes_t{4, 5, 6, 7, 8} + words ({1, 2}) + bytes_t{10, 11}},
        // A claim answers one stale byte, of an earlier batch too, when asked for data.
        {words ({2, 1, 3, ask, 4, 0}), four + all},
        {words ({2, 3, 0, claim, 8, 0, 0, release, 1, 0, 0, claim, 0, 0}),
         done + first + done + first + done},
        // Every limit itself.
        {words ({2, 100}) + 100 * words ({31, ask, 4096, 0}), 100 * words ({-2})},
        {words ({2, 2, 3, echo, 4, 2047, 3, echo, 4, 2047}) + sevens + nines,
         words ({2047, 0x07070707, 2047, 0x09090909})},
        {one (3, echo, 4096, full), words ({4094}) + full},
    };
    for (const auto &[batch, expected] : cases) {
        EXPECT_EQ (serve (batch), "");
        EXPECT_EQ (reply, expected);
    }
}

TEST_F (session, one_client_holds_the_bus)
{
    struct step_t {
        int64_t id;
        int64_t command;
        bytes_t reply;
        int owner;
    };
    const bytes_t done = words ({1}), answer = words ({4}), silence = words ({-3}), dropped;
    EXPECT_EQ (server.owner_id, 0);
    const std::vector<step_t> steps = {
        {5, release, done, 0},        {0, claim, done, 0}, // id 0 cannot hold the bus
        {5, claim, done, 5},          {5, claim, done, 5},      {6, claim, dropped, 5},
        {6, release, dropped, 5},     {0, release, dropped, 5}, {6, ask, dropped, 5},
        {5, ask, answer, 5},          {5, release, done, 0},    {-1, claim, done, -1},
        {1, ask, dropped, -1},        {-1, release, done, 0},   {6, ask, answer, 0},
        {6, 0, silence, 0},           {6, 3, silence, 0},       {6, 0x101, silence, 0},
        {6, INT_MIN + 1, silence, 0}, // only 1 and 2 are the daemon's own
    };
    for (const step_t &step : steps) {
        EXPECT_EQ (serve (words ({step.id, 1, 3, step.command, 0, 0})), "");
        EXPECT_EQ (reply, step.reply) << step.id << " " << step.command;
        EXPECT_EQ (server.owner_id, step.owner);
    }
    server.owner_id = 7;
    EXPECT_EQ (serve (words ({8})), "") << "dropped after four bytes, before anything else is read";
}

TEST_F (session, a_client_gone_stops_the_batch_and_what_ran_stays_done)
{
    struct case_t {
        int writes; // the last of them finds that the client is gone
        const char *where;
        size_t transfers;
        int owner;
        size_t received;
    };
    const std::vector<case_t> cases = {
        {1, "q5_scan_server.cc:121 (r == sizeof (p))", 0, 9, 0},
        {2, "q5_scan_server.cc:121 (r == sizeof (p))", 1, 9, 4},
        {3, "q5_scan_server.cc:129 (r == result)", 1, 9, 8},
        {4, "q5_scan_server.cc:121 (r == sizeof (p))", 2, 9, 11},
        {5, "q5_scan_server.cc:121 (r == sizeof (p))", 2, 0, 15},
    };
    for (const case_t &c : cases) {
        log->commands.clear ();
        server.owner_id = 0;
        socket_pair_t wire;
        wire.send (words ({9, 4, 0, claim, 0, 0, 3, echo, 8, 3, 3, ask, 0, 0, 0, release, 0, 0}) +
                   bytes_t{1, 2, 3});
        writes_left = c.writes;
        EXPECT_ASSERTION (server.handle (wire.there), c.where);
        writes_left = -1;
        EXPECT_EQ (server.owner_id, c.owner);
        EXPECT_EQ (num_transfers (), c.transfers);
        EXPECT_EQ (wire.received ().size (), c.received);
    }
}

TEST_F (session, moves_each_part_with_one_call_and_asks_for_all_that_is_left_of_it)
{
    socket_pair_t wire;
    wire.send (words ({2, 3, 3, echo, 4096, 2500, 0, claim, 0, 0, 3, ask, 2, 7}) + bytes_t (2507));
    sizes.clear ();
    server.handle (wire.there);
    EXPECT_EQ (sizes, (std::vector<int>{4, 4, 48, 2500, 1500, 500, 7,          // the batch
                                        -4, -2500, -1500, -500, -4, -4, -2})); // the replies
}

TEST_F (session, a_reply_leaves_as_its_request_ends)
{
    socket_pair_t wire;
    wire.send (words ({2, 2, 3, ask, 4, 0, 3, ask, 0, 0}));
    std::vector<size_t> received;
    log->on_command = [&] (uint32_t) { received.push_back (wire.received ().size ()); };
    server.handle (wire.there);
    EXPECT_EQ (received, (std::vector<size_t>{0, 0, 8, 0}));
    EXPECT_EQ (wire.received ().size (), 4u);
}
