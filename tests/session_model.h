// A session as it is documented for clients: which check refuses the batch, which transfers are
// run, who holds the bus afterwards, and each byte of the reply.
#pragma once

#include "tests/support.h"

#include <functional>

struct session_model_t {
    int32_t owner = 0;              // the id that holds the bus; 0: nobody
    bytes_t rxbuf = bytes_t (4097); // what transfers left there

    // A request's 16 bytes and its transmit bytes: fills rxbuf, returns the result.
    using transfer_t =
        std::function<int32_t (const bytes_t &header, const bytes_t &tx, uint8_t *rxbuf)>;

    struct outcome_t {
        const char *check; // that ends it; "" for a client that is dropped without one, or null
        bytes_t reply;
    };

    // All that the client sends before it ends its stream; `room` bytes of the reply, after which
    // it is gone.
    outcome_t serve (const bytes_t &sent, const transfer_t &transfer, size_t room = SIZE_MAX)
    {
        outcome_t outcome{refusal (sent), {}};
        bytes_t &reply = outcome.reply;
        size_t tx = 8 + 16 * word (sent, 1);
        for (int64_t i = 2; outcome.check == nullptr && i < 2 + 4 * word (sent, 1); i += 4) {
            int64_t command = word (sent, i + 1), rxlen = word (sent, i + 2), result = 1;
            auto header = sent.begin () + 4 * i, bytes = sent.begin () + tx;
            tx += word (sent, i + 3);
            if (command == 1 || command == 2) {
                owner = command == 1 ? word (sent, 0) : 0;
            } else {
                result =
                    transfer ({header, header + 16}, {bytes, sent.begin () + tx}, rxbuf.data ());
            }
            append_word (reply, result);
            size_t length = std::max<int64_t> (std::min (result, rxlen), 0);
            outcome.check = reply.size () > room            ? "q5_scan_server.cc:121"
                            : reply.size () + length > room ? "q5_scan_server.cc:129"
                                                            : nullptr;
            reply.insert (reply.end (), rxbuf.begin (), rxbuf.begin () + length);
        }
        reply.resize (std::min (reply.size (), room));
        return outcome;
    }

  private:
    static int64_t word (const bytes_t &sent, size_t i)
    {
        uint32_t value = 0;
        for (size_t at = 4 * i; at < 4 * i + 4; at++) {
            value = value << 8 | (at < sent.size () ? sent[at] : 0);
        }
        return static_cast<int32_t> (value);
    }

    const char *refusal (const bytes_t &sent) const
    {
        int64_t size = sent.size (), count = word (sent, 1), end = 8 + 16 * count, sum = 0;
        const char *check = size < 4                                ? "q5_scan_server.cc:61"
                            : owner != 0 && word (sent, 0) != owner ? ""
                            : size < 8                              ? "q5_scan_server.cc:68"
                            : count > 100                           ? "q5_scan_server.cc:72"
                            : count < 1                             ? "kp_literate.cc:12"
                            : size < end                            ? "q5_scan_server.cc:75"
                                                                    : nullptr;
        for (int64_t i = 2; check == nullptr && i < 2 + 4 * count; i += 4) {
            int64_t slot = word (sent, i), rxlen = word (sent, i + 2), txlen = word (sent, i + 3);
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
};
