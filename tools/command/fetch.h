// What the cards of a chassis say about themselves: the typed message and the raw block of each.
#pragma once

#include "client/fetch.h"
#include "client/message.h"
#include "tools/command/command.h"
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

// What of the slots a table shows.
struct table_style_t {
    std::vector<size_t> columns =
        {};                    // indices into the usual ones, in this order; none: all of them
    bool full = false;         // nothing is cut: no field, no raw block, no line
    bool only_present = false; // without the empty slots
};

// The chosen cells of a row with all of them.
row_t chosen (const row_t &row, const table_style_t &style);

// The heading, and the row of a slot as far as it is known.
row_t heading (const table_style_t &style = {});
row_t row_of (const slot_report_t &slot, const table_style_t &style);
bool is_shown (const slot_report_t &slot, const table_style_t &style);

// Makes the lines fit the screen, if there is one: leaves out the least important columns, unless
// they were chosen, and then cuts lines.
void fit (table_t &table, const table_style_t &style);

// For a program, without the empty slots when `only_present`. The status is that of the failure;
// else status_failed when a slot is damaged or, with `must_answer`, has no card.
report_t report_of (const fetched_t &fetched, bool must_answer, bool only_present = false);

// The words that fetch and watch have in common, as they are typed.
struct table_words_t {
    std::vector<std::string> slots;
    std::optional<std::string> types, columns;
    bool full = false, present = false;

    void add_to (CLI::App &command);
    q5_scan_types_t parsed_types () const;
    table_style_t style () const;
};
