// Where the program listens: its port is moved to the address that the launcher was given.
#include "chassis/bus/one_line.h"
#include "chassis/launch/door_handlers.h"
#include "chassis/launch/listen_address.h"

#include <errno.h>
#include <string.h>
#include <sys/socket.h>

constexpr in_port_t daemon_port = 1971;

static std::optional<sockaddr_in> listen_address;
static int moved = -1; // the socket that was bound to it last

void door_listen_at (const sockaddr_in &address)
{
    listen_address = address;
}

// The port that a TCP socket asks for; 0 for any other socket and for any free port.
static in_port_t asked_port (int fd, const sockaddr *address, socklen_t size)
{
    int type = 0;
    socklen_t type_size = sizeof (type);
    bool is_stream =
        getsockopt (fd, SOL_SOCKET, SO_TYPE, &type, &type_size) == 0 && type == SOCK_STREAM;
    if (!is_stream || address == nullptr) {
        return 0;
    }
    if (address->sa_family == AF_INET && size >= sizeof (sockaddr_in)) {
        return ntohs (reinterpret_cast<const sockaddr_in *> (address)->sin_port);
    }
    if (address->sa_family == AF_INET6 && size >= sizeof (sockaddr_in6)) {
        return ntohs (reinterpret_cast<const sockaddr_in6 *> (address)->sin6_port);
    }
    return 0;
}

// Other programs that a script starts beside the daemon keep their ports.
static bool is_daemon_port (in_port_t port)
{
    return port == daemon_port || (port != 0 && attached_chassis () != nullptr);
}

static sockaddr_in6 mapped (const sockaddr_in &address)
{
    sockaddr_in6 six = {};
    six.sin6_family = AF_INET6;
    six.sin6_port = address.sin_port;
    six.sin6_addr.s6_addr[10] = six.sin6_addr.s6_addr[11] = 0xFF;
    memcpy (&six.sin6_addr.s6_addr[12], &address.sin_addr, sizeof (address.sin_addr));
    return six;
}

int bind_any (int fd, const sockaddr *address, socklen_t size, bind_t *real)
{
    if (!listen_address || !is_daemon_port (asked_port (fd, address, size))) {
        return real (fd, address, size);
    }
    sockaddr_in6 six = mapped (*listen_address);
    int result =
        address->sa_family == AF_INET6
            ? real (fd, reinterpret_cast<sockaddr *> (&six), sizeof (six))
            : real (fd, reinterpret_cast<sockaddr *> (&*listen_address), sizeof (*listen_address));
    if (result == 0) {
        moved = fd;
        return result;
    }
    int error = errno;
    complain (listen_address_text (*listen_address) + ": " + strerror (error) +
              "; choose another address with --listen, or any free port with --listen 127.0.0.1:0");
    errno = error;
    return result;
}

// Clients can connect to a free port once it is printed.
int listen_any (int fd, int backlog, int (*real) (int, int))
{
    int result = real (fd, backlog);
    if (result != 0 || fd != moved || listen_address->sin_port != 0) {
        return result;
    }
    sockaddr_in6 bound = {};
    socklen_t size = sizeof (bound);
    if (getsockname (fd, reinterpret_cast<sockaddr *> (&bound), &size) == 0) {
        sockaddr_in address = *listen_address;
        address.sin_port = bound.sin6_port; // where sockaddr_in has it
        complain ("listening on " + listen_address_text (address));
    }
    moved = -1;
    return result;
}
