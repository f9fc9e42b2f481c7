// A batch of requests as values: sent in one call, answered with an outcome.
//
// Objects are independent and hold no state of the process: any number of threads may exchange
// batches at once, each with requests of its own; settings may be shared while nobody changes them.
// No signal is raised or needs handling, and an interrupted system call is continued.
#pragma once

#include "client/outcome.h"
#include "net/exception.h"
#include "scan/q5_scan_protocol.h"

#include <chrono>
#include <functional>
#include <stddef.h>
#include <stdint.h>
#include <string>
#include <vector>

// Whom to talk to, as whom, and for how long. A time of 0 or less is none.
struct q5_scan_settings_t {
    std::string host = "127.0.0.1"; // name or dotted IPv4 address
    int32_t port = Q5_SCAN_PORT;    // 1 to 65535
    int32_t id = 2;                 // sent with every batch; every program that sets none is 2

    // Until the connection stands, resolving the name included.
    std::chrono::milliseconds connect_timeout{0};
    // From there until the first reply is whole, sending included; then from each whole reply to
    // the next, however slowly its bytes come. A request takes up to 0.2 s, and before the first
    // reply the daemon finishes the batches of those who came earlier.
    std::chrono::milliseconds reply_timeout{0};
    // How long to send a dropped batch again and again: until the holder of the bus releases it. A
    // daemon that ended while it worked on the first request looks the same, so that one may run
    // twice.
    std::chrono::milliseconds wait{0};
    // A descriptor that ends the call as soon as it can be read, and is not read: the end of a pipe
    // into which a signal handler or another thread writes. -1: none.
    int32_t cancel_fd = -1;
};

struct q5_scan_request_t {
    int32_t slot = 0;               // 0 to 31
    int32_t command = 0;            // claim, release, or a command of the card
    std::vector<uint8_t> tx = {};   // at most Q5_SCAN_MAX_TX bytes, all requests together
    int32_t rxlen = Q5_SCAN_MAX_RX; // bytes wanted back, 0 to Q5_SCAN_MAX_RX

    // What an exchange leaves: nothing of an exchange before.
    bool answered = false;
    int32_t result = 0;           // bytes received, or less than 0: see client/result.h
    std::vector<uint8_t> rx = {}; // min (result, rxlen) bytes
};

// Claim and release, which want nothing back; and the short message to a slot: `first`, `second`
// and at most Q5_SCAN_MAX_SHORT bytes more, or exception_t is thrown.
constexpr size_t Q5_SCAN_MAX_SHORT = 27;
q5_scan_request_t q5_scan_claim_request ();
q5_scan_request_t q5_scan_release_request ();
q5_scan_request_t q5_scan_short_request (int32_t slot, uint8_t first, uint8_t second,
                                         const std::vector<uint8_t> &bytes);

// Called for each request as soon as its reply is whole. May throw: the connection is closed and
// the exception passes.
using q5_scan_on_reply_t = std::function<void (q5_scan_request_t &)>;

// Sends the requests as one batch with one write and fills in those that are answered, in order.
// Returns within its time-outs whatever the network does, with no descriptor left open. Throws
// exception_t, before anything is sent, unless the daemon would accept the batch: 1 to MAX_REQUESTS
// requests, slots, lengths and the sum of the transmit lengths within the limits; and for a port
// out of range.
q5_scan_outcome_t q5_scan_exchange (const q5_scan_settings_t &settings,
                                    std::vector<q5_scan_request_t> &requests,
                                    const q5_scan_on_reply_t &on_reply = {});
