// Chosen messages of chosen slots; client/message.h decodes the typed ones.
#pragma once

#include "client/batch.h"

#include <stdint.h>
#include <vector>

struct q5_scan_selection_t {
    std::vector<int32_t> slots; // 0 to 31
    std::vector<int32_t> commands = {Q5_SCAN_GET_TYPED, Q5_SCAN_GET_RAW};
    // Send each command but the first only to the slots that answered the previous one with a
    // result of 0 or more. An empty slot then costs one timeout on the bus instead of one a
    // command.
    bool only_answering = false;
};

// Fetches, and leaves in `replies` every request that was made, command by command, as far as it
// was answered: in one batch when all are asked and fit into one, else in several, between which
// other clients are served; in none when no slot is chosen. The outcome is that of the last batch,
// its num_replies those of all. Throws what q5_scan_exchange throws.
q5_scan_outcome_t q5_scan_fetch (const q5_scan_settings_t &settings,
                                 const q5_scan_selection_t &selection,
                                 std::vector<q5_scan_request_t> &replies,
                                 const q5_scan_on_reply_t &on_reply = {});
