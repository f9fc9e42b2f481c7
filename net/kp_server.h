// The two ends of a TCP connection: a server that serves one connection at a time, and a connector.
#pragma once

#include "net/kp_literate.h"

#include <stdint.h>

// A strictly sequential TCP server: one connection at a time, in the calling thread, without
// timeouts.
class kp_server_t : public kp_literate_t {
  public:
    // Serves one connection; `fd` is open until it returns or throws exception_t. The result is
    // ignored.
    virtual int32_t handle (int32_t fd) = 0;

    // Listens on `port` (more than 0; its low 16 bits count), all local IPv4 addresses, and calls
    // handle for each connection in turn. An exception_t from handle is printed and ends that
    // connection alone; any other exception propagates. Never returns: throws exception_t when the
    // listening socket cannot be set up.
    void serve (int32_t port, int32_t backlog);
};

class kp_client_t : public kp_literate_t {
  public:
    char host[300]; // name or dotted IPv4 address; without a NUL when it fills the field
    int32_t port;

    // Keeps the first 300 characters of `host`; hosts are expected to be shorter. Tests nothing.
    kp_client_t (const char *host, int32_t port);

    // Connects to an IPv4 host, at the first address that its name resolves to. Returns the
    // descriptor, which the caller closes, or -1. Then h_errno says why the host is not known; or
    // is 0, and errno says why there is no socket or no connection. Throws exception_t for a null
    // host or port 0 (of another, the low 16 bits count). The object's own fields are not used, and
    // threads may connect at once: h_errno and errno are the calling thread's own.
    int32_t connect_to (const char *host, int32_t port);
};
