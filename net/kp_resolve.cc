#include "net/kp_resolve.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netdb.h>
#include <string.h>
#include <vector>

constexpr size_t most_entry = 1 << 20; // bytes of all names and addresses of one host

// Returns 0, or the value for h_errno.
static int look_up (const char *host, in_addr *address)
{
    std::vector<char> buffer (1024);
    hostent entry;
    hostent *found = nullptr;
    int reason = HOST_NOT_FOUND;
    int error;
    while ((error = gethostbyname_r (host, &entry, buffer.data (), buffer.size (), &found,
                                     &reason)) == ERANGE &&
           buffer.size () < most_entry) {
        buffer.resize (2 * buffer.size ());
    }
    if (found) {
        memcpy (address, found->h_addr_list[0], sizeof (*address));
        return 0;
    }
    if (error != 0) {
        errno = error;
    }
    return reason != 0 ? reason : HOST_NOT_FOUND;
}

bool kp_resolve (const char *host, in_addr *address)
{
    h_errno = look_up (host, address);
    if (h_errno == 0) {
        return true;
    }
    address->s_addr = inet_addr (host);
    if (address->s_addr == INADDR_NONE) {
        return false;
    }
    h_errno = 0;
    return true;
}
