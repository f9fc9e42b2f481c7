// load BATCHES REQUESTS TX RX: sends BATCHES batches of identical requests to 127.0.0.1, each in
// one write, and reads the replies to their end. Fails unless every request is answered in full.
#include "scan/q5_scan_protocol.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

static std::vector<char> batch_of (int32_t requests, int32_t tx, int32_t rx)
{
    std::vector<be32_t> words = {2, requests};
    for (int32_t i = 0; i < requests; i++) {
        words.insert (words.end (), {3, 0x93, rx, tx});
    }
    const char *bytes = reinterpret_cast<const char *> (words.data ());
    std::vector<char> batch (bytes, bytes + words.size () * sizeof (be32_t));
    batch.resize (batch.size () + requests * tx, 'x');
    return batch;
}

static bool run (const std::vector<char> &batch, size_t expected)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons (Q5_SCAN_PORT);
    address.sin_addr.s_addr = htonl (INADDR_LOOPBACK);
    int fd = socket (AF_INET, SOCK_STREAM, 0);
    timeval limit = {60, 0};
    setsockopt (fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof (limit));
    if (connect (fd, reinterpret_cast<sockaddr *> (&address), sizeof (address)) < 0 ||
        write (fd, batch.data (), batch.size ()) != ssize_t (batch.size ())) {
        return false;
    }
    static char replies[1 << 16];
    size_t size = 0;
    for (ssize_t r; (r = read (fd, replies, sizeof (replies))) > 0;) {
        size += r;
    }
    close (fd);
    return size == expected;
}

int main (int, char **argv)
{
    int32_t requests = atoi (argv[2]), tx = atoi (argv[3]), rx = atoi (argv[4]);
    std::vector<char> batch = batch_of (requests, tx, rx);
    for (int i = atoi (argv[1]); i > 0; i--) {
        if (!run (batch, requests * (sizeof (be32_t) + rx))) {
            return 1;
        }
    }
    return 0;
}
