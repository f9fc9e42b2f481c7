// The chassis table, again and again.
#pragma once

#include "tools/command/fetch.h"
#include "tools/session.h"

#include <chrono>
#include <stdint.h>
#include <string>
#include <vector>

struct watch_options_t {
    std::vector<int32_t> slots;
    q5_scan_types_t types;
    bool full = false;
    bool only_present = false;                // leave out the empty slots
    bool must_answer = false;                 // an empty slot is a failure
    std::chrono::milliseconds interval{1000}; // between the end of a round and the next
    int32_t count = 0;                        // rounds; 0: until Ctrl-C
};

// Fetches and shows rounds: in place on a terminal, one table behind the other elsewhere. A row
// that differs from the round before begins with "*". Ends after `count` rounds with the status of
// the last one, or on Ctrl-C with 0. A first round that fails ends it; a later one is shown, and
// the next one tried. As JSON it is one object a round, each on its own line.
report_t watch (const globals_t &globals, const watch_options_t &options);

// The table, with a column before it that marks the rows (but the heading) that are not in
// `before`.
std::vector<std::string> marked_lines (const std::vector<row_t> &before,
                                       const std::vector<row_t> &rows);
