// Results of requests in words.
#pragma once

#include "tools/session.h"

#include <stdint.h>
#include <string>

// What a result of less than 0 means.
struct meaning_t {
    std::string state;   // in a few words, for a table
    std::string meaning; // what happened
    std::string look_at; // where to look for the reason
};
meaning_t meaning_of (int32_t result);

// The state of a slot in a table: "ok" for a result of 0 or more.
std::string state_of (int32_t result);

// An answered request for a person, in complete lines, sent as `id`; and for a program.
std::string text_of (const request_t &request, int32_t id);
json_t json_of (const request_t &request);
