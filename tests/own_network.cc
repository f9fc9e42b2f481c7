#include "tests/own_network.h"

#include <errno.h>
#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

static bool write_whole (const char *path, const std::string &text)
{
    int fd = open (path, O_WRONLY | O_CLOEXEC);
    bool done = write (fd, text.data (), text.size ()) == static_cast<ssize_t> (text.size ());
    close (fd);
    return done;
}

// The user stays the one who started the test.
static bool unshare_as_user ()
{
    std::string uid = std::to_string (getuid ()), gid = std::to_string (getgid ());
    return unshare (CLONE_NEWUSER | CLONE_NEWNET) == 0 &&
           write_whole ("/proc/self/setgroups", "deny") &&
           write_whole ("/proc/self/uid_map", uid + " " + uid + " 1") &&
           write_whole ("/proc/self/gid_map", gid + " " + gid + " 1");
}

static bool bring_up_loopback ()
{
    int fd = socket (AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq loopback = {};
    strcpy (loopback.ifr_name, "lo");
    loopback.ifr_flags = IFF_UP | IFF_RUNNING;
    bool done = ioctl (fd, SIOCSIFFLAGS, &loopback) == 0;
    close (fd);
    return done;
}

void enter_own_network ()
{
    const char *mark = "Q5_OWN_NETWORK";
    if (getenv (mark)) {
        return;
    }
    if ((unshare (CLONE_NEWNET) == 0 || unshare_as_user ()) && bring_up_loopback ()) {
        setenv (mark, "1", 1);
        return;
    }
    fprintf (stderr,
             "This machine gives a test no network of its own (%s): it waits for its turn, and TCP "
             "port 1971 must be free.\n",
             strerror (errno));
    flock (open (Q5_SOURCES "/CMakeLists.txt", O_RDONLY | O_CLOEXEC), LOCK_EX);
}
