// Serves one session in memory, and compares it with the model. Included by one source a program,
// which has scan_port_transfer wrapped.
#pragma once

#include "scan/q5_scan_server.h"
#include "scanp/scan_port.h"
#include "tests/require.h"
#include "tests/session_model.h"
#include "tests/wire.h"

static q5_scan_server_t server;
static session_model_t model;

// In place of the transfer: results of all kinds.
static int32_t stub (uint32_t, int32_t command, int32_t, const uint8_t *, int32_t rxlen,
                     uint8_t *rxbuf)
{
    static constexpr int32_t results[] = {-1, -2, -3, -4, -10, 0, 1, 5, 10, 4095, 4096, 65535};
    static uint8_t next = 0;
    std::generate_n (rxbuf, rxlen, [] { return next += 37; });
    return results[uint32_t (command) % std::size (results)];
}

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
                 stub (slot, command, txlen, tx, rxlen, rx),
                 {rx, rx + rxlen}};
    transfers.push_back (t);
    return t.result;
}

// Serves the peer, and requires that what happens is what it asked for.
static void serve_peer ()
{
    const std::string message = message_of ([] { server.handle (wire_fd); });
    size_t next = 0;
    auto recorded = [&] (const bytes_t &header, const bytes_t &tx, uint8_t *rxbuf) {
        REQUIRE (next < transfers.size ());
        const transfer_t &t = transfers[next++];
        REQUIRE (t.request == header + tx);
        std::copy (t.received.begin (), t.received.end (), rxbuf);
        return t.result;
    };
    const session_model_t::outcome_t expected = model.serve (wire.sent, recorded, wire.room);
    const char *check = expected.check;
    std::string begin = check && *check ? "assertion failed. " + std::string (check) + " (" : "";
    REQUIRE_SHOWING (message.compare (0, begin.size (), begin) == 0, message + "\n" + begin);
    REQUIRE (message.empty () == begin.empty () && is_one_line (message));
    REQUIRE (next == transfers.size ());
    REQUIRE (server.owner_id == model.owner);
    REQUIRE (wire.received == expected.reply);
    REQUIRE (std::equal (model.rxbuf.begin (), model.rxbuf.end (), server.rxbuf));
}
