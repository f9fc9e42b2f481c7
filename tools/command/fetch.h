// What the cards of a chassis say about themselves: the typed message and the raw block of each.
#pragma once

#include "client/fetch.h"
#include "client/message.h"
#include "tools/show/output.h"
#include "tools/show/report.h"

#include <functional>
#include <optional>
#include <stdint.h>
#include <string>
#include <vector>

// One slot. The raw block is asked only of a slot whose typed message came.
struct slot_report_t {
    int32_t slot;
    std::optional<int32_t> typed_result; // nothing: not answered yet
    std::optional<int32_t> raw_result;
    q5_scan_message_t message = {};
    bytes_t raw = {};

    bool is_whole () const
    {
        return typed_result && (*typed_result < 0 || raw_result);
    }
    // No card: nothing answers, or there is no such slot.
    bool is_empty () const;
    // Something is there and is not right: a failure other than silence, a message that does not
    // add up.
    bool is_damaged () const;
};

struct fetched_t {
    std::vector<slot_report_t> slots; // all that were asked for, in order
    std::optional<failure_t> failure; // why some of them are not whole
};

// Called with all of them whenever one of the slots knows more.
using on_slot_t = std::function<void (const std::vector<slot_report_t> &)>;

// Fetches from the slots, each named once. A slot that failed is an answer.
fetched_t fetch_slots (const q5_scan_settings_t &settings, const std::vector<int32_t> &slots,
                       const q5_scan_types_t &types, const on_slot_t &on_slot = {});

// The heading, and the row of a slot as far as it is known. Fields and raw bytes are cut to a
// readable length unless `full`.
row_t heading ();
row_t row_of (const slot_report_t &slot, bool full);

// For a program, without the empty slots when `only_present`. The status is that of the failure;
// else status_failed when a slot is damaged or, with `must_answer`, has no card.
report_t report_of (const fetched_t &fetched, bool must_answer, bool only_present = false);
