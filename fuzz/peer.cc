#include "fuzz/peer.h"

#include <errno.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

peer_t peer;
static int64_t now = 0;        // nanoseconds
static bool is_silent = false; // nothing for the last call, and nothing to come

void read_peer (input_t &input)
{
    static constexpr int refusals[] = {0, 0, 0, 0, 0, 0, ECONNREFUSED, EINPROGRESS};
    static constexpr int endings[] = {0, ECONNRESET, EAGAIN, 0};
    uint8_t how = input.byte (), chunk = input.byte (), room = input.byte ();
    peer = {refusals[how % 8], endings[how / 8 % 4], input.byte (), input.byte ()};
    wire = {};
    wire.chunk = chunk > 0 ? chunk : SIZE_MAX;
    wire.room = room > 0 ? room * 8 : SIZE_MAX;
}

void restart_peer ()
{
    wire.num_read = peer.num_calls = peer.num_polls = 0;
    wire.received.clear ();
}

static bool hiccups ()
{
    is_silent = false;
    errno = ++peer.num_calls % 2 ? EINTR : EAGAIN;
    return peer.hiccup > 0 && peer.num_calls % (peer.hiccup + 1) == 0;
}

extern "C" {
int __real_close (int fd);
int __real_poll (pollfd *fds, nfds_t count, int timeout);

int __wrap_socket (int, int, int)
{
    peer.num_open++;
    wire.received.clear ();
    return wire_fd;
}

int __wrap_connect (int, const sockaddr *, socklen_t)
{
    errno = peer.refusal;
    is_silent = errno == EINPROGRESS;
    return errno != 0 ? -1 : 0;
}

ssize_t __wrap_send (int fd, const void *bytes, size_t size, int)
{
    return hiccups () ? -1 : write (fd, bytes, size);
}

ssize_t __wrap_recv (int fd, void *bytes, size_t size, int)
{
    ssize_t count = hiccups () ? -1 : read (fd, bytes, size);
    is_silent = count == 0 && peer.ending == EAGAIN;
    errno = count == 0 ? peer.ending : errno;
    return count == 0 && errno != 0 ? -1 : count;
}

int __wrap_close (int fd)
{
    peer.num_open -= fd == wire_fd;
    return fd == wire_fd ? 0 : __real_close (fd);
}

// The descriptor -1 is a pause.
int __wrap_poll (pollfd *fds, nfds_t count, int timeout)
{
    if (fds[0].fd != wire_fd && fds[0].fd != -1) {
        return __real_poll (fds, count, timeout);
    }
    bool is_idle = is_silent || fds[0].fd == -1, is_endless = is_idle && timeout < 0;
    REQUIRE (!is_endless || !peer.has_time_outs);
    bool is_cancelled = fds[1].fd == cancel_fd && ++peer.num_polls == peer.cancels_at;
    fds[1].revents = is_cancelled ? POLLIN : 0;
    now += is_idle ? timeout * INT64_C (1000000) : 1000000;
    errno = ENOMEM;
    return is_endless ? -1 : is_cancelled || !is_idle;
}

// The steady clock.
int64_t __wrap__ZNSt6chrono3_V212steady_clock3nowEv ()
{
    return now;
}
}
