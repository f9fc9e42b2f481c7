// fake_daemon [HEX...] [+ HEX...] -- COMMAND...: runs the command against a daemon on port 1971
// that answers with these bytes, whatever it is asked, and ends the connection; behind a + those
// for the next connection; there are no more. Then shows in words of 32 bits what each was sent.
#include "tests/support.h"

#include <netinet/in.h>
#include <poll.h>
#include <string.h>
#include <sys/wait.h>

static int listener_on (int port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons (port);
    address.sin_addr.s_addr = htonl (INADDR_LOOPBACK);
    int fd = socket (AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int on = 1;
    setsockopt (fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof (on));
    if (bind (fd, reinterpret_cast<sockaddr *> (&address), sizeof (address)) || listen (fd, 2)) {
        perror ("fake_daemon");
        exit (1);
    }
    return fd;
}

static void serve (int fd, const bytes_t &reply)
{
    (void)!send (fd, reply.data (), reply.size (), MSG_NOSIGNAL);
    shutdown (fd, SHUT_WR);
    bytes_t request (1 << 16);
    ssize_t size = recv (fd, request.data (), request.size (), MSG_WAITALL);
    request.resize (std::max<ssize_t> (size, 0));
    close (fd);
    printf ("sent:");
    print_words (request);
}

int main (int, char **argv)
{
    std::vector<bytes_t> replies (1);
    for (argv++; *argv && strcmp (*argv, "--") != 0; argv++) {
        if (strcmp (*argv, "+") == 0) {
            replies.push_back ({});
        } else {
            replies.back () = replies.back () + bytes_of_hex (*argv);
        }
    }
    int listener = listener_on (1971), status = 0;
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
            serve (accept (listener, nullptr, nullptr), reply);
        }
    }
    close (listener);
    if (!ended) {
        waitpid (child, &status, 0);
    }
    return WIFEXITED (status) ? WEXITSTATUS (status) : 128 + WTERMSIG (status);
}
