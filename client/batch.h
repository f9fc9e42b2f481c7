// A batch of requests as values: sent by one call, which returns what became of it. Open this
// header first; the others build on it.
//
// Nothing here keeps state between calls: any number of threads may exchange batches at once, each
// with requests of its own; settings may be shared while no thread changes them. No signal is
// raised or needs handling, and an interrupted system call is continued.
#pragma once

#include "net/exception.h"
#include "scan/q5_scan_protocol.h"

#include <chrono>
#include <functional>
#include <stddef.h>
#include <stdint.h>
#include <string>
#include <vector>

// The daemon's address, the client id and the timeouts. A time of 0 or less sets no limit.
struct q5_scan_settings_t {
    std::string host = "127.0.0.1"; // name or dotted IPv4 address
    int32_t port = Q5_SCAN_PORT;    // 1 to 65535
    int32_t id = 2;                 // sent with every batch; programs that set none use 2

    // Until the connection is established, resolving the name included.
    std::chrono::milliseconds connect_timeout{0};
    // From then until the first reply is complete, sending included; then from each complete reply
    // to the next, however slowly its bytes arrive. A request takes 10 ms to 0.3 s, and before the
    // first reply the daemon finishes up to eight batches of clients that came earlier.
    std::chrono::milliseconds reply_timeout{0};
    // For the whole call: every connection, batch, retry and pause of it.
    std::chrono::milliseconds total_timeout{0};
    // How long to retry a dropped batch while the bus is claimed by another id. A daemon that died
    // during the first request looks the same, so that request may run more than once: a claim
    // uses this to take the bus, and then clears it.
    std::chrono::milliseconds wait{0};
    // Ends the call as soon as this descriptor is readable, and is not read: the end of a pipe into
    // which a signal handler or another thread writes. -1: none.
    int32_t cancel_fd = -1;
    // Whether each batch begins with a claim by `id`, whose reply is checked and not shown, so that
    // no request runs on a bus that is not ours: a daemon that restarted is claimed again, and one
    // that another id holds drops the batch. Leaves MAX_REQUESTS - 1 requests. Set by
    // q5_scan_claim_t, which also releases the bus.
    bool claims = false;
};

struct q5_scan_request_t {
    int32_t slot = 0;               // 0 to 31
    int32_t command = 0;            // claim, release, or a command of the card
    std::vector<uint8_t> tx = {};   // at most Q5_SCAN_MAX_TX bytes, all requests together
    int32_t rxlen = Q5_SCAN_MAX_RX; // bytes wanted back, 0 to Q5_SCAN_MAX_RX

    // Written by an exchange; nothing of an earlier exchange remains.
    bool answered = false;
    int32_t result = 0;           // bytes received, or less than 0: see client/result.h
    std::vector<uint8_t> rx = {}; // min (result, rxlen) bytes
};

enum class q5_scan_state_t {
    answered,             // every request; each has a result of its own
    unknown_host,         // the name does not resolve
    no_connection,        // `error` says why
    dropped,              // unanswered, before a byte of a reply
    broken_off,           // in the middle of the replies, or of the sending
    timed_out_connecting, // resolving the name included
    timed_out_sending,
    timed_out_waiting, // for the rest of the reply after the first `num_replies`
    cancelled          // by the settings' cancel_fd
};

// What became of a batch. A network failure is a value, never an exception.
struct q5_scan_outcome_t {
    q5_scan_state_t state = q5_scan_state_t::answered;
    int32_t num_replies = 0; // complete ones; the requests after them may have run or not
    int error = 0;           // errno where the system gave one, else 0
    std::string text;        // a sentence for a person, without a full stop; "" when answered

    bool answered () const
    {
        return state == q5_scan_state_t::answered;
    }
};

// Claim and release, which want nothing back; and the short message to a slot: `first`, `second`
// and at most Q5_SCAN_MAX_SHORT more bytes, or exception_t is thrown.
constexpr size_t Q5_SCAN_MAX_SHORT = 27;
q5_scan_request_t q5_scan_claim_request ();
q5_scan_request_t q5_scan_release_request ();
q5_scan_request_t q5_scan_short_request (int32_t slot, uint8_t first, uint8_t second,
                                         const std::vector<uint8_t> &bytes);

// Called for each request as soon as its reply is complete. May throw: the connection is closed and
// the exception passes through.
using q5_scan_on_reply_t = std::function<void (q5_scan_request_t &)>;

// Sends the requests as one batch with one write and fills in those that are answered, in order.
// Returns within its limits whatever the network does, with no descriptor left open. Throws
// exception_t, before anything is sent, unless the daemon would accept the batch: 1 to MAX_REQUESTS
// requests, slots, lengths and the sum of the transmit lengths within the limits; and for a port
// out of range.
q5_scan_outcome_t q5_scan_exchange (const q5_scan_settings_t &settings,
                                    std::vector<q5_scan_request_t> &requests,
                                    const q5_scan_on_reply_t &on_reply = {});
