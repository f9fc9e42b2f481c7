// One session, told apart from the server: which check refuses the batch, which transfers run, who
// holds the bus afterwards, and each byte of the reply. Included by one source a program, which has
// scan_port_transfer wrapped.
#pragma once

#include "scan/q5_scan_server.h"
#include "scanp/scan_port.h"
#include "tests/require.h"
#include "tests/wire.h"

static q5_scan_server_t server;
static int32_t owner; // as it should be

using transfer_call_t = decltype (scan_port_transfer);

// What a target has in the place of the transfer, if it is not this: results of all kinds.
static int32_t stub (uint32_t, int32_t command, int32_t, const uint8_t *, int32_t rxlen,
                     uint8_t *rxbuf)
{
    static constexpr int32_t results[] = {-1, -2, -3, -4, -10, 0, 1, 5, 10, 4095, 4096, 65535};
    static uint8_t next = 0;
    std::generate_n (rxbuf, rxlen, [] { return next += 37; });
    return results[uint32_t (command) % std::size (results)];
}
static transfer_call_t *transfer = stub;

struct transfer_t {
    bytes_t request; // header and transmit bytes
    int32_t result;
    bytes_t received;
};
static std::vector<transfer_t> transfers; // of the session

extern "C" int32_t __wrap__Z18scan_port_transferjiiPKhiPh (uint32_t slot, int32_t command,
                                                           int32_t txlen, const uint8_t *tx,
                                                           int32_t rxlen, uint8_t *rx)
{
    transfer_t t{words ({slot, command, rxlen, txlen}) + bytes_t (tx, tx + txlen),
                 transfer (slot, command, txlen, tx, rxlen, rx),
                 {rx, rx + rxlen}};
    transfers.push_back (t);
    return t.result;
}

static int64_t sent_word (size_t i)
{
    uint32_t value = 0;
    for (size_t at = 4 * i; at < 4 * i + 4; at++) {
        value = value << 8 | (at < wire.sent.size () ? wire.sent[at] : 0);
    }
    return static_cast<int32_t> (value);
}

// The check that ends it before anything runs, "" for a peer who is dropped without one; null:
// none.
static const char *refusal ()
{
    int64_t size = wire.sent.size (), count = sent_word (1), end = 8 + 16 * count, sum = 0;
    const char *check = size < 4                               ? "q5_scan_server.cc:61"
                        : owner != 0 && sent_word (0) != owner ? ""
                        : size < 8                             ? "q5_scan_server.cc:68"
                        : count > 100                          ? "q5_scan_server.cc:72"
                        : count < 1                            ? "kp_literate.cc:12"
                        : size < end                           ? "q5_scan_server.cc:75"
                                                               : nullptr;
    for (int64_t i = 2; check == nullptr && i < 2 + 4 * count; i += 4) {
        int64_t slot = sent_word (i), rxlen = sent_word (i + 2), txlen = sent_word (i + 3);
        sum += txlen;
        check = slot < 0 || slot > 31           ? "q5_scan_server.cc:46"
                : txlen < 0 || txlen > 4094     ? "q5_scan_server.cc:47"
                : rxlen < 0 || rxlen > 4096     ? "q5_scan_server.cc:48"
                : sum > 4094                    ? "q5_scan_server.cc:82"
                : txlen > 0 && size < end + sum ? "q5_scan_server.cc:85"
                                                : nullptr;
    }
    return check;
}

// Serves the peer, and requires that what happens is what it asked for. Returns whether its batch
// ran.
static bool serve_peer ()
{
    static bytes_t rxbuf (sizeof (server.rxbuf)); // as the server's should be
    const std::string message = message_of ([] { server.handle (wire_fd); });
    const char *check = refusal ();
    bool runs = check == nullptr;
    size_t next = 0, tx = 8 + 16 * sent_word (1);
    bytes_t reply;
    for (int64_t i = 2; check == nullptr && i < 2 + 4 * sent_word (1); i += 4) {
        int64_t command = sent_word (i + 1), rxlen = sent_word (i + 2), result = 1;
        auto header = wire.sent.begin () + 4 * i, bytes = wire.sent.begin () + tx;
        tx += sent_word (i + 3);
        if (command == 1 || command == 2) {
            owner = command == 1 ? sent_word (0) : 0;
        } else {
            REQUIRE (next < transfers.size ());
            const transfer_t &t = transfers[next++];
            REQUIRE (t.request ==
                     bytes_t (header, header + 16) + bytes_t (bytes, wire.sent.begin () + tx));
            std::copy (t.received.begin (), t.received.end (), rxbuf.begin ());
            result = t.result;
        }
        append_word (reply, result);
        size_t length = std::max<int64_t> (std::min (result, rxlen), 0);
        check = reply.size () > wire.room            ? "q5_scan_server.cc:121"
                : reply.size () + length > wire.room ? "q5_scan_server.cc:129"
                                                     : nullptr;
        reply.insert (reply.end (), rxbuf.begin (), rxbuf.begin () + length);
    }
    reply.resize (std::min (reply.size (), wire.room));
    std::string begin = check && *check ? "assertion failed. " + std::string (check) + " (" : "";
    REQUIRE_SHOWING (message.compare (0, begin.size (), begin) == 0, message + "\n" + begin);
    REQUIRE (message.empty () == begin.empty () && is_one_line (message));
    REQUIRE (next == transfers.size ());
    REQUIRE (server.owner_id == owner);
    REQUIRE (wire.received == reply);
    REQUIRE (std::equal (rxbuf.begin (), rxbuf.end (), server.rxbuf));
    return runs;
}
