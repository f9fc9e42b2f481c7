// The system's resolver has no timeout, so each look-up runs in a thread that is abandoned when the
// time is up. Concurrent callers share the look-up of one name: a name server that never answers
// costs one thread a name.
#include "client/resolve.h"

#include <arpa/inet.h>
#include <errno.h>
#include <map>
#include <memory>
#include <mutex>
#include <netdb.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <sys/eventfd.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

struct found_t {
    in_addr address;
    int host_error; // 0: found
    int error;      // errno, where the resolver itself failed
};

struct look_up_t {
    const pid_t pid = getpid ();             // a fork does not copy the thread
    const int fd = eventfd (0, EFD_CLOEXEC); // readable when `found` is there
    found_t found = {};

    look_up_t ()
    {
        if (fd < 0) {
            throw std::system_error (errno, std::generic_category ());
        }
    }
    ~look_up_t ()
    {
        close (fd);
    }
};
using shared_look_up_t = std::shared_ptr<look_up_t>;

// By name; never destroyed, since a thread may outlive main.
struct pending_t {
    std::mutex mutex;
    std::map<std::string, shared_look_up_t> look_ups;
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

static pending_t &pending ()
{
    static pending_t &all = *new pending_t;
    return all;
}

constexpr size_t most_entry = 1 << 20; // bytes of all names and addresses of one host

static found_t look_up (const std::string &host)
{
    std::vector<char> buffer (1024);
    hostent entry;
    hostent *known = nullptr;
    int reason = HOST_NOT_FOUND;
    int error;
    while ((error = gethostbyname_r (host.c_str (), &entry, buffer.data (), buffer.size (), &known,
                                     &reason)) == ERANGE &&
           buffer.size () < most_entry) {
        buffer.resize (2 * buffer.size ());
    }
    found_t found = {};
    if (known) {
        memcpy (&found.address, known->h_addr_list[0], sizeof (found.address));
    } else if (inet_aton (host.c_str (), &found.address) == 0) {
        found.host_error = reason != 0 ? reason : HOST_NOT_FOUND;
        found.error = reason == NETDB_INTERNAL ? (error != 0 ? error : errno) : 0;
    }
    return found;
}

// Waiters resume after the unlock; the last one closes the descriptor.
static void finish (const std::string &host, shared_look_up_t look_up, const found_t &found)
{
    std::lock_guard<std::mutex> lock (pending ().mutex);
    auto known = pending ().look_ups.find (host);
    if (known != pending ().look_ups.end () && known->second == look_up) {
        pending ().look_ups.erase (known);
    }
    look_up->found = found;
    eventfd_write (look_up->fd, 1);
    look_up.reset ();
}

// Joins the pending look-up of the name, or starts one. Throws std::system_error.
static shared_look_up_t begin_look_up (const std::string &host)
{
    std::lock_guard<std::mutex> lock (pending ().mutex);
    shared_look_up_t &known = pending ().look_ups[host];
    if (known && known->pid == getpid ()) {
        return known;
    }
    known.reset ();
    auto started = std::make_shared<look_up_t> ();
    signals_blocked_t blocked;
    std::thread ([host, own = started] () mutable {
        found_t found = look_up (host);
        finish (host, std::move (own), found);
    }).detach ();
    return known = started;
}

// Waits until the descriptor is readable.
static q5_scan_step_t wait_for_end (q5_scan_wire_t &wire)
{
    q5_scan_step_t step;
    pollfd fds = {wire.fd, POLLIN, 0};
    do {
        step = wire.wait (POLLIN);
    } while (step == q5_scan_step_t::done && poll (&fds, 1, 0) <= 0);
    return step;
}

static q5_scan_step_t look_up_aside (q5_scan_wire_t &wire, const std::string &host, found_t *found)
{
    try {
        shared_look_up_t shared = begin_look_up (host);
        q5_scan_wire_t waiting = wire;
        waiting.fd = shared->fd;
        q5_scan_step_t step = wait_for_end (waiting);
        wire.error = waiting.error;
        if (step == q5_scan_step_t::done) {
            std::lock_guard<std::mutex> lock (pending ().mutex);
            *found = shared->found;
        }
        return step;
    } catch (std::system_error &e) { // no descriptor, or no thread
        wire.error = e.code ().value ();
        return q5_scan_step_t::failed;
    }
}

q5_scan_step_t q5_scan_resolve (q5_scan_wire_t &wire, const std::string &host, in_addr *address,
                                int *host_error)
{
    *host_error = 0;
    if (inet_pton (AF_INET, host.c_str (), address) == 1) {
        return q5_scan_step_t::done;
    }
    found_t found = {};
    q5_scan_step_t step = look_up_aside (wire, host, &found);
    *address = found.address;
    *host_error = found.host_error;
    if (step == q5_scan_step_t::done && found.host_error != 0) {
        wire.error = found.error;
        return q5_scan_step_t::failed;
    }
    return step;
}
