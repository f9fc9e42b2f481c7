// fake_client [-b] [-n TIMES] [-r BYTES] HEX...: sends these bytes to the daemon on port 1971 and
// shows the reply in words of 32 bits. -b: byte by byte; -n: TIMES times, shows
// the first reply and those that differ; -r:
// breaks the connection off, by a reset, after so many bytes of the reply.
#include "net/kp_server.h"
#include "tests/support.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdio.h>
#include <stdlib.h>

struct options_t {
    bool byte_by_byte = false;
    int times = 1;
    ssize_t break_off = -1; // after so many bytes
};

static bytes_t talk (const options_t &options, const bytes_t &request)
{
    kp_client_t client ("127.0.0.1", 1971);
    int fd = client.connect_to (client.host, client.port);
    if (fd < 0) {
        perror ("fake_client");
        exit (1);
    }
    int on = 1;
    timeval limit = {30, 0};
    setsockopt (fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof (on));
    setsockopt (fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof (limit));
    size_t step = options.byte_by_byte ? 1 : request.size ();
    for (size_t at = 0; at < request.size (); at += step) {
        send (fd, &request[at], step, MSG_NOSIGNAL);
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
    close (fd);
    return reply;
}

int main (int argc, char **argv)
{
    options_t options;
    for (int option; (option = getopt (argc, argv, "bn:r:")) != -1;) {
        options.byte_by_byte |= option == 'b';
        options.times = option == 'n' ? atoi (optarg) : options.times;
        options.break_off = option == 'r' ? atoi (optarg) : options.break_off;
    }
    bytes_t request;
    for (; argv[optind]; optind++) {
        request = request + bytes_of_hex (argv[optind]);
    }
    const bytes_t reply = talk (options, request);
    print_words (reply);
    while (--options.times > 0) {
        bytes_t next = talk (options, request);
        if (next != reply) {
            print_words (next);
        }
    }
}
