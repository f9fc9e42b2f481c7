// fake_daemon [-q] [HEX...] [+ HEX...] -- COMMAND...: runs the command against a daemon on port
// 1971 that answers with these bytes, whatever it is asked, and ends the connection; after a +
// those for the next connection; there are no more. Then shows in words of 32 bits what each was
// sent; not with -q.
#include "tests/fake_server.h"

#include <string.h>
#include <sys/wait.h>

int main (int, char **argv)
{
    std::vector<session_t> sessions (1);
    const bool is_quiet = strcmp (argv[1], "-q") == 0;
    for (argv += 1 + is_quiet; *argv && strcmp (*argv, "--") != 0; argv++) {
        bytes_t &reply = sessions.back ().reply;
        if (strcmp (*argv, "+") == 0) {
            sessions.emplace_back ();
        } else {
            reply = reply + bytes_of_hex (*argv);
        }
    }
    fake_server_t server (sessions, 1971);
    int status = 0;
    pid_t child = fork ();
    if (child == 0) {
        execvp (argv[1], argv + 1);
        _exit (127);
    }
    waitpid (child, &status, 0);
    server.received ();
    for (const bytes_t &record : server.records) {
        if (!is_quiet) {
            printf ("sent:");
            print_words (record);
        }
    }
    return WIFEXITED (status) ? WEXITSTATUS (status) : 128 + WTERMSIG (status);
}
