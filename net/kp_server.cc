#include "net/kp_server.h"

#include "net/assertion.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#define MODULE "kp_server.cc"

static int32_t listen_on (int32_t port, int32_t backlog)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons (static_cast<uint16_t> (port));
    address.sin_addr.s_addr = htonl (INADDR_ANY);

    int32_t listener = socket (AF_INET, SOCK_STREAM, 0);
    // Deliberately compared with 0 only: a failed socket surfaces as the bind's error.
    if (listener == 0) {
        SYS_ERROR (27);
    }
    int32_t on = 1;
    setsockopt (listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof (on));
    if (bind (listener, reinterpret_cast<sockaddr *> (&address), sizeof (address)) < 0) {
        SYS_ERROR (33);
    }
    if (listen (listener, backlog) < 0) {
        SYS_ERROR (36);
    }
    return listener;
}

static int32_t accept_from (int32_t listener)
{
    sockaddr_in peer;
    socklen_t peer_size = sizeof (peer);
    return accept (listener, reinterpret_cast<sockaddr *> (&peer), &peer_size);
}

TESTS_ITS_OBJECT void kp_server_t::serve (int32_t port, int32_t backlog)
{
    ASSERT (20, this && port > 0);

    int32_t listener = listen_on (port, backlog);
    while (true) {
        int32_t fd = accept_from (listener);
        // Deliberate: a connection that got descriptor 0 is skipped like an error, and not closed.
        if (fd <= 0) {
            continue;
        }
        try {
            handle (fd);
        } catch (exception_t &e) {
            e.print ();
        }
        close (fd);
    }
}
