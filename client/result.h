// Results of requests in words.
#pragma once

#include "client/batch.h"

#include <stdint.h>
#include <string>

struct q5_scan_meaning_t {
    std::string state;   // in a few words, for a table; "ok" for a result of 0 or more
    std::string meaning; // what happened
    std::string look_at; // where to look for the reason; "" when nothing is wrong
};

// Whether the bus reaches the slot at all: 21, 22, 25, 26 and 31 have no code on it.
bool q5_scan_slot_exists (int32_t slot);

// A result of a card's command.
q5_scan_meaning_t q5_scan_describe (int32_t result);

// The result of an answered request: a claim and a release have results of their own.
q5_scan_meaning_t q5_scan_describe (const q5_scan_request_t &request);
