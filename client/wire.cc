#include "client/wire.h"

#include <algorithm>
#include <errno.h>
#include <limits.h>
#include <poll.h>
#include <sys/socket.h>

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// About 30 years: no sum overflows.
constexpr milliseconds longest (1'000'000'000'000);

q5_scan_deadline_t::q5_scan_deadline_t (milliseconds limit)
    : moment (limit.count () > 0 ? steady_clock::now () + std::min (limit, longest)
                                 : steady_clock::time_point::max ())
{}

bool q5_scan_deadline_t::has_passed () const
{
    return steady_clock::now () >= moment;
}

milliseconds q5_scan_deadline_t::left () const
{
    if (moment == steady_clock::time_point::max ()) {
        return milliseconds (0);
    }
    return std::max (std::chrono::ceil<milliseconds> (moment - steady_clock::now ()),
                     milliseconds (1));
}

int q5_scan_deadline_t::poll_timeout () const
{
    if (has_passed ()) {
        return 0;
    }
    int64_t time = left ().count ();
    return time == 0 ? -1 : static_cast<int> (std::min<int64_t> (time, INT_MAX));
}

q5_scan_step_t q5_scan_wire_t::fail ()
{
    error = errno;
    return q5_scan_step_t::failed;
}

bool q5_scan_wire_t::is_cancelled () const
{
    pollfd fds = {cancel_fd, POLLIN, 0};
    return poll (&fds, 1, 0) > 0;
}

q5_scan_step_t q5_scan_wire_t::wait (short events)
{
    const q5_scan_deadline_t &first = std::min (deadline, total);
    if (first.has_passed ()) {
        return q5_scan_step_t::timed_out;
    }
    pollfd fds[] = {{fd, events, 0}, {cancel_fd, POLLIN, 0}};
    if (poll (fds, 2, first.poll_timeout ()) < 0 && errno != EINTR) {
        return fail ();
    }
    return fds[1].revents != 0 ? q5_scan_step_t::cancelled : q5_scan_step_t::done;
}

// After a call that was interrupted or would have blocked; done: call again.
q5_scan_step_t q5_scan_wire_t::wait_after_error (short events)
{
    bool may_go_on = errno == EAGAIN || errno == EINTR;
    return may_go_on ? wait (events) : fail ();
}

q5_scan_step_t q5_scan_wire_t::connect (const sockaddr_in &address)
{
    // Connecting again asks about a connection under way: that gives the reason of a failure.
    while (::connect (fd, reinterpret_cast<const sockaddr *> (&address), sizeof (address)) < 0 &&
           errno != EISCONN) {
        bool under_way = errno == EINPROGRESS || errno == EALREADY || errno == EINTR;
        q5_scan_step_t step = under_way ? wait (POLLOUT) : fail ();
        if (step != q5_scan_step_t::done) {
            return step;
        }
    }
    return q5_scan_step_t::done;
}

q5_scan_step_t q5_scan_wire_t::send (const void *bytes, size_t size)
{
    const char *next = static_cast<const char *> (bytes);
    const char *end = next + size;
    while (next < end) {
        ssize_t r = ::send (fd, next, end - next, MSG_NOSIGNAL | MSG_DONTWAIT);
        q5_scan_step_t step = r < 0 ? wait_after_error (POLLOUT) : q5_scan_step_t::done;
        if (step != q5_scan_step_t::done) {
            return step;
        }
        next += std::max<ssize_t> (r, 0);
    }
    return q5_scan_step_t::done;
}

// What has arrived is taken without waiting, even when the time is up.
q5_scan_step_t q5_scan_wire_t::receive (void *bytes, size_t size)
{
    char *next = static_cast<char *> (bytes);
    char *end = next + size;
    while (next < end) {
        ssize_t r = recv (fd, next, end - next, MSG_DONTWAIT);
        if (r == 0) {
            return q5_scan_step_t::ended;
        }
        q5_scan_step_t step = r < 0 ? wait_after_error (POLLIN) : q5_scan_step_t::done;
        if (step != q5_scan_step_t::done) {
            return step;
        }
        has_begun = has_begun || r > 0;
        next += std::max<ssize_t> (r, 0);
    }
    return q5_scan_step_t::done;
}
