// Starts a program whose standard output and error never block: a message that the log does not
// take at once is lost, and the program continues. q5_scand_start PROGRAM [ARGUMENTS...]
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

// Only a pipe or a socket can keep a writer waiting for its reader; a terminal is shared with
// others.
static void never_wait (int fd)
{
    struct stat status;
    if (fstat (fd, &status) == 0 && (S_ISFIFO (status.st_mode) || S_ISSOCK (status.st_mode))) {
        fcntl (fd, F_SETFL, fcntl (fd, F_GETFL) | O_NONBLOCK);
    }
}

int main (int argc, char **argv)
{
    if (argc < 2) {
        fputs ("usage: q5_scand_start PROGRAM [ARGUMENTS...]\n", stderr);
        return 2;
    }
    never_wait (STDOUT_FILENO);
    never_wait (STDERR_FILENO);
    execvp (argv[1], argv + 1);
    int reason = errno;
    fprintf (stderr, "q5_scand_start: cannot run %s: %s\n", argv[1], strerror (reason));
    return reason == ENOENT ? 127 : 126;
}
