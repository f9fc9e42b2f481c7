// fake_daemon [-q] [HEX...] [+ HEX...] -- COMMAND...: runs the command against a daemon on port
// 1971 that answers with these bytes, whatever it is asked, and ends the connection; after a +
// those for the next connection; there are no more. Then shows in words of 32 bits what each was
// sent; not with -q.
#include "tests/fake_server.h"

#include <poll.h>
#include <string.h>
#include <sys/wait.h>

static void serve (int fd, const bytes_t &reply, bool is_quiet)
{
    (void)!send (fd, reply.data (), reply.size (), MSG_NOSIGNAL);
    shutdown (fd, SHUT_WR);
    bytes_t request (1 << 16);
    ssize_t size = recv (fd, request.data (), request.size (), MSG_WAITALL);
    request.resize (std::max<ssize_t> (size, 0));
    close (fd);
    if (!is_quiet) {
        printf ("sent:");
        print_words (request);
    }
}

int main (int, char **argv)
{
    std::vector<bytes_t> replies (1);
    const bool is_quiet = strcmp (argv[1], "-q") == 0;
    for (argv += 1 + is_quiet; *argv && strcmp (*argv, "--") != 0; argv++) {
        if (strcmp (*argv, "+") == 0) {
            replies.push_back ({});
        } else {
            replies.back () = replies.back () + bytes_of_hex (*argv);
        }
    }
    int port = 1971, listener = listen_on_loopback (2, &port), status = 0;
    pid_t child = fork ();
    if (child == 0) {
        execvp (argv[1], argv + 1);
        _exit (127);
    }
    bool ended = false;
    for (const bytes_t &reply : replies) {
        pollfd ready = {listener, POLLIN, 0};
        while (!ended && poll (&ready, 1, 5) == 0) {
            ended = waitpid (child, &status, WNOHANG) == child;
        }
        if (!ended) {
            serve (accept (listener, nullptr, nullptr), reply, is_quiet);
        }
    }
    close (listener);
    if (!ended) {
        waitpid (child, &status, 0);
    }
    return WIFEXITED (status) ? WEXITSTATUS (status) : 128 + WTERMSIG (status);
}
