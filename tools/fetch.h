// What the cards of a chassis say about themselves: the typed message and the raw block of each.
#pragma once

#include "scan/q5_scan_fetch.h"
#include "scan/q5_scan_message.h"
#include "tools/output.h"
#include "tools/report.h"

#include <stdint.h>
#include <string>
#include <vector>

struct slot_report_t {
    int32_t slot;
    int32_t typed_result;
    int32_t raw_result;
    q5_scan_message_t message;
    bytes_t raw;
};

// Fetches from the slots (each once) in one batch. Throws failure_t unless every request was
// answered; a slot that failed is an answer.
std::vector<slot_report_t> fetch_slots (const q5_scan_settings_t &settings,
                                        const std::vector<int32_t> &slots,
                                        const q5_scan_types_t &types);

// The slots named, each once and in order; all of them when none is named. Throws failure_t.
std::vector<int32_t> parse_slots (const std::vector<std::string> &texts);

// The heading and one row a slot. Fields and raw bytes are cut to a readable length unless `full`.
std::vector<row_t> rows_of (const std::vector<slot_report_t> &slots, bool full);
// The same as a report; its status is status_failed when a request failed.
report_t report_of (const std::vector<slot_report_t> &slots, const std::vector<row_t> &rows);
