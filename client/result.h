// What the results of requests mean.
#pragma once

#include "client/batch.h"

#include <stdint.h>
#include <string>

struct q5_scan_meaning_t {
    std::string state;   // in a few words, for a table; "ok" for a result of 0 or more
    std::string meaning; // what happened
    std::string look_at; // where to look for the reason; "" when nothing is wrong
};

// A result of a card's command.
q5_scan_meaning_t q5_scan_describe (int32_t result);

// The result of a request: a claim and a release have results of their own, and one that was never
// answered is "not answered".
q5_scan_meaning_t q5_scan_describe (const q5_scan_request_t &request);

// Whether it was answered with a failure: a result below 0, of a claim or release below 1.
bool q5_scan_has_failed (const q5_scan_request_t &request);

// What the result of a card's command says about its slot. Empty: nothing answers, or no such slot
// exists. Damaged: something is there and does not work, which is every other result below 0.
bool q5_scan_is_empty (int32_t slot, int32_t result);
bool q5_scan_is_damaged (int32_t slot, int32_t result);
// The same of a request that was answered; neither of one that was not.
bool q5_scan_is_empty (const q5_scan_request_t &request);
bool q5_scan_is_damaged (const q5_scan_request_t &request);
