// The daemon: sets up the scan port and serves batches on TCP port 1971 until it is killed.
// No option, no environment, no configuration.
#include "net/exception.h"
#include "scan/q5_scan_server.h"
#include "scanp/scan_port.h"

#include <signal.h>
#include <stdio.h>

constexpr int32_t backlog = 7;

// A write to a client that has gone fails instead of ending the process.
static void ignore_broken_pipe (int) {}

// A log reader sees each message when it happens, through a pipe as well; and no buffer is
// allocated.
static void buffer_output_by_line ()
{
    static char buffer[BUFSIZ];
    setvbuf (stdout, buffer, _IOLBF, sizeof (buffer));
}

int main ()
{
    signal (SIGPIPE, ignore_broken_pipe);
    buffer_output_by_line ();
    try {
        scan_port_init ();
        q5_scan_server_t *server = new q5_scan_server_t;
        server->serve (Q5_SCAN_PORT, backlog);
    } catch (exception_t &e) {
        e.print ();
    }
    return 0;
}
