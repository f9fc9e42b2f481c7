// The scan request protocol on TCP port 1971: one connection carries one batch.
//
//   batch   = id num_requests request*num_requests transmit-bytes
//   request = slot command rxlen txlen                 (scan_request_t)
//   reply   = (result data)*                           one for each request, as it finishes
//
// Every integer is a signed 32-bit big-endian word. The transmit bytes of all requests follow the
// last header, in header order, with nothing between them. `data` is min (result, rxlen) bytes when
// that is more than 0, else nothing. A refused batch is answered with the end of the stream alone.
#pragma once

#include "base/big_endian.h"

#include <stddef.h>
#include <stdint.h>

#define Q5_SCAN_PORT 1971
#define Q5_SCAN_NUM_SLOTS 32
#define Q5_SCAN_MAX_TX 4094 // bytes of one request, and of a whole batch
#define Q5_SCAN_MAX_RX 4096 // bytes of one request
#define MAX_REQUESTS 100    // of one batch

// Commands that the daemon carries out itself; every other goes to the slot.
constexpr int32_t Q5_SCAN_CLAIM = 1;
constexpr int32_t Q5_SCAN_RELEASE = 2;

// Commands of the cards that the client side knows by number.
constexpr int32_t Q5_SCAN_GET_TYPED = 51;   // answered with a typed message
constexpr int32_t Q5_SCAN_GET_RAW = 83;     // answered with a raw block
constexpr int32_t Q5_SCAN_SEND_SHORT = 147; // transmits a short message

// Results of a request: the number of bytes received, or one of these. A claim or a release answers
// 1, or -1 when another id holds the bus.
constexpr int32_t Q5_SCAN_LINE_ERROR = -1;  // the answer was damaged
constexpr int32_t Q5_SCAN_NO_SLOT = -2;     // no such slot, or its receive line is low
constexpr int32_t Q5_SCAN_NO_ANSWER = -3;   // sent, but no answer was complete in time
constexpr int32_t Q5_SCAN_BAD_ADDRESS = -4; // the answer came to the second address
constexpr int32_t Q5_SCAN_NOT_SENT = -10;   // the request was not sent in time

// Whether the bus reaches the slot: 21, 22, 25, 26 and 31 have no code on it.
constexpr bool q5_scan_slot_exists (int32_t slot)
{
    bool has_no_code = slot == 21 || slot == 22 || slot == 25 || slot == 26 || slot == 31;
    return slot >= 0 && slot < Q5_SCAN_NUM_SLOTS && !has_no_code;
}

struct scan_request_t {
    be32_t slot;    // 0 to 31
    be32_t command; // claim, release, or a command of the card
    be32_t rxlen;   // bytes wanted back, 0 to Q5_SCAN_MAX_RX
    be32_t txlen;   // bytes of this request among the transmit bytes, 0 to Q5_SCAN_MAX_TX
};
static_assert (sizeof (scan_request_t) == 16);
static_assert (offsetof (scan_request_t, rxlen) == 8 && offsetof (scan_request_t, txlen) == 12);
