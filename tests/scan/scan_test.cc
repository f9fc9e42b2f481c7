// One session of the server at a time, over a socket pair, on the emulated chassis.
#include "scan/q5_scan_server.h"
#include "tests/board.h"
#include "tests/cases.h"

#include <limits.h>
#include <sys/syscall.h>

constexpr int claim = 1;
constexpr int echo = 0x93;
constexpr int ask = 0x33;

// A read or a write moves no more.
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
    return syscall (SYS_write, fd, bytes, std::min (size, most_at_once));
}

// "3,51,-1": big-endian words; "b1,2": bytes; with "*N" after them: N times.
static bytes_t bytes_of (const std::string &token)
{
    size_t star = std::min (token.find ('*'), token.size ());
    bool is_bytes = token[0] == 'b';
    std::istringstream values (token.substr (is_bytes, star - is_bytes));
    bytes_t bytes;
    for (std::string text; std::getline (values, text, ',');) {
        int64_t value = std::stoll (text);
        bytes = bytes + (is_bytes ? bytes_t{static_cast<uint8_t> (value)} : words ({value}));
    }
    return (star < token.size () ? std::stoi (token.substr (star + 1)) : 1) * bytes;
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

// One connection a line, all to one server: its bytes, and the result. (A batch that is
// cut off, and counts out of range: see sweep_session_test.cc.)
TEST_F (session, does_with_each_batch_what_the_file_says)
{
    expect_cases ("scan/sessions.txt", [&] (const std::string &line) {
        std::istringstream tokens (line);
        bytes_t batch;
        for (std::string token; tokens >> token;) {
            batch = batch + bytes_of (token);
        }
        log->commands.clear ();
        std::string text = serve (batch);
        text += (text.empty () ? "" : "; ") +
                (reply.empty () ? "dropped" : hex_text (reply.data (), reply.size ()));
        text += "; " + std::to_string (log->commands.size () / 2) + " transfers";
        text += unread > 0 ? "; " + std::to_string (unread) + " bytes unread" : "";
        return text + "; owner " + std::to_string (server.owner_id);
    });
}

TEST_F (session, moves_each_part_with_one_call_and_asks_for_all_that_is_left_of_it)
{
    socket_pair_t wire;
    bytes_t tx (2507);
    std::generate (tx.begin (), tx.end (), [i = 0] () mutable { return i++ / 16; });
    wire.send (words ({2, 3, 3, echo, 4096, 2500, 0, claim, 0, 0, 3, ask, 2, 7}) + tx);
    sizes.clear ();
    server.handle (wire.there);
    EXPECT_EQ (sizes, (std::vector<int>{4, 4, 48, 2500, 1500, 500, 7,          // the batch
                                        -4, -2500, -1500, -500, -4, -4, -2})); // the replies
    tx.resize (2500);
    EXPECT_EQ (wire.received (), words ({2500}) + tx + words ({1, 4}) + (bytes_t{11, 12}));
}
