// Between fork and the end of the child only async-signal-safe calls: the program may have threads.
#include "client/guardian.h"

#include <algorithm>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int most_tries = 60;        // a second apart
constexpr int connect_timeout = 2000; // milliseconds
constexpr int reply_timeout = 600000; // the daemon may have many batches to finish
constexpr int pause_between_tries = 1000;

struct duty_t {
    const sockaddr_in &address;
    const std::vector<uint8_t> &batch;
    int fd;              // read end of the pipe
    int most_descriptor; // of a system without close_range
};

} // namespace

// Whether the event came in time.
static bool wait_for (int fd, short event, int milliseconds)
{
    pollfd fds = {fd, event, 0};
    return poll (&fds, 1, milliseconds) > 0;
}

static bool connect_in_time (int fd, const sockaddr_in &address)
{
    int error = 0;
    socklen_t size = sizeof (error);
    return connect (fd, reinterpret_cast<const sockaddr *> (&address), sizeof (address)) == 0 ||
           (errno == EINPROGRESS && wait_for (fd, POLLOUT, connect_timeout) &&
            getsockopt (fd, SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0);
}

// Whether the batch was sent: the daemon runs it in its turn, and a retry would only take another
// place in its queue. Keeps the connection until then.
static bool release (const duty_t &duty)
{
    int fd = socket (AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
    bool is_sent = fd >= 0 && connect_in_time (fd, duty.address) &&
                   send (fd, duty.batch.data (), duty.batch.size (), MSG_NOSIGNAL) ==
                       static_cast<ssize_t> (duty.batch.size ());
    if (is_sent) {
        wait_for (fd, POLLIN, reply_timeout);
    }
    close (fd);
    return is_sent;
}

static void close_others (int most_descriptor)
{
#ifdef SYS_close_range
    if (syscall (SYS_close_range, 1u, ~0u, 0u) == 0) {
        return;
    }
#endif
    for (int fd = 1; fd <= most_descriptor; fd++) {
        close (fd);
    }
}

[[noreturn]] static void guard (const duty_t &duty)
{
    (void)!chdir ("/");
    dup2 (duty.fd, 0);
    close_others (duty.most_descriptor);
    prctl (PR_SET_NAME, "q5_scan_guard"); // from here on it is ready
    char byte;
    if (read (0, &byte, 1) == 0) {
        for (int i = 0; i < most_tries && !release (duty); i++) {
            poll (nullptr, 0, pause_between_tries);
        }
    }
    _exit (0);
}

// A grandchild, in a session of its own, so that the program need not reap it. Returns 0 or errno.
static int fork_guardian (const duty_t &duty)
{
    pid_t child = _Fork ();
    if (child == 0) {
        setsid ();
        pid_t grandchild = _Fork ();
        if (grandchild == 0) {
            guard (duty);
        }
        _exit (grandchild < 0 ? errno : 0);
    }
    if (child < 0) {
        return errno;
    }
    int status = 0;
    // A program that ignores SIGCHLD leaves no status.
    bool is_known = waitpid (child, &status, 0) == child && WIFEXITED (status);
    return is_known ? WEXITSTATUS (status) : 0;
}

int q5_scan_start_guardian (const sockaddr_in &address, const std::vector<uint8_t> &batch)
{
    int ends[2];
    if (pipe2 (ends, O_CLOEXEC) < 0) {
        return -1;
    }
    const long limit = sysconf (_SC_OPEN_MAX);
    duty_t duty = {address, batch, ends[0], static_cast<int> (std::clamp (limit, 1024L, 1L << 16))};
    // The guardian must not run the program's signal handlers.
    sigset_t all, before;
    sigfillset (&all);
    pthread_sigmask (SIG_SETMASK, &all, &before);
    int error = fork_guardian (duty);
    pthread_sigmask (SIG_SETMASK, &before, nullptr);
    close (ends[0]);
    if (error != 0) {
        close (ends[1]);
        errno = error;
        return -1;
    }
    return ends[1];
}

void q5_scan_dismiss_guardian (int fd)
{
    // The guardian may have been killed: then the SIGPIPE of this write is taken here.
    sigset_t broken_pipe, before, pending;
    sigemptyset (&broken_pipe);
    sigaddset (&broken_pipe, SIGPIPE);
    sigpending (&pending);
    pthread_sigmask (SIG_BLOCK, &broken_pipe, &before);
    char byte = 0;
    if (write (fd, &byte, 1) < 0 && !sigismember (&pending, SIGPIPE)) {
        timespec now = {};
        sigtimedwait (&broken_pipe, nullptr, &now);
    }
    pthread_sigmask (SIG_SETMASK, &before, nullptr);
    close (fd);
}
