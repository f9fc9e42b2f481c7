// Batches as values, and fetches, whatever the other end and the system do.
#include "client/batch.h"
#include "client/fetch.h"
#include "client/result.h"
#include "tests/cases.h"
#include "tests/fake_server.h"

#include <chrono>
#include <dlfcn.h>
#include <netdb.h>
#include <poll.h>
#include <regex>
#include <signal.h>
#include <stdarg.h>
#include <string_view>
#include <sys/syscall.h>
#include <sys/wait.h>

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using state_t = q5_scan_state_t;

// System calls of a thread: which one fails with what, and the last socket.
struct calls_t {
    std::string_view failing;
    int error = 0;
    int fd = -1, opened = 0, closed = 0, sent = 0;
    size_t most = SIZE_MAX; // bytes that a send takes
};
static thread_local calls_t calls;

// Replaces a call of the C library.
#define STAND_IN(type, name, number, parameters, ...)                                              \
    type name parameters                                                                           \
    {                                                                                              \
        errno = calls.error;                                                                       \
        calls.sent += std::string_view (#name) == "send";                                          \
        return calls.failing == #name ? -1 : syscall (number, __VA_ARGS__);                        \
    }
extern "C" {
STAND_IN (int, connect, SYS_connect, (int fd, const sockaddr *to, socklen_t size), fd, to, size)
STAND_IN (int, poll, SYS_poll, (pollfd * fds, nfds_t size, int time), fds, size, time)
STAND_IN (ssize_t, send, SYS_sendto, (int fd, const void *p, size_t size, int flags), fd, p,
          std::min (size, calls.most), flags, nullptr, 0)
STAND_IN (ssize_t, recv, SYS_recvfrom, (int fd, void *p, size_t size, int flags), fd, p, size,
          flags, nullptr, nullptr)
int socket (int domain, int type, int protocol) noexcept
{
    errno = calls.error;
    calls.fd = calls.failing == "socket" ? -1 : syscall (SYS_socket, domain, type, protocol);
    calls.opened += calls.fd >= 0 && (type & SOCK_CLOEXEC);
    return calls.fd;
}
// What the other host has not acknowledged.
int ioctl (int fd, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start (arguments, request);
    int *bytes = va_arg (arguments, int *);
    va_end (arguments);
    if (calls.failing == "the other host") {
        *bytes = 1;
        return 0;
    }
    return syscall (SYS_ioctl, fd, request, bytes);
}
int close (int fd)
{
    calls.closed += fd == calls.fd;
    long result = syscall (SYS_close, fd);
    errno = calls.error;
    return calls.failing == "close" ? -1 : result;
}
// Knows a host that does not answer, one with many addresses, and some that it fails at.
int gethostbyname_r (const char *name, hostent *entry, char *buffer, size_t size, hostent **found,
                     int *error)
{
    std::string_view host = name;
    if (host == "many.invalid" && size < 5000) {
        return ERANGE;
    }
    if (host == "broken.invalid" || host == "lost.invalid" || host == "127.2") {
        *found = nullptr;
        *error = host == "lost.invalid" ? 0 : host == "127.2" ? HOST_NOT_FOUND : NETDB_INTERNAL;
        return host == "broken.invalid" ? EMFILE : 0;
    }
    usleep (host == "slow.invalid" ? 400000 : 0);
    auto next = reinterpret_cast<decltype (&gethostbyname_r)> (dlsym (RTLD_NEXT, __func__));
    return next (host == "many.invalid" ? "127.0.0.1" : name, entry, buffer, size, found, error);
}
}

static q5_scan_settings_t settings_for (int port, std::chrono::milliseconds timeout = 0ms)
{
    q5_scan_settings_t settings;
    settings.port = port;
    settings.connect_timeout = settings.reply_timeout = timeout;
    return settings;
}

// Long before the nine seconds that some wait, while a system call fails.
template <typename work_t>
static void expect_in_time (work_t work, std::string_view failing = "", int error = 0)
{
    auto start = std::chrono::steady_clock::now ();
    calls = {failing, error};
    work ();
    calls.failing = "";
    EXPECT_LT (std::chrono::steady_clock::now () - start, 5s);
    EXPECT_EQ (calls.opened, calls.closed) << "none is left open, none closed twice";
}

static const char *const names[] = {
    "answered",          "unknown host",      "no connection",
    "dropped",           "broken off",        "timed out connecting",
    "timed out sending", "timed out waiting", "cancelled"};

static std::string text_of (const q5_scan_outcome_t &outcome)
{
    return std::regex_replace (outcome.text, std::regex ("port \\d+"), "port N");
}

static const std::vector<q5_scan_request_t> two_requests = {{3, 77, {0xa1, 0xa2}, 4},
                                                            {31, -78, {0xb1}, 2}};

TEST (batch, ends_in_an_outcome_that_says_what_became_of_it)
{
    expect_cases ("client/outcomes.txt", [] (const std::string &line) {
        std::istringstream words (line);
        std::string hex, then;
        int pace, timeout, total = 0;
        words >> hex >> then >> pace >> timeout >> total;
        fake_server_t server ({{bytes_of_hex (hex.c_str ()),
                                then == "ends"    ? session_t::ends
                                : then == "holds" ? session_t::holds
                                                  : session_t::drops,
                                pace}});
        std::vector<q5_scan_request_t> requests = two_requests;
        requests[1].rx = {'o', 'l', 'd'};
        std::string text;
        expect_in_time ([&] {
            q5_scan_settings_t settings =
                settings_for (server.port, std::chrono::milliseconds (timeout));
            settings.total_timeout = std::chrono::milliseconds (total);
            q5_scan_outcome_t outcome =
                q5_scan_exchange (settings, requests, [&] (q5_scan_request_t &r) {
                    text += std::to_string (r.slot) + " ";
                });
            EXPECT_EQ (outcome.answered (), outcome.text.empty ());
            text += names[static_cast<int> (outcome.state)];
            text += " " + std::to_string (outcome.num_replies) + "/" +
                    std::to_string (outcome.error) + " " + text_of (outcome);
        });
        EXPECT_EQ (calls.sent, 1) << "one write";
        for (const q5_scan_request_t &r : requests) {
            text += " | " + (r.answered ? std::to_string (r.result) : "-") + ":";
            text.append (r.rx.begin (), r.rx.end ());
        }
        return text;
    });
}

TEST (batch, goes_out_whole_in_pieces_too)
{
    fake_server_t server (words ({0, 0}));
    std::vector<q5_scan_request_t> requests = two_requests;
    calls.most = 5;
    EXPECT_TRUE (q5_scan_exchange (settings_for (server.port), requests).answered ());
    calls.most = SIZE_MAX;
    EXPECT_EQ (server.received (),
               words ({2, 2, 3, 77, 4, 2, 31, -78, 2, 1}) + (bytes_t{0xa1, 0xa2, 0xb1}));
}

TEST (batch, outlives_every_error_of_every_system_call)
{
    fake_server_t server (std::vector<session_t> (2000, {words ({4, 0x01020304, -3})}));
    std::string text;
    for (const char *name : {"socket", "connect", "poll", "send", "recv", "close"}) {
        std::string before;
        text += (text.empty () ? "" : "\n") + std::string (name);
        for (int error = 1; error < 134; error++) {
            std::vector<q5_scan_request_t> requests = two_requests;
            q5_scan_outcome_t outcome, next;
            auto exchange = [&] (q5_scan_outcome_t &outcome, std::chrono::milliseconds limit) {
                outcome = q5_scan_exchange (settings_for (server.port, limit), requests);
            };
            bool waits =
                error == EINTR || error == EAGAIN || error == EINPROGRESS || error == EALREADY;
            expect_in_time (
                [&] { exchange (outcome, waits && strcmp (name, "poll") != 0 ? 100ms : 4000ms); },
                name, error);
            std::string state = names[static_cast<int> (outcome.state)];
            EXPECT_TRUE (outcome.error == 0 || outcome.error == error || error == EISCONN);
            state += outcome.error != 0 ? " with the error" : "";
            text += state == before ? "" : "; " + std::to_string (error) + " " + state;
            before = state;
            exchange (next, 4000ms);
            EXPECT_TRUE (next.answered ()) << "the next client is served: " << next.text;
        }
    }
    expect_file ("client/errors.txt",
                 "# The outcome of a batch for each errno, from the lowest number.\n" + text +
                     "\n");
}

TEST (batch, says_why_there_is_no_connection)
{
    int port = 0;
    int listener = listen_on_loopback (0, &port);
    std::vector<q5_scan_request_t> requests = two_requests;
    q5_scan_settings_t settings = settings_for (port, 100ms);
    auto text = [&] (std::string_view failing = "") {
        q5_scan_outcome_t outcome;
        expect_in_time ([&] { outcome = q5_scan_exchange (settings, requests); }, failing);
        return names[static_cast<int> (outcome.state)] + (": " + text_of (outcome)) + "\n";
    };
    std::string all = "Nobody accepts. " + text ();
    for (int i = 0; i < 3; i++) {
        text ();
    }
    all += "The queue is full. " + text ();
    close (listener);
    all += "Nobody listens. " + text ();
    fake_server_t silent (std::vector<session_t>{{{}, session_t::holds}});
    settings.port = silent.port;
    all += "The batch is not taken. " + text ("the other host");
    settings.port = port;
    settings.host = "slow.invalid";
    all += "The resolver hangs. " + text ();
    pid_t child = fork (); // which keeps what the look-up has open
    if (child == 0) {
        sleep (6), _exit (0);
    }
    settings.connect_timeout = 0ms;
    all += "There is no such host. " + text ();
    kill (child, SIGKILL);
    waitpid (child, nullptr, 0);
    settings.connect_timeout = 5000ms; // looks up in a thread
    int before = num_descriptors ();
    for (const char *host : {"broken.invalid", "lost.invalid", "many.invalid", "127.2"}) {
        settings.host = host;
        all += settings.host + ". " + text ();
    }
    EXPECT_EQ (num_descriptors (), before) << "no end of a pipe stays open";
    expect_file ("client/no_connection.txt", all);
}

TEST (batch, is_refused_beyond_a_limit)
{
    expect_cases ("client/limits.txt", [] (const std::string &line) {
        std::istringstream words (line);
        q5_scan_settings_t settings = settings_for (1);
        words >> settings.port >> settings.claims;
        std::vector<q5_scan_request_t> requests;
        for (int count, slot, txlen, rxlen; words >> count >> slot >> txlen >> rxlen;) {
            requests.resize (requests.size () + count, {slot, 51, bytes_t (txlen), rxlen});
        }
        return message_of ([&] { q5_scan_exchange (settings, requests); });
    });
    EXPECT_EQ (message_of ([] { q5_scan_short_request (3, 1, 2, bytes_t (28)); }),
               "the size of the short message is 28, not 0 to 27");
}

TEST (batch, costs_one_thread_a_name_while_its_name_server_is_silent)
{
    q5_scan_settings_t settings = settings_for (1, 20ms);
    settings.host = "slow.invalid";
    const auto before = std::distance (fs::directory_iterator ("/proc/self/task"), {});
    for (int i = 0; i < 10; i++) {
        std::vector<q5_scan_request_t> requests = two_requests;
        EXPECT_EQ (q5_scan_exchange (settings, requests).state, state_t::timed_out_connecting);
    }
    EXPECT_LE (std::distance (fs::directory_iterator ("/proc/self/task"), {}), before + 1);
}

TEST (batch, waits_while_it_is_dropped_until_it_is_cancelled)
{
    session_t drop = {{}, session_t::drops}, silent = {{}, session_t::holds};
    auto state = [&] (const std::vector<session_t> &sessions, std::chrono::milliseconds wait,
                      int cancel_fd, const bytes_t &sent, std::chrono::milliseconds total = 0ms) {
        fake_server_t server (sessions);
        q5_scan_settings_t settings = settings_for (server.port);
        settings.wait = wait;
        settings.total_timeout = total;
        settings.cancel_fd = cancel_fd;
        settings.id = -5;
        std::vector<q5_scan_request_t> requests = {q5_scan_short_request (7, 1, 2, {3})};
        q5_scan_outcome_t outcome;
        expect_in_time ([&] { outcome = q5_scan_exchange (settings, requests); });
        bytes_t received = server.received ();
        received.resize (sent.size ()); // how often it tries is a matter of time
        EXPECT_EQ (received, sent);
        return outcome.state;
    };
    const bytes_t id = words ({-5}), batch = words ({-5, 1, 7, 147, 0, 3}) + bytes_t{1, 2, 3};
    EXPECT_EQ (state ({drop, drop, {words ({0})}}, 9000ms, -1, 2 * id + batch), state_t::answered);
    const std::vector<session_t> drops (50, drop);
    EXPECT_EQ (state (drops, 1000ms, -1, 2 * id), state_t::dropped);
    EXPECT_EQ (state (drops, 9000ms, -1, 2 * id, 350ms), state_t::dropped) << "in all";
    EXPECT_EQ (state ({{{0}}}, 9000ms, -1, batch), state_t::broken_off) << "it may have run";
    for (const std::vector<session_t> &sessions : {{silent}, drops}) {
        int ends[2];
        ASSERT_EQ (pipe (ends), 0);
        std::thread canceller ([&] { usleep (200000), close (ends[1]); });
        EXPECT_EQ (state (sessions, 9000ms, ends[0], id), state_t::cancelled);
        canceller.join ();
        EXPECT_EQ (state ({silent}, 0ms, ends[0], {}), state_t::cancelled);
        EXPECT_EQ (calls.sent, 0) << "cancelled before";
        close (ends[0]);
    }
}

TEST (fetch, asks_the_second_command_of_slots_that_answered_the_first)
{
    const bytes_t one = words ({2}) + bytes_t{1, 2};
    fake_server_t server ({{words ({-3}) + one},
                           {one},
                           {words ({0, -3})},
                           {words ({0})},
                           {words ({-3}) + one},
                           {100 * words ({0})},
                           {28 * words ({0})}});
    q5_scan_selection_t fetch = {{4, 7}};
    std::vector<q5_scan_request_t> replies;
    std::string seen;
    auto fetched = [&] {
        q5_scan_outcome_t outcome =
            q5_scan_fetch (settings_for (server.port), fetch, replies, [&] (auto &reply) {
                seen += std::to_string (reply.slot) + ":" + std::to_string (reply.result) + " ";
            });
        EXPECT_EQ (replies.size () - outcome.num_replies, outcome.answered () ? 0 : 2);
        return outcome.state;
    };
    fetch.only_answering = true;
    EXPECT_EQ (fetched (), state_t::answered);
    EXPECT_EQ (replies[2].rx, (bytes_t{1, 2}));
    EXPECT_EQ (fetched (), state_t::answered);
    fetch.only_answering = false;
    EXPECT_EQ (fetched (), state_t::broken_off);
    EXPECT_EQ (seen, "4:-3 7:2 7:2 4:0 7:-3 4:0 4:-3 7:2 ");
    const bytes_t typed = words ({4, 51, 4096, 0, 7, 51, 4096, 0});
    const bytes_t raw_4 = words ({4, 83, 4096, 0}), raw_7 = words ({7, 83, 4096, 0});
    const bytes_t all = words ({2, 2}) + typed + words ({2, 1}) + raw_7 + words ({2, 2}) + typed +
                        words ({2, 1}) + raw_4 + words ({2, 4}) + typed + raw_4 + raw_7;
    fetch.slots.resize (64);
    EXPECT_EQ (fetched (), state_t::answered) << "in two batches, and none left out";
    EXPECT_EQ (replies.size (), 128u);
    bytes_t received = server.received ();
    received.resize (all.size ());
    EXPECT_EQ (received, all);
}

TEST (fetch, has_one_limit_for_all_its_batches)
{
    session_t slow = {100 * words ({0}), session_t::ends, 1};
    fake_server_t server ({slow, slow});
    q5_scan_settings_t settings = settings_for (server.port, 5000ms);
    settings.total_timeout = 600ms; // one takes 400
    std::vector<q5_scan_request_t> replies;
    q5_scan_selection_t selection = {std::vector<int32_t> (100)};
    EXPECT_EQ (q5_scan_fetch (settings, selection, replies).state, state_t::timed_out_waiting);
}

TEST (result, is_described_in_words)
{
    expect_cases ("client/results.txt", [] (const std::string &line) {
        q5_scan_request_t request = {3, line[0] == 'c' ? Q5_SCAN_CLAIM : Q5_SCAN_RELEASE};
        request.answered = line.find ("unanswered") == line.npos;
        request.result = std::stoi (line.substr (line.rfind (' ') + 1));
        q5_scan_meaning_t m = q5_scan_describe (request);
        return m.state + " | " + m.meaning + " | " + m.look_at;
    });
}
