#include "net/exception.h"
#include "net/kp_literate.h"
#include "net/kp_server.h"
#include "tests/support.h"

#include <arpa/inet.h>
#include <atomic>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <utility>

// What the last call of listen was given, and whether the next one fails.
static int last_backlog;
static bool listen_fails;

extern "C" int listen (int fd, int backlog) noexcept
{
    last_backlog = backlog;
    if (std::exchange (listen_fails, false)) {
        errno = ENOBUFS;
        return -1;
    }
    return syscall (SYS_listen, fd, backlog);
}

TEST (exception, keeps_199_characters_and_cuts_more)
{
    for (size_t length : {0, 1, 199, 200, 5000}) {
        exception_t e ("%s", std::string (length, 'x').c_str ());
        EXPECT_EQ (e.message, std::string (std::min<size_t> (length, 199), 'x'));
        EXPECT_EQ (e.code, 6);
    }
}

TEST (exception, prints_the_message_and_one_newline_or_nothing)
{
    testing::internal::CaptureStdout ();
    exception_t ("%s", "").print ();
    exception_t ("a %d", 7).print ();
    EXPECT_EQ (testing::internal::GetCapturedStdout (), "a 7\n");
}

TEST (kp_literate, checks_speak_in_their_order)
{
    kp_literate_t io;
    kp_literate_t *null = null_object<kp_literate_t> ();
    char buffer[8];
    const std::string text = " (fd >= 0 && buffer && length > 0)";
    EXPECT_ASSERTION (null->read_fully (-1, nullptr, 0), "kp_literate.cc:11 (this)");
    EXPECT_ASSERTION (null->write_fully (-1, nullptr, 0), "kp_literate.cc:26 (this)");
    EXPECT_ASSERTION (io.read_fully (-1, buffer, 1), "kp_literate.cc:12" + text);
    EXPECT_ASSERTION (io.read_fully (0, nullptr, 1), "kp_literate.cc:12" + text);
    EXPECT_ASSERTION (io.read_fully (0, buffer, 0), "kp_literate.cc:12" + text);
    EXPECT_ASSERTION (io.read_fully (0, buffer, -1), "kp_literate.cc:12" + text);
    EXPECT_ASSERTION (io.write_fully (-1, buffer, 1), "kp_literate.cc:27" + text);
    EXPECT_ASSERTION (io.write_fully (0, nullptr, 1), "kp_literate.cc:27" + text);
    EXPECT_ASSERTION (io.write_fully (0, buffer, 0), "kp_literate.cc:27" + text);
    EXPECT_ASSERTION (io.write_fully (0, buffer, -1), "kp_literate.cc:27" + text);
    EXPECT_ASSERTION (io.gets (nullptr, 8, -1), "kp_literate.cc:43 (buffer && size > 0)");
    EXPECT_ASSERTION (io.gets (buffer, 0, -1), "kp_literate.cc:43 (buffer && size > 0)");
    EXPECT_ASSERTION (io.gets (buffer, 1, -1), "kp_literate.cc:44 (fd >= 0)");
}

TEST (kp_literate, reads_all_or_reports_nothing)
{
    kp_literate_t io;
    socket_pair_t wire;
    char buffer[6] = "-----";
    std::thread peer ([&] {
        for (const char *piece : {"a", "bc", "d", "ef"}) {
            std::this_thread::yield ();
            wire.send (piece);
        }
        wire.close_here ();
    });
    EXPECT_EQ (io.read_fully (wire.there, buffer, 4), 4);
    EXPECT_EQ (std::string (buffer, 5), "abcd-");
    EXPECT_EQ (io.read_fully (wire.there, buffer, 3), 0);
    EXPECT_EQ (std::string (buffer, 5), "efcd-");
    peer.join ();
}

static void on_alarm (int) {}

TEST (kp_literate, an_interrupted_read_is_an_error)
{
    struct sigaction action = {};
    action.sa_handler = on_alarm;
    sigaction (SIGUSR1, &action, nullptr);
    kp_literate_t io;
    socket_pair_t wire;
    std::atomic<int> result{-1};
    std::thread reader ([&] {
        char byte;
        result = io.read_fully (wire.there, &byte, 1);
    });
    for (int i = 0; i < 1000 && result < 0; i++) {
        pthread_kill (reader.native_handle (), SIGUSR1);
        usleep (1000);
    }
    EXPECT_EQ (result, 0);
    wire.send ("x");
    reader.join ();
}

TEST (kp_literate, a_write_to_a_vanished_reader_gives_0)
{
    signal (SIGPIPE, on_alarm);
    kp_literate_t io;
    socket_pair_t wire;
    EXPECT_EQ (io.write_fully (wire.there, "abc", 3), 3);
    EXPECT_EQ (wire.received (), (bytes_t{'a', 'b', 'c'}));
    wire.close_here ();
    EXPECT_EQ (io.write_fully (wire.there, "abc", 3), 0);
    EXPECT_EQ (errno, EPIPE);
}

TEST (kp_literate, gets_reads_lines)
{
    struct case_t {
        const char *input;
        int size;
        std::vector<std::pair<int, const char *>> lines; // results and what the buffer holds
    };
    const std::vector<case_t> cases = {
        {"abc\r\ndef\n", 10, {{3, "abc"}, {0, ""}, {3, "def"}, {-1, ""}}},
        {"abcdefg\n", 4, {{3, "abc"}, {3, "def"}, {1, "g"}}},
        {"abc\n", 4, {{3, "abc"}, {0, ""}}},
        {"abc", 10, {{-1, "abc"}, {-1, ""}}},
        {"abc\n", 1, {{-1, ""}, {-1, ""}}},
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
        if (c.size == 1) {
            char byte;
            EXPECT_EQ (read (wire.there, &byte, 1), 1) << "nothing was to be read";
        }
    }
}

TEST (kp_literate, puts_lets_exactly_1000_characters_through_with_a_nul_for_the_last)
{
    kp_literate_t io;
    socket_pair_t wire;
    EXPECT_EQ (io.puts (wire.there, "%d-%s", 42, "x"), 4);
    EXPECT_EQ (wire.received (), (bytes_t{'4', '2', '-', 'x'}));

    EXPECT_EQ (io.puts (wire.there, "%s", std::string (1000, 'y').c_str ()), 1000);
    bytes_t expected (999, 'y');
    expected.push_back (0);
    EXPECT_EQ (wire.received (), expected);

    EXPECT_ASSERTION (io.puts (wire.there, "%s", std::string (1001, 'y').c_str ()),
                      "kp_literate.cc:58 (size <= MAX_PUTS)");
    EXPECT_ASSERTION (io.puts (wire.there, "%s", ""),
                      "kp_literate.cc:27 (fd >= 0 && buffer && length > 0)");
    EXPECT_TRUE (wire.received ().empty ());
}

// Does what the first byte of a connection says; 'q' leaves serve with an exception of its own
// kind.
class obedient_server_t : public kp_server_t {
  public:
    struct quit_t {
        int fd;
    };
    int32_t handle (int32_t fd) override
    {
        char order = 0;
        read_fully (fd, &order, 1);
        if (order == 'e') {
            throw exception_t ("told to fail");
        }
        if (order == 'q') {
            throw quit_t{fd};
        }
        puts (fd, "%c", order ? order : '0');
        return -1;
    }
};

// A socket bound to a port of its own, which is written to `port`.
static int bound_socket (int *port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    socklen_t size = sizeof (address);
    int fd = socket (AF_INET, SOCK_STREAM, 0);
    bind (fd, reinterpret_cast<sockaddr *> (&address), size);
    getsockname (fd, reinterpret_cast<sockaddr *> (&address), &size);
    *port = ntohs (address.sin_port);
    return fd;
}

// A port that was free a moment ago.
static int free_port ()
{
    int port;
    close (bound_socket (&port));
    return port;
}

// Serves until it is told to quit; returns the descriptor that is left open then.
static int serve_until_quit (int port)
{
    obedient_server_t server;
    try {
        server.serve (port, 7);
    } catch (obedient_server_t::quit_t &quit) {
        return quit.fd;
    }
    return -1;
}

static int connect_when_up (int port)
{
    kp_client_t client ("127.0.0.1", port);
    int fd = -1;
    for (int i = 0; i < 2000 && fd < 0; i++) {
        fd = client.connect_to (client.host, client.port);
        usleep (fd < 0 ? 1000 : 0);
    }
    return fd;
}

// Sends one order and returns all that comes back.
static std::string ask (int port, const char *order)
{
    int fd = connect_when_up (port);
    (void)!write (fd, order, strlen (order));
    shutdown (fd, SHUT_WR);
    char answer[8] = "";
    ssize_t size = read (fd, answer, sizeof (answer));
    close (fd);
    return std::string (answer, std::max<ssize_t> (size, 0));
}

TEST (kp_server, refuses_a_bad_port_before_any_socket_is_made)
{
    obedient_server_t server;
    obedient_server_t *null = null_object<obedient_server_t> ();
    int before = num_descriptors ();
    EXPECT_ASSERTION (server.serve (0, 7), "kp_server.cc:20 (this && port > 0)");
    EXPECT_ASSERTION (server.serve (-1971, 7), "kp_server.cc:20 (this && port > 0)");
    EXPECT_ASSERTION (null->serve (1, 7), "kp_server.cc:20 (this && port > 0)");
    EXPECT_EQ (num_descriptors (), before);
}

TEST (kp_server, names_the_step_that_failed)
{
    int port;
    int holder = bound_socket (&port);
    obedient_server_t server;
    EXPECT_EQ (message_of ([&] { server.serve (port, 7); }),
               "error kp_server.cc:33 (Address already in use)");
    close (holder);

    listen_fails = true;
    EXPECT_EQ (message_of ([&] { server.serve (free_port (), 5); }),
               "error kp_server.cc:36 (No buffer space available)");
    EXPECT_EQ (last_backlog, 5);

    rlimit limit;
    getrlimit (RLIMIT_NOFILE, &limit);
    rlimit none = {0, limit.rlim_max};
    setrlimit (RLIMIT_NOFILE, &none);
    std::string without_socket = message_of ([&] { server.serve (port, 7); });
    setrlimit (RLIMIT_NOFILE, &limit);
    EXPECT_EQ (without_socket, "error kp_server.cc:33 (Bad file descriptor)");

    int input = dup (0);
    close (0);
    errno = ENOENT;
    std::string with_socket_0 = message_of ([&] { server.serve (port, 7); });
    dup2 (input, 0);
    close (input);
    EXPECT_EQ (with_socket_0, "error kp_server.cc:27 (No such file or directory)");
}

TEST (kp_server, serves_one_after_another_and_outlives_what_a_session_throws)
{
    int port = free_port ();
    int abandoned = -1;
    int before = num_descriptors ();
    testing::internal::CaptureStdout ();
    // Only the low 16 bits of the port count.
    std::thread service ([&] { abandoned = serve_until_quit (port + (1 << 16)); });
    EXPECT_EQ (ask (port, "a"), "a");
    EXPECT_EQ (ask (port, "e"), "");
    EXPECT_EQ (ask (port, ""), "0");
    for (int i = 0; i < 1000; i++) {
        close (connect_when_up (port));
    }
    EXPECT_EQ (ask (port, "b"), "b");
    int quitter = connect_when_up (port);
    EXPECT_EQ (write (quitter, "q", 1), 1);
    service.join ();
    fflush (stdout);
    EXPECT_EQ (testing::internal::GetCapturedStdout (), "told to fail\n");
    EXPECT_GT (abandoned, 0);
    EXPECT_NE (fcntl (abandoned, F_GETFD), -1) << "an exception of another kind closes nothing";
    EXPECT_EQ (num_descriptors (), before + 3) << "the listener and both ends of the last session";
    close (abandoned);
    close (quitter);
}

// Its first session frees descriptor 0, so that the next connection gets it.
class closing_server_t : public obedient_server_t {
  public:
    bool closed = false;
    int32_t handle (int32_t fd) override
    {
        obedient_server_t::handle (fd);
        return std::exchange (closed, true) ? 0 : close (0);
    }
};

TEST (kp_server, skips_a_connection_that_got_descriptor_0)
{
    int port = free_port ();
    pid_t child = fork ();
    if (child == 0) {
        dup2 (open ("/dev/null", O_RDONLY), 0);
        closing_server_t server;
        message_of ([&] { server.serve (port, 7); });
        _exit (1);
    }
    EXPECT_EQ (ask (port, "a"), "a");
    int skipped = connect_when_up (port);
    EXPECT_EQ (write (skipped, "b", 1), 1);
    EXPECT_EQ (ask (port, "c"), "c") << "the next one is served";
    char byte;
    EXPECT_EQ (recv (skipped, &byte, 1, MSG_DONTWAIT), -1) << "neither served nor closed";
    EXPECT_EQ (errno, EAGAIN);
    close (skipped);
    kill (child, SIGKILL);
    waitpid (child, nullptr, 0);
}

TEST (kp_client, connects_or_says_no_and_leaves_nothing_open)
{
    int port = free_port ();
    kp_client_t client ("localhost", 1);
    int before = num_descriptors ();
    EXPECT_EQ (client.connect_to ("127.0.0.1", port), -1);
    EXPECT_EQ (errno, ECONNREFUSED);
    EXPECT_ASSERTION (client.connect_to (nullptr, port), "kp_server.cc:76 (host && port)");
    EXPECT_ASSERTION (client.connect_to ("127.0.0.1", 0), "kp_server.cc:76 (host && port)");
    EXPECT_EQ (num_descriptors (), before);

    std::thread service ([&] { close (serve_until_quit (port)); });
    close (connect_when_up (port));
    EXPECT_EQ (client.connect_to ("256.256.256.256", port), -1) << "no host";
    EXPECT_EQ (client.connect_to ("255.255.255.255", port), -1) << "no host either";
    int input = dup (0);
    close (0);
    EXPECT_EQ (client.connect_to ("127.0.0.1", port), 0) << "descriptor 0 is one like any other";
    dup2 (input, 0);
    close (input);
    int fd = client.connect_to ("localhost", port - (1 << 16)); // a negative port passes
    EXPECT_EQ (write (fd, "q", 1), 1);
    service.join ();
    close (fd);
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
