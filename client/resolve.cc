// The system's resolver knows no time-out: a look-up that has one runs in a thread that is left
// alone when the time is up.
#include "client/wire.h"
#include "net/kp_resolve.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <future>
#include <netdb.h>
#include <poll.h>
#include <signal.h>
#include <string>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace {

struct found_t {
    in_addr address;
    int host_error; // 0: found
    int error;      // errno, where the resolver itself failed
};

// The program's signal handlers run in its own threads only.
class signals_blocked_t {
  public:
    signals_blocked_t ()
    {
        sigset_t all;
        sigfillset (&all);
        pthread_sigmask (SIG_SETMASK, &all, &before);
    }
    ~signals_blocked_t ()
    {
        pthread_sigmask (SIG_SETMASK, &before, nullptr);
    }

  private:
    sigset_t before;
};

} // namespace

static found_t look_up (const std::string &host)
{
    found_t found = {};
    bool known = kp_resolve (host.c_str (), &found.address);
    found.host_error = known ? 0 : h_errno;
    found.error = found.host_error == NETDB_INTERNAL ? errno : 0;
    return found;
}

// Looks up in a thread of its own, which at last closes `done_fd`.
static std::future<found_t> begin_look_up (const std::string &host, int done_fd)
{
    std::packaged_task<found_t ()> task ([host] () { return look_up (host); });
    std::future<found_t> future = task.get_future ();
    signals_blocked_t blocked;
    std::thread ([done_fd, task = std::move (task)] () mutable {
        task ();
        close (done_fd);
    }).detach ();
    return future;
}

// Waits until the other end of the pipe is closed.
static q5_scan_step_t wait_for_end (q5_scan_wire_t &wire)
{
    q5_scan_step_t step;
    pollfd fds = {wire.fd, POLLIN, 0};
    do {
        step = wire.wait (POLLIN);
    } while (step == q5_scan_step_t::done && poll (&fds, 1, 0) <= 0);
    return step;
}

static q5_scan_step_t look_up_aside (q5_scan_wire_t &wire, const char *host, found_t *found)
{
    int ends[2];
    if (pipe2 (ends, O_CLOEXEC) < 0) {
        wire.error = errno;
        return q5_scan_step_t::failed;
    }
    q5_scan_step_t step = q5_scan_step_t::failed;
    try {
        std::future<found_t> future = begin_look_up (host, ends[1]);
        q5_scan_wire_t waiting = wire;
        waiting.fd = ends[0];
        step = wait_for_end (waiting);
        wire.error = waiting.error;
        if (step == q5_scan_step_t::done) {
            *found = future.get ();
        }
    } catch (std::system_error &e) { // no thread
        wire.error = e.code ().value ();
        close (ends[1]);
    }
    close (ends[0]);
    return step;
}

q5_scan_step_t q5_scan_resolve (q5_scan_wire_t &wire, const char *host, bool may_block,
                                in_addr *address, int *host_error)
{
    *host_error = 0;
    if (inet_pton (AF_INET, host, address) == 1) {
        return q5_scan_step_t::done;
    }
    found_t found = {};
    q5_scan_step_t step = q5_scan_step_t::done;
    if (may_block) {
        found = look_up (host);
    } else {
        step = look_up_aside (wire, host, &found);
    }
    if (step == q5_scan_step_t::done && found.host_error != 0) {
        step = q5_scan_step_t::failed;
        wire.error = found.error;
    }
    *address = found.address;
    *host_error = found.host_error;
    return step;
}
