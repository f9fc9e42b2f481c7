// fake_client [-b] [-c BYTES] [-n TIMES] [-r BYTES] [-p PORT] [-f ADDRESS] [-s] [-w FILE] [-e]
// HEX...: sends these bytes to the daemon on port 1971, or who listens on PORT, and shows the reply
// in words of 32 bits. -b: byte by byte; -c: in two pieces, the first of N bytes; -n: TIMES
// times, shows the first reply and those that differ; -r: breaks the connection off, by a reset,
// after N bytes of the reply; -f: from this address; -s: with small segments and buffers; -w:
// reads only once FILE is there; -e: shows the number of bytes alone, and how the reply ended.
#include "tests/support.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdlib.h>
#include <string.h>

struct options_t {
    bool byte_by_byte = false;
    size_t cut = 0;
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
    size_t step = options.byte_by_byte ? 1 : request.size ();
    for (size_t at = 0, size; at < request.size (); at += size) {
        size = std::min (at < options.cut ? options.cut : step, request.size () - at);
        send (fd, &request[at], size, MSG_NOSIGNAL);
        usleep (options.cut > 0 ? 1000 : 0); // so that the daemon meets the end of the first piece
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
        bool ended = recv (fd, &step, 1, 0) == 0;
        printf ("%zu bytes, %s\n", reply.size (), ended ? "end" : strerror (errno));
    }
    close (fd);
    return reply;
}

static void show (const options_t &options, const bytes_t &reply)
{
    if (!options.shows_end) {
        print_words (reply);
    }
}

int main (int argc, char **argv)
{
    options_t options;
    for (int option; (option = getopt (argc, argv, "bc:n:r:p:f:sw:e")) != -1;) {
        options.byte_by_byte |= option == 'b';
        options.cut = option == 'c' ? atoi (optarg) : options.cut;
        options.times = option == 'n' ? atoi (optarg) : options.times;
        options.break_off = option == 'r' ? atoi (optarg) : options.break_off;
        options.port = option == 'p' ? atoi (optarg) : options.port;
        options.from = option == 'f' ? optarg : options.from;
        options.small |= option == 's';
        options.awaited = option == 'w' ? optarg : options.awaited;
        options.shows_end |= option == 'e';
    }
    bytes_t request;
    for (; argv[optind]; optind++) {
        request = request + bytes_of_hex (argv[optind]);
    }
    const bytes_t reply = talk (options, request);
    show (options, reply);
    while (--options.times > 0) {
        bytes_t next = talk (options, request);
        if (next != reply) {
            show (options, next);
        }
    }
}
