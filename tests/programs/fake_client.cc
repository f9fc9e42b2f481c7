// fake_client [-c BYTES] [-n TIMES] [-r BYTES] [-p PORT] [-f ADDRESS] [-s] [-w FILE] [-e] HEX...:
// sends these bytes to the daemon on port 1971, or PORT, and prints the reply in words of 32 bits.
// -c: in pieces of this size; -n: TIMES times, prints the first reply and those that differ; -r:
// resets the connection after this many bytes of the reply; -f: from this address; -s: with small
// segments and buffers; -w: reads only once FILE exists; -e: prints only the number of bytes, and
// how the reply ended.
#include "tests/support.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdlib.h>
#include <string.h>

struct options_t {
    size_t piece = SIZE_MAX;
    bool small = false;
    bool shows_end = false;
    int times = 1;
    ssize_t break_off = -1; // after this many bytes
    int port = 1971;
    const char *from = "127.0.0.1";
    const char *awaited = "/";
};

static sockaddr_in address_of (const char *host, int port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons (port);
    address.sin_addr.s_addr = inet_addr (host);
    return address;
}

static int connected (const options_t &options)
{
    int fd = socket (AF_INET, SOCK_STREAM, 0), on = 1, small = 536;
    timeval limit = {30, 0};
    setsockopt (fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof (on));
    setsockopt (fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof (limit));
    if (options.small) {
        setsockopt (fd, IPPROTO_TCP, TCP_MAXSEG, &small, sizeof (small));
        setsockopt (fd, SOL_SOCKET, SO_RCVBUF, &small, sizeof (small));
    }
    sockaddr_in from = address_of (options.from, 0), to = address_of ("127.0.0.1", options.port);
    if (bind (fd, reinterpret_cast<sockaddr *> (&from), sizeof (from)) != 0 ||
        connect (fd, reinterpret_cast<sockaddr *> (&to), sizeof (to)) != 0) {
        perror ("fake_client");
        exit (1);
    }
    return fd;
}

static bytes_t talk (const options_t &options, const bytes_t &request)
{
    int fd = connected (options);
    for (size_t at = 0, size; at < request.size (); at += size) {
        size = std::min (options.piece, request.size () - at);
        send (fd, &request[at], size, MSG_NOSIGNAL);
        usleep (at + size < request.size () ? 1000 : 0); // so that the daemon meets its end
    }
    while (access (options.awaited, F_OK) != 0) {
        usleep (5000);
    }
    bytes_t reply (options.break_off >= 0 ? options.break_off : 1 << 20);
    if (options.break_off >= 0) {
        linger at_once = {1, 0};
        setsockopt (fd, SOL_SOCKET, SO_LINGER, &at_once, sizeof (at_once));
    } else {
        shutdown (fd, SHUT_WR);
    }
    ssize_t size = reply.empty () ? 0 : recv (fd, reply.data (), reply.size (), MSG_WAITALL);
    reply.resize (std::max<ssize_t> (size, 0));
    if (options.shows_end) {
        char more;
        bool ended = recv (fd, &more, 1, 0) == 0;
        printf ("%zu bytes, %s\n", reply.size (), ended ? "end" : strerror (errno));
    }
    close (fd);
    return reply;
}

int main (int argc, char **argv)
{
    options_t options;
    for (int option; (option = getopt (argc, argv, "c:n:r:p:f:sw:e")) != -1;) {
        options.piece = option == 'c' ? atoi (optarg) : options.piece;
        options.times = option == 'n' ? atoi (optarg) : options.times;
        options.break_off = option == 'r' ? atoi (optarg) : options.break_off;
        options.port = option == 'p' ? atoi (optarg) : options.port;
        options.from = option == 'f' ? optarg : options.from;
        options.small |= option == 's';
        options.awaited = option == 'w' ? optarg : options.awaited;
        options.shows_end |= option == 'e';
    }
    bytes_t request, first;
    for (; argv[optind]; optind++) {
        request = request + bytes_of_hex (argv[optind]);
    }
    for (int i = 0; i < options.times; i++) {
        bytes_t reply = talk (options, request);
        if (!options.shows_end && (i == 0 || reply != first)) {
            print_words (reply);
        }
        first = i == 0 ? reply : first;
    }
}
