// What the cards of a chassis say about themselves: the typed message and the raw block of each.
#pragma once

#include "client/fetch.h"
#include "client/message.h"
#include "tools/command/command.h"
#include "tools/parse/types.h"
#include "tools/show/output.h"
#include "tools/show/report.h"

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

// Fetches from the slots, each named once. A slot that failed is an answer.
fetched_t fetch_slots (const q5_scan_settings_t &settings, const std::vector<int32_t> &slots,
                       const card_types_t &types, const q5_scan_on_reply_t &on_reply = {});

// What of the slots a table shows.
struct table_style_t {
    // Indices into the usual ones, in this order; none: all of them.
    std::vector<size_t> columns = {};
    bool full = false;         // nothing is cut: no field, no raw block, no line
    bool only_present = false; // without the empty slots
};

// The rows of a table, the heading first.
std::vector<row_t> rows_of (const std::vector<slot_report_t> &slots, const table_style_t &style);

// Lines that fit the screen, if there is one: the least important columns are left out, unless they
// were chosen.
std::vector<std::string> lines_of (const std::vector<row_t> &rows, const table_style_t &style);

// For a program, without the empty slots when `only_present`. The status is that of the failure;
// else status_failed when a slot is damaged or, with `must_answer`, has no card.
report_t report_of (const fetched_t &fetched, bool must_answer, bool only_present = false);

// Adds the option --types.
void add_types (CLI::App &command, std::optional<std::string> &types);

// The words that fetch and watch have in common, as they are typed.
struct table_words_t {
    std::vector<std::string> slots;
    std::optional<std::string> types, columns;
    bool full = false, present = false;

    void add_to (CLI::App &command);
    card_types_t parsed_types () const;
    table_style_t style () const;
};
