// The least that a server of batches does: the same reads and writes as the daemon's, and
// floor_transfer for each request; with FLOOR_CHECKS the documented checks of a request too.
#include "bench/floor.h"

#include "scan/q5_scan_protocol.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

static scan_request_t requests[MAX_REQUESTS];
alignas (4) static uint8_t txbuf[Q5_SCAN_MAX_TX];
alignas (4) static uint8_t rxbuf[Q5_SCAN_MAX_RX];

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

static void check (bool condition)
{
    if (FLOOR_CHECKS && !condition) {
        _exit (1);
    }
}

static void check_request (const scan_request_t &m, int32_t tx_count)
{
    check (m.slot >= 0 && m.slot < Q5_SCAN_NUM_SLOTS);
    check (m.txlen >= 0 && m.txlen <= Q5_SCAN_MAX_TX);
    check (m.rxlen >= 0 && m.rxlen <= Q5_SCAN_MAX_RX);
    check (m.txlen + tx_count <= Q5_SCAN_MAX_TX);
}

static int32_t transfer (const scan_request_t &m, const uint8_t *tx)
{
    check (tx);
    check (m.txlen >= 0);
    check (m.rxlen >= 0 && m.rxlen <= Q5_SCAN_MAX_RX);
    check (m.slot >= 0 && m.slot < Q5_SCAN_NUM_SLOTS);
    check (m.slot <= 31);
    check (m.txlen <= Q5_SCAN_MAX_TX && m.rxlen <= Q5_SCAN_MAX_RX);
    return floor_transfer (m.slot, m.command, m.txlen, tx, m.rxlen, rxbuf);
}

static void reply (int fd, int32_t result, int32_t rxlen)
{
    be32_t word = result;
    int32_t size = result < rxlen ? result : rxlen;
    if (write (fd, &word, sizeof (word)) <= 0 || (size > 0 && write (fd, rxbuf, size) <= 0)) {
        _exit (1);
    }
}

static void serve (int fd)
{
    be32_t id, word;
    read_all (fd, &id, sizeof (id));
    read_all (fd, &word, sizeof (word));
    const int32_t count = word;
    read_all (fd, requests, count * sizeof (scan_request_t));
    scan_request_t *end = requests + count;
    uint8_t *tx = txbuf;
    for (scan_request_t *m = requests; m < end; m++) {
        check_request (*m, tx - txbuf);
        if (int32_t txlen = m->txlen) {
            read_all (fd, tx, txlen);
            tx += txlen;
        }
    }
    tx = txbuf;
    for (scan_request_t *m = requests; m < end; m++) {
        int32_t result = transfer (*m, tx);
        tx += m->txlen;
        reply (fd, result, m->rxlen);
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
