#include "net/exception.h"
#include "net/kp_literate.h"
#include "net/kp_server.h"
#include "tests/support.h"

#include <arpa/inet.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <netinet/in.h>
#include <sys/syscall.h>

constexpr int port = 51971; // the tests have a network of their own

// The most bytes that a read or a write moves; 0 and -1: its result, with EINTR.
static int most_at_once = INT_MAX;

static ssize_t moved (int call, int fd, uintptr_t buffer, size_t size)
{
    errno = EINTR;
    return most_at_once <= 0 ? most_at_once
                             : syscall (call, fd, buffer, std::min<size_t> (size, most_at_once));
}

extern "C" ssize_t read (int fd, void *buffer, size_t size)
{
    return moved (SYS_read, fd, reinterpret_cast<uintptr_t> (buffer), size);
}

extern "C" ssize_t write (int fd, const void *buffer, size_t size)
{
    return moved (SYS_write, fd, reinterpret_cast<uintptr_t> (buffer), size);
}

static int last_listener;

extern "C" int listen (int fd, int backlog) noexcept
{
    last_listener = fd;
    return syscall (SYS_listen, fd, backlog);
}

// The results of accept, in order; after the last one it throws, to leave serve.
struct no_more_t {};
static std::vector<int> arrivals;

extern "C" int accept (int fd, sockaddr *, socklen_t *)
{
    if (arrivals.empty () || fd != last_listener) {
        throw no_more_t ();
    }
    int first = arrivals.front ();
    arrivals.erase (arrivals.begin ());
    return first;
}

TEST (exception, keeps_199_characters_and_prints_them_and_one_newline_or_nothing)
{
    for (size_t length : {0, 1, 199, 200, 5000}) {
        exception_t e ("%s", std::string (length, 'x').c_str ());
        std::string kept (std::min<size_t> (length, 199), 'x');
        EXPECT_EQ (e.message, kept);
        EXPECT_EQ (e.code, 6);
        testing::internal::CaptureStdout ();
        e.print ();
        EXPECT_EQ (testing::internal::GetCapturedStdout (), kept + (length ? "\n" : ""));
    }
}

TEST (kp_literate, checks_in_order)
{
    kp_literate_t io;
    kp_literate_t *null = null_object<kp_literate_t> ();
    char buffer[8] = "";
    const std::string text = " (fd >= 0 && buffer && length > 0)";
    EXPECT_ASSERTION (null->read_fully (-1, nullptr, 0), "kp_literate.cc:11 (this)");
    EXPECT_ASSERTION (null->write_fully (-1, nullptr, 0), "kp_literate.cc:26 (this)");
    const struct {
        int fd;
        char *to;
        int length;
    } wrong[] = {{-1, buffer, 1}, {0, nullptr, 1}, {0, buffer, 0}, {0, buffer, -1}};
    for (const auto &w : wrong) {
        EXPECT_ASSERTION (io.read_fully (w.fd, w.to, w.length), "kp_literate.cc:12" + text);
        EXPECT_ASSERTION (io.write_fully (w.fd, w.to, w.length), "kp_literate.cc:27" + text);
    }
    EXPECT_ASSERTION (io.gets (nullptr, 8, -1), "kp_literate.cc:43 (buffer && size > 0)");
    EXPECT_ASSERTION (io.gets (buffer, 0, -1), "kp_literate.cc:43 (buffer && size > 0)");
    EXPECT_ASSERTION (io.gets (buffer, 1, -1), "kp_literate.cc:44 (fd >= 0)");
}

TEST (kp_literate, moves_all_bytes_or_reports_nothing)
{
    kp_literate_t io;
    socket_pair_t wire;
    char buffer[6] = "-----";
    most_at_once = 3;
    wire.send (std::string ("abcdef"));
    EXPECT_EQ (io.read_fully (wire.there, buffer, 4), 4);
    EXPECT_EQ (std::string (buffer, 5), "abcd-");
    EXPECT_EQ (io.write_fully (wire.there, "vwxyz", 4), 4);
    EXPECT_EQ (wire.received (), (bytes_t{'v', 'w', 'x', 'y'}));
    char *last_page = reinterpret_cast<char *> (-4096); // the length runs past the end of memory
    EXPECT_EQ (io.read_fully (wire.there, last_page, INT_MAX), 0);
    EXPECT_EQ (io.write_fully (wire.there, last_page, INT_MAX), 0);
    shutdown (wire.here, SHUT_WR);
    EXPECT_EQ (io.read_fully (wire.there, buffer, 3), 0);
    EXPECT_EQ (std::string (buffer, 5), "efcd-");
    for (int result : {0, -1}) {
        most_at_once = result;
        EXPECT_EQ (io.read_fully (wire.there, buffer, 1), 0) << "interrupted is an error too";
        EXPECT_EQ (io.write_fully (wire.there, buffer, 1), 0);
    }
    most_at_once = INT_MAX;
}

TEST (kp_literate, gets_reads_lines)
{
    struct case_t {
        const char *input;
        int size;
        std::vector<std::pair<int, const char *>> lines; // results and contents of the buffer
        size_t unread = 0;
    };
    const std::vector<case_t> cases = {
        {"abc\r\ndef\n", 10, {{3, "abc"}, {0, ""}, {3, "def"}, {-1, ""}}},
        {"abcdefg\n", 4, {{3, "abc"}, {3, "def"}, {1, "g"}}},
        {"abc\n", 4, {{3, "abc"}, {0, ""}}},
        {"abc", 10, {{-1, "abc"}, {-1, ""}}},
        {"abc\n", 1, {{-1, ""}, {-1, ""}}, 4},
    };
    for (const case_t &c : cases) {
        kp_literate_t io;
        socket_pair_t wire;
        wire.send (std::string (c.input));
        shutdown (wire.here, SHUT_WR);
        for (auto [result, text] : c.lines) {
            char buffer[16] = "xxxxxxxxxxxxxxx";
            EXPECT_EQ (io.gets (buffer, c.size, wire.there), result) << c.input;
            EXPECT_STREQ (buffer, text);
        }
        std::swap (wire.here, wire.there);
        EXPECT_EQ (wire.received ().size (), c.unread);
    }
}

TEST (kp_literate, puts_lets_exactly_1000_characters_through_with_a_nul_for_the_last)
{
    kp_literate_t io;
    socket_pair_t wire;
    EXPECT_EQ (io.puts (wire.there, "%d-%s", 42, "x"), 4);
    EXPECT_EQ (wire.received (), (bytes_t{'4', '2', '-', 'x'}));
    EXPECT_EQ (io.puts (wire.there, "%s", std::string (1000, 'y').c_str ()), 1000);
    EXPECT_EQ (wire.received (), bytes_t (999, 'y') + bytes_t{0});
    EXPECT_ASSERTION (io.puts (wire.there, "%s", std::string (1001, 'y').c_str ()),
                      "kp_literate.cc:58 (size <= MAX_PUTS)");
    EXPECT_ASSERTION (io.puts (wire.there, "%s", ""),
                      "kp_literate.cc:27 (fd >= 0 && buffer && length > 0)");
    EXPECT_TRUE (wire.received ().empty ());
}

// What the call returns while the next descriptor is 0.
template <typename call_t> static auto with_descriptor_0_free (call_t call)
{
    int input = dup (0), error = errno;
    close (0);
    errno = error;
    auto result = call ();
    dup2 (input, 0);
    close (input);
    return result;
}

// Does what the first byte of a connection asks for.
class obedient_server_t : public kp_server_t {
  public:
    int32_t handle (int32_t fd) override
    {
        char order = '-';
        read_fully (fd, &order, 1);
        if (order == 'e') {
            throw exception_t ("told to fail");
        }
        if (order == 'q') {
            throw std::string ("of another kind");
        }
        puts (fd, "%c", order);
        return -1;
    }
};

// Each errno of each step: tests/programs/transcripts/failing_calls_native.txt.
TEST (kp_server, names_the_check_or_the_step_that_failed)
{
    obedient_server_t server;
    obedient_server_t *null = null_object<obedient_server_t> ();
    int before = num_descriptors ();
    EXPECT_ASSERTION (server.serve (0, 7), "kp_server.cc:20 (this && port > 0)");
    EXPECT_ASSERTION (server.serve (-1971, 7), "kp_server.cc:20 (this && port > 0)");
    EXPECT_ASSERTION (null->serve (1, 7), "kp_server.cc:20 (this && port > 0)");
    EXPECT_EQ (num_descriptors (), before) << "no socket is made for a bad port";
    auto failure = [&] { return message_of ([&] { server.serve (port, 5); }); };
    EXPECT_THROW (server.serve (port, 7), no_more_t);
    EXPECT_EQ (failure (), "error kp_server.cc:33 (Address already in use)");
    close (last_listener);
    errno = ENOENT;
    EXPECT_EQ (with_descriptor_0_free (failure),
               "error kp_server.cc:27 (No such file or directory)");
}

TEST (kp_server, listens_on_every_address_while_connections_linger)
{
    obedient_server_t server;
    EXPECT_THROW (server.serve (port + (1 << 16), 7), no_more_t);
    sockaddr_in address = {};
    socklen_t size = sizeof (address);
    getsockname (last_listener, reinterpret_cast<sockaddr *> (&address), &size);
    EXPECT_EQ (ntohs (address.sin_port), port) << "only the low 16 bits count";
    EXPECT_EQ (address.sin_addr.s_addr, htonl (INADDR_ANY));
    int reuse = 0;
    size = sizeof (reuse);
    getsockopt (last_listener, SOL_SOCKET, SO_REUSEADDR, &reuse, &size);
    EXPECT_EQ (reuse, 1);
    close (last_listener);
}

TEST (kp_server, serves_one_after_another_and_survives_what_a_session_throws)
{
    obedient_server_t server;
    socket_pair_t clients[5];
    const char *orders[] = {"a", "e", "", "b", "q"}, *replies[] = {"a", "", "-", "b", ""};
    arrivals = {-1, 0}; // neither is a connection to serve
    for (int i = 0; i < 5; i++) {
        clients[i].send (std::string (orders[i]));
        shutdown (clients[i].here, SHUT_WR);
        arrivals.push_back (clients[i].there);
    }
    testing::internal::CaptureStdout ();
    EXPECT_THROW (server.serve (port, 7), std::string);
    EXPECT_EQ (testing::internal::GetCapturedStdout (), "told to fail\n");
    EXPECT_NE (fcntl (0, F_GETFD), -1) << "what is skipped is not closed";
    for (int i = 0; i < 5; i++) {
        bytes_t reply = clients[i].received ();
        EXPECT_EQ (std::string (reply.begin (), reply.end ()), replies[i]);
        bool is_open = fcntl (clients[i].there, F_GETFD) != -1;
        EXPECT_EQ (is_open, i == 4) << "an exception of another kind closes nothing";
        clients[i].there = is_open ? clients[i].there : -1;
    }
    close (last_listener);
}

TEST (kp_client, connects_or_says_no_and_leaves_nothing_open)
{
    kp_client_t client ("localhost", 1);
    int before = num_descriptors ();
    EXPECT_EQ (client.connect_to ("127.0.0.1", port), -1);
    EXPECT_EQ (errno, ECONNREFUSED);
    EXPECT_ASSERTION (client.connect_to (nullptr, port), "kp_server.cc:76 (host && port)");
    EXPECT_ASSERTION (client.connect_to ("127.0.0.1", 0), "kp_server.cc:76 (host && port)");
    EXPECT_EQ (num_descriptors (), before);

    obedient_server_t server;
    EXPECT_THROW (server.serve (port, 7), no_more_t);
    EXPECT_EQ (client.connect_to ("256.256.256.256", port), -1) << "no host";
    EXPECT_EQ (client.connect_to ("255.255.255.255", port), -1) << "no host either";
    auto connected = [&] { return client.connect_to ("127.0.0.1", port); };
    EXPECT_EQ (with_descriptor_0_free (connected), 0) << "a descriptor like any other";
    int fd = client.connect_to ("localhost", port - (1 << 16));
    EXPECT_GT (fd, 0) << "a negative port passes";
    close (fd);
    close (last_listener);
}

TEST (kp_client, keeps_300_characters_of_the_host)
{
    kp_client_t named ("abc", -5);
    EXPECT_STREQ (named.host, "abc");
    EXPECT_EQ (std::count (named.host, named.host + 300, '\0'), 297);
    EXPECT_EQ (named.port, -5);
    kp_client_t full (std::string (300, 'h').c_str (), 1);
    EXPECT_EQ (std::count (full.host, full.host + 300, 'h'), 300) << "without a terminator";
    EXPECT_EQ (full.port, 1);
}
