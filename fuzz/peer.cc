#include "fuzz/peer.h"

#include <errno.h>
#include <poll.h>

static int ending; // errno after what it sends: 0 its end, EAGAIN silence
static bool is_slow;
static int64_t pause_time; // for which it makes a client wait that is not idle
static int64_t now = 0;    // nanoseconds

int64_t peer_time ()
{
    return now;
}

void read_peer (input_t &input)
{
    uint8_t how = input.byte (), chunk = input.byte (), room = input.byte ();
    ending = how % 4 == 1 ? EAGAIN : how % 4 == 2 ? ECONNRESET : 0;
    is_slow = how & 4;
    pause_time = how & 8 ? INT64_C (20'000'000'000) : 1'000'000;
    wire = {};
    wire.chunk = chunk > 0 ? chunk : SIZE_MAX;
    wire.room = room > 0 ? room * 8 : SIZE_MAX;
}

extern "C" {
int __wrap_socket (int, int, int)
{
    wire.received.clear ();
    return wire_fd;
}

int __wrap_connect (int, const sockaddr *, socklen_t)
{
    return 0;
}

ssize_t __wrap_send (int fd, const void *bytes, size_t size, int)
{
    return write (fd, bytes, size);
}

ssize_t __wrap_recv (int fd, void *bytes, size_t size, int)
{
    static unsigned num_calls = 0;
    errno = num_calls % 4 < 2 ? EAGAIN : EINTR;
    ssize_t count = is_slow && ++num_calls % 2 ? -1 : read (fd, bytes, size);
    errno = count == 0 ? ending : errno;
    return count == 0 && errno != 0 ? -1 : count;
}

// The descriptor -1 is a pause.
int __wrap_poll (pollfd *fds, nfds_t, int timeout)
{
    bool is_idle = fds[0].fd == -1 || wire.num_read == wire.sent.size ();
    REQUIRE (!is_idle || timeout >= 0);
    int64_t limit = INT64_C (1'000'000) * timeout;
    is_idle = is_idle || (timeout >= 0 && pause_time > limit);
    now += is_idle ? limit : pause_time;
    return !is_idle;
}

// The steady clock.
int64_t __wrap__ZNSt6chrono3_V212steady_clock3nowEv ()
{
    return now;
}
}
