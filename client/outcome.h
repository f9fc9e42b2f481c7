// What became of a batch.
#pragma once

#include <stdint.h>
#include <string>

enum class q5_scan_state_t {
    answered,             // every request; each has a result of its own
    unknown_host,         // the name does not resolve
    no_connection,        // `error` tells why
    dropped,              // unanswered, before a byte of a reply
    broken_off,           // in the middle of the replies, or of the sending
    timed_out_connecting, // resolving the name included
    timed_out_sending,
    timed_out_waiting, // for the rest of the reply behind `num_replies`
    cancelled          // by the settings' cancel_fd
};

// A network's failure is a value, never an exception.
struct q5_scan_outcome_t {
    q5_scan_state_t state = q5_scan_state_t::answered;
    int32_t num_replies = 0; // that came whole; the requests behind them may have run or not
    int error = 0;           // errno where the system gave one, else 0
    std::string text;        // a sentence for a person, without a full stop; "" when answered

    bool answered () const
    {
        return state == q5_scan_state_t::answered;
    }
};
