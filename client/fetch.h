// Chosen messages of chosen slots. client/message.h takes the typed ones apart.
#pragma once

#include "client/batch.h"

#include <stdint.h>
#include <vector>

struct q5_scan_fetch_t {
    std::vector<int32_t> slots; // 0 to 31
    std::vector<int32_t> commands = {Q5_SCAN_GET_TYPED, Q5_SCAN_GET_RAW};
    // Ask each command but the first only of the slots that answered the one before with a result
    // of 0 or more. An empty slot then costs one time-out on the bus instead of one a command.
    bool only_answering = false;
};

// The same slots and commands as requests, command by command.
std::vector<q5_scan_request_t> q5_scan_fetch_requests (const q5_scan_fetch_t &fetch);

// Fetches, and leaves in `replies` every request that was made, command by command, as far as it
// was answered: in one batch when all are asked and at most MAX_REQUESTS, else in several, between
// which other clients are served; in none when no slot is chosen. The outcome is the last batch's,
// its num_replies those of all. Throws what q5_scan_exchange throws.
q5_scan_outcome_t q5_scan_fetch (const q5_scan_settings_t &settings, const q5_scan_fetch_t &fetch,
                                 std::vector<q5_scan_request_t> &replies,
                                 const q5_scan_on_reply_t &on_reply = {});
