#include "scan/q5_scan_client.h"
#include "tests/cases.h"
#include "tests/fake_server.h"

#include <dlfcn.h>
#include <netdb.h>

// Programs compare the limits in the preprocessor.
#if Q5_SCAN_NUM_SLOTS != 32 || Q5_SCAN_MAX_TX != 4094 || Q5_SCAN_MAX_RX != 4096 ||                 \
    MAX_REQUESTS != 100 || MAX_PUTS != 1000
#error "a limit has changed, or is not a macro"
#endif

// Closes the descriptor of this process that is connected to the port; whether there was one.
static bool close_connection_to (int port)
{
    sockaddr_in peer = {};
    for (int fd = 0; fd < 64; fd++) {
        socklen_t size = sizeof (peer);
        if (getpeername (fd, reinterpret_cast<sockaddr *> (&peer), &size) == 0 &&
            ntohs (peer.sin_port) == port) {
            return close (fd) == 0;
        }
    }
    return false;
}

static int32_t call (q5_scan_client_t &client, const std::string &operation, int32_t n,
                     q5_scan_command_t *commands)
{
    static const bytes_t bytes = {1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14,
                                  15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28};
    return operation == "execute"   ? client.execute (n, commands)
           : operation == "claim"   ? client.claim ()
           : operation == "release" ? client.release ()
                                    : client.send_short (9, 0xfe, 2, bytes.data (), n);
}

TEST (client, does_what_the_file_says)
{
    expect_cases ("scan/client.txt", [] (const std::string &line) {
        std::istringstream words (line);
        std::string operation, reply, buffer;
        int32_t n = 2;
        uint8_t tx[5] = {0xa1, 0xa2, 0xb1, 0xb2, 0xb3}, rx[8] = {9, 9, 9, 9, 9, 9, 9, 9};
        q5_scan_command_t commands[] = {{77, 3, 2, 4, tx, rx, 99}, {-78, 31, 3, 0, tx + 2, 0, 99}};
        q5_scan_command_t &c = commands[1];
        words >> operation >> reply >> n >> c.slot >> c.txlen >> c.rxlen >> buffer;
        c.txbuf = buffer == "none" ? nullptr : c.txbuf;
        fake_server_t server (bytes_of_hex (reply.c_str ()));
        q5_scan_client_t client ("127.0.0.1", server.port);
        client.client_id = buffer.empty () ? client.client_id : -7;
        std::string returned;
        std::string text =
            message_of ([&] { returned = std::to_string (call (client, operation, n, commands)); });
        text += returned + (close_connection_to (server.port) ? ", left open" : "");
        for (const q5_scan_command_t &c : commands) {
            text += " | " + std::to_string (c.result);
        }
        const bytes_t received = server.received ();
        return text + " | " + hex_text (rx, sizeof (rx)) + " | " +
               hex_text (received.data (), received.size ());
    });
}

TEST (client, says_no_to_what_is_none)
{
    const std::string a = "q5_scan_server.cc:";
    q5_scan_client_t client ("127.0.0.1", 1);
    q5_scan_command_t c = {};
    EXPECT_ASSERTION (client.execute (1, nullptr), a + "161 (num_commands && commands)");
    EXPECT_EQ (client.execute (1, &c), 0) << "nobody listens";
    q5_scan_client_t nowhere ("127.0.0.1", 0);
    EXPECT_ASSERTION (nowhere.execute (1, &c), "kp_server.cc:76 (host && port)");
    const std::string where = a + "234 (this && p && size < 28)";
    EXPECT_ASSERTION (client.send_short (9, 1, 2, nullptr, 0), where);
    EXPECT_ASSERTION (null_object<q5_scan_client_t> ()->send_short (0, 1, 2, "", 0), where);
}

TEST (client, execute_has_no_upper_limits_and_reads_nothing_for_a_negative_length)
{
    bytes_t tx (4095, 7), rx (5000, 9);
    fake_server_t server (words ({0, 5}) + 99 * words ({0}));
    std::vector<q5_scan_command_t> commands (101);
    commands[0] = {51, 3, 4095, 4097, tx.data (), rx.data (), 0};
    commands[1] = {51, 4, 0, -1, nullptr, rx.data (), 0};
    q5_scan_client_t client ("127.0.0.1", server.port);
    EXPECT_EQ (client.execute (101, commands.data ()), 1);
    EXPECT_EQ (server.received (), words ({2, 101, 3, 51, 4097, 4095}) + tx +
                                       words ({4, 51, -1, 0}) + 99 * words ({0, 0, 0, 0}));
    EXPECT_EQ (commands[1].result, 5);
    EXPECT_EQ (rx, bytes_t (5000, 9));
}

// A program may replace the resolver, which is entered by one thread at a time.
static std::atomic<int> num_resolving, num_together;

extern "C" hostent *gethostbyname (const char *name)
{
    num_together += num_resolving++ > 0;
    auto next = reinterpret_cast<decltype (&gethostbyname)> (dlsym (RTLD_NEXT, __func__));
    const std::string_view host = name;
    hostent *found = nullptr;
    if (host == "127.2") {
        h_errno = HOST_NOT_FOUND;
    } else {
        found = next (host == "replaced.invalid" ? "127.0.0.1" : name);
        h_errno = found ? TRY_AGAIN : h_errno; // of a name server, before the hosts file had it
    }
    num_resolving--;
    return found;
}

// Connects to its own address again and again; returns how often it got another one.
static int connect_to_own (int number, int port)
{
    std::string host = "127.0.0." + std::to_string (number);
    q5_scan_client_t client (host.c_str (), port);
    int wrong = 0;
    for (int i = 0; i < 2000; i++) {
        int fd = client.connect_to (client.host, client.port);
        sockaddr_in peer = {};
        socklen_t size = sizeof (peer);
        getpeername (fd, reinterpret_cast<sockaddr *> (&peer), &size);
        wrong += peer.sin_addr.s_addr != inet_addr (host.c_str ()) || h_errno != 0;
        close (fd);
    }
    return wrong;
}

TEST (client, resolves_in_many_threads_at_once)
{
    int port = 0;
    int listener = listen_on_loopback (4000, &port);
    std::vector<std::thread> threads;
    std::atomic<int> wrong = 0;
    for (int number = 2; number < 10; number++) {
        threads.emplace_back ([&wrong, number, port] { wrong += connect_to_own (number, port); });
    }
    for (int i = 0; i < 8 * 2000; i++) {
        close (accept (listener, nullptr, nullptr));
    }
    for (std::thread &thread : threads) {
        thread.join ();
    }
    close (listener);
    EXPECT_EQ (wrong, 0);
    EXPECT_EQ (num_together, 0);
    kp_client_t client ("", 1);
    EXPECT_EQ (client.connect_to ("256.256.256.256", 1), -1);
    EXPECT_NE (h_errno, 0);
    EXPECT_EQ (client.connect_to ("replaced.invalid", 1), -1);
    EXPECT_EQ (std::pair (errno, h_errno), std::pair (ECONNREFUSED, 0));
    EXPECT_EQ (client.connect_to ("127.2", 1), -1);
    EXPECT_EQ (h_errno, 0) << "an address of two numbers";
}
