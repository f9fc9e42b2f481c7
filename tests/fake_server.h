// A server for one connection that keeps to a script: it sends a fixed reply, ends its stream and
// records every byte that the client sends until the client closes.
#pragma once

#include "net/kp_server.h"
#include "tests/support.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <thread>

class fake_server_t {
  public:
    int port;

    explicit fake_server_t (const bytes_t &reply)
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl (INADDR_LOOPBACK);
        socklen_t size = sizeof (address);
        listener = socket (AF_INET, SOCK_STREAM, 0);
        (void)!bind (listener, reinterpret_cast<sockaddr *> (&address), size);
        listen (listener, 2);
        getsockname (listener, reinterpret_cast<sockaddr *> (&address), &size);
        port = ntohs (address.sin_port);
        service = std::thread ([this, reply] { serve (reply); });
    }
    ~fake_server_t ()
    {
        received ();
    }

    // Everything that the client sent, once it has closed; empty when it never connected.
    bytes_t received ()
    {
        if (service.joinable ()) {
            knock ();
            service.join ();
            close (listener);
        }
        return record;
    }

  private:
    int listener;
    std::thread service;
    bytes_t record;

    void serve (const bytes_t &reply)
    {
        int fd = accept (listener, nullptr, nullptr);
        timeval limit = {10, 0};
        setsockopt (fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof (limit));
        (void)!send (fd, reply.data (), reply.size (), MSG_NOSIGNAL);
        shutdown (fd, SHUT_WR);
        record.resize (1 << 16);
        record.resize (
            std::max<ssize_t> (recv (fd, record.data (), record.size (), MSG_WAITALL), 0));
        close (fd);
    }

    // Stands for the client that never came; waits behind the one that did.
    void knock ()
    {
        kp_client_t client ("127.0.0.1", port);
        close (client.connect_to (client.host, client.port));
    }
};
