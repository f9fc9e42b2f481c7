// A server that follows a script, session by session, and records every byte that clients send.
#pragma once

#include "net/kp_server.h"
#include "tests/support.h"

#include <arpa/inet.h>
#include <atomic>
#include <netinet/in.h>
#include <thread>

struct session_t {
    bytes_t reply = {};
    enum {
        ends,
        holds,
        drops
    } then = ends; // its stream; or nothing; or reads four bytes and closes
    int pace = 0;  // milliseconds before each byte
};

// On this port, or where it is 0 on one that is free.
inline int listen_on_loopback (int backlog, int *port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons (*port);
    socklen_t size = sizeof (address);
    int listener = socket (AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), on = 1;
    setsockopt (listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof (on));
    (void)!bind (listener, reinterpret_cast<sockaddr *> (&address), size);
    listen (listener, backlog);
    getsockname (listener, reinterpret_cast<sockaddr *> (&address), &size);
    *port = ntohs (address.sin_port);
    return listener;
}

class fake_server_t {
  public:
    int port;
    std::vector<bytes_t> records; // what each client has sent, once the server has ended

    // No client is served after the last session.
    explicit fake_server_t (const std::vector<session_t> &sessions, int fixed_port = 0)
        : port (fixed_port), listener (listen_on_loopback (8, &port)),
          service ([this, sessions] { serve (sessions); })
    {}
    explicit fake_server_t (const bytes_t &reply) : fake_server_t ({session_t{reply}}) {}
    ~fake_server_t ()
    {
        received ();
    }

    // Everything that clients have sent, once they have closed; ends the server. First waits up to
    // ten seconds for this number of clients.
    bytes_t received (int num_clients = 0)
    {
        for (int i = 0; i < 1000 && num_served < num_clients; i++) {
            usleep (10000);
        }
        if (service.joinable ()) {
            is_over = true;
            kp_client_t client ("127.0.0.1", port);
            close (client.connect_to (client.host, client.port));
            service.join ();
        }
        bytes_t all;
        for (const bytes_t &record : records) {
            all = all + record;
        }
        return all;
    }

  private:
    int listener;
    std::atomic<bool> is_over = false;
    std::atomic<int> num_served = 0;
    std::thread service;

    void serve (const std::vector<session_t> &sessions)
    {
        for (const session_t &session : sessions) {
            int fd = accept (listener, nullptr, nullptr);
            bytes_t bytes = play (fd, session);
            close (fd);
            if (is_over && bytes.empty ()) {
                break;
            }
            records.push_back (bytes);
            num_served++;
        }
        close (listener);
    }
    static bytes_t play (int fd, const session_t &session)
    {
        timeval limit = {10, 0};
        setsockopt (fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof (limit));
        size_t at_once = session.pace > 0 ? 1 : session.reply.size ();
        for (size_t at = 0; at < session.reply.size (); at += at_once) {
            usleep (session.pace * 1000);
            if (send (fd, &session.reply[at], at_once, MSG_NOSIGNAL) < 0) {
                break;
            }
        }
        if (session.then == session_t::ends) {
            shutdown (fd, SHUT_WR);
        }
        bytes_t bytes (session.then == session_t::drops ? 4 : 1 << 16);
        bytes.resize (std::max<ssize_t> (recv (fd, bytes.data (), bytes.size (), MSG_WAITALL), 0));
        return bytes;
    }
};
