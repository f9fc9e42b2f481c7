// Results of requests in words.
#pragma once

#include "scan/q5_scan_batch.h"

#include <stdint.h>
#include <string>

struct q5_scan_meaning_t {
    std::string state;   // in a few words, for a table; "ok" for a result of 0 or more
    std::string meaning; // what happened
    std::string look_at; // where to look for the reason; "" when nothing is wrong
};

// A result of a card's command.
q5_scan_meaning_t q5_scan_describe (int32_t result);

// The result of an answered request: a claim and a release have results of their own.
q5_scan_meaning_t q5_scan_describe (const q5_scan_request_t &request);
