// Separate from kp_server.cc so that the daemon links no resolver.
#include "net/assertion.h"
#include "net/kp_server.h"

#include <algorithm>
#include <arpa/inet.h>
#include <errno.h>
#include <mutex>
#include <netdb.h>
#include <netinet/in.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#define MODULE "kp_server.cc"

kp_client_t::kp_client_t (const char *host, int32_t port) : port (port)
{
    // A host of 300 characters or more is deliberately left without a terminator.
    size_t length = strnlen (host, sizeof (this->host));
    memset (this->host, 0, sizeof (this->host));
    memcpy (this->host, host, length);
}

// The call of the C library that a program may have replaced; its answer is shared by all threads.
static bool resolve (const char *host, in_addr *address)
{
    static std::mutex mutex;
    std::lock_guard<std::mutex> lock (mutex);
    if (const hostent *found = gethostbyname (host)) {
        memcpy (address, found->h_addr_list[0],
                std::min<size_t> (found->h_length, sizeof (*address)));
    } else {
        address->s_addr = inet_addr (host);
        if (address->s_addr == INADDR_NONE) {
            return false;
        }
    }
    h_errno = 0; // a name server that failed before the hosts file answered leaves another value
    return true;
}

int32_t kp_client_t::connect_to (const char *host, int32_t port)
{
    ASSERT (76, host && port);

    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons (static_cast<uint16_t> (port));
    if (!resolve (host, &address.sin_addr)) {
        return -1;
    }
    int32_t fd = socket (AF_INET, SOCK_STREAM, 0);
    if (fd < 0) {
        return -1;
    }
    if (connect (fd, reinterpret_cast<sockaddr *> (&address), sizeof (address)) < 0) {
        int reason = errno;
        close (fd);
        errno = reason;
        return -1;
    }
    return fd;
}
