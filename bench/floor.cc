// The least that a server of batches does: the same reads and writes as the daemon's, no check of
// anything, and floor_transfer for each request.
#include "bench/floor.h"

#include "scan/q5_scan_protocol.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

static scan_request_t requests[MAX_REQUESTS];
static uint8_t txbuf[Q5_SCAN_MAX_TX];
static uint8_t rxbuf[Q5_SCAN_MAX_RX];

static void read_all (int fd, void *buffer, size_t size)
{
    char *p = static_cast<char *> (buffer);
    for (char *end = p + size; p < end;) {
        ssize_t r = read (fd, p, end - p);
        if (r <= 0) {
            _exit (1);
        }
        p += r;
    }
}

static void serve (int fd)
{
    be32_t id, count;
    read_all (fd, &id, sizeof (id));
    read_all (fd, &count, sizeof (count));
    scan_request_t *end = requests + count;
    read_all (fd, requests, count * sizeof (scan_request_t));
    uint8_t *tx = txbuf;
    for (scan_request_t *m = requests; m < end; m++) {
        if (m->txlen > 0) {
            read_all (fd, tx, m->txlen);
            tx += m->txlen;
        }
    }
    tx = txbuf;
    for (scan_request_t *m = requests; m < end; m++) {
        int32_t result = floor_transfer (m->slot, m->command, m->txlen, tx, m->rxlen, rxbuf);
        tx += m->txlen;
        be32_t word = result;
        int32_t rxlen = m->rxlen;
        int32_t size = result < rxlen ? result : rxlen;
        if (write (fd, &word, sizeof (word)) <= 0 || (size > 0 && write (fd, rxbuf, size) <= 0)) {
            _exit (1);
        }
    }
}

int main ()
{
    floor_init ();
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons (Q5_SCAN_PORT);
    int listener = socket (AF_INET, SOCK_STREAM, 0);
    int on = 1;
    setsockopt (listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof (on));
    if (bind (listener, reinterpret_cast<sockaddr *> (&address), sizeof (address)) < 0 ||
        listen (listener, 7) < 0) {
        return 1;
    }
    while (true) {
        int fd = accept (listener, nullptr, nullptr);
        serve (fd);
        close (fd);
    }
}
