#include "tools/command/fetch.h"

#include "client/result.h"
#include "tools/parse/parse.h"
#include "tools/session.h"
#include "tools/show/progress.h"
#include "tools/show/terminal.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>
#include <memory>

constexpr size_t most_field_text = 60; // characters of one field in a row
constexpr size_t most_raw_bytes = 16;

bool slot_report_t::is_empty () const
{
    return typed_result && q5_scan_is_empty (slot, *typed_result);
}

bool slot_report_t::is_damaged () const
{
    return (typed_result && q5_scan_is_damaged (slot, *typed_result)) ||
           (raw_result && q5_scan_is_damaged (slot, *raw_result)) || !message.adds_up ();
}

fetched_t fetch_slots (const q5_scan_settings_t &settings, const std::vector<int32_t> &slots,
                       const card_types_t &types, const q5_scan_on_reply_t &on_reply)
{
    q5_scan_selection_t selection;
    selection.slots = slots;
    selection.only_answering = true;
    std::vector<q5_scan_request_t> replies;
    q5_scan_outcome_t outcome = q5_scan_fetch (settings, selection, replies, on_reply);
    fetched_t fetched;
    std::map<int32_t, size_t> places;
    for (int32_t slot : slots) {
        places[slot] = fetched.slots.size ();
        fetched.slots.push_back ({slot, {}, {}});
    }
    for (const q5_scan_request_t &reply : replies) {
        slot_report_t &slot = fetched.slots[places[reply.slot]];
        if (reply.answered && reply.command == Q5_SCAN_GET_TYPED) {
            slot.typed_result = reply.result;
            slot.message = q5_scan_decode (reply.rx, types.of (reply.slot));
        } else if (reply.answered) {
            slot.raw_result = reply.result;
            slot.raw = reply.rx;
        }
    }
    if (!outcome.answered ()) {
        fetched.failure = failure_of (outcome);
    }
    return fetched;
}

static std::string fields_text (const q5_scan_message_t &message, size_t limit)
{
    std::vector<std::string> parts;
    for (const q5_scan_field_t &field : message.fields) {
        parts.push_back (printable (field.name ()) + "=" + shortened (text_of (field), limit));
    }
    if (!message.problem.empty ()) {
        parts.push_back ("problem: " + message.problem + ";");
    }
    if (!message.left.empty ()) {
        parts.push_back ("left: " + shortened (hex (message.left), limit));
    }
    std::string text;
    for (const std::string &part : parts) {
        text += (text.empty () ? "" : " ") + part;
    }
    return text;
}

// The raw block as two cells: hex and characters.
static row_t raw_cells (const slot_report_t &slot, bool full)
{
    if (!slot.raw_result) {
        return {"-", ""};
    }
    if (*slot.raw_result < 0) {
        return {"(" + q5_scan_describe (*slot.raw_result).state + ")", ""};
    }
    size_t size = full ? slot.raw.size () : std::min (slot.raw.size (), most_raw_bytes);
    const bytes_t first (slot.raw.begin (), slot.raw.begin () + size);
    const size_t more = slot.raw.size () - size;
    return {hex (first) + (more > 0 ? "... " + std::to_string (more) + " more" : ""),
            characters (first)};
}

static std::string state_of (std::optional<int32_t> result, const char *unknown)
{
    return result ? q5_scan_describe (*result).state : unknown;
}

static row_t row_of (const slot_report_t &slot, const table_style_t &style)
{
    row_t row = {std::to_string (slot.slot), state_of (slot.typed_result, "not answered"), "-", "-",
                 "-"};
    if (slot.typed_result && *slot.typed_result >= 0) {
        row[2] = std::to_string (slot.message.length);
        row[3] = printable (slot.message.letters);
        row[4] = fields_text (slot.message, style.full ? 0 : most_field_text);
    }
    row_t raw = raw_cells (slot, style.full);
    row.insert (row.end (), raw.begin (), raw.end ());
    return row;
}

std::vector<row_t> rows_of (const std::vector<slot_report_t> &slots, const table_style_t &style)
{
    std::vector<row_t> rows;
    auto add = [&] (const row_t &row) {
        row_t cells;
        for (size_t column : style.columns) {
            cells.push_back (row[column]);
        }
        rows.push_back (style.columns.empty () ? row : cells);
    };
    add ({"SLOT", "STATE", "LENGTH", "TYPES", "FIELDS", "RAW", "TEXT"});
    for (const slot_report_t &slot : slots) {
        if (!style.only_present || !slot.is_empty ()) {
            add (row_of (slot, style));
        }
    }
    return rows;
}

std::vector<std::string> lines_of (const std::vector<row_t> &rows, const table_style_t &style)
{
    const std::vector<size_t> least_first = {6, 2, 3, 5}; // TEXT, LENGTH, TYPES, RAW
    return table_lines (rows, style.full ? 0 : output_width (),
                        style.columns.empty () ? least_first : std::vector<size_t> ());
}

// What a failure means, as in the outcome of a single request.
static void add_meaning (json_t &object, std::optional<int32_t> result, const std::string &prefix)
{
    if (result && *result < 0) {
        object[prefix + "meaning"] = q5_scan_describe (*result).meaning;
        object[prefix + "look_at"] = q5_scan_describe (*result).look_at;
    }
}

static json_t json_of (std::optional<int32_t> result)
{
    return result ? json_t (*result) : json_t ();
}

static json_t json_of (const slot_report_t &slot)
{
    json_t fields = json_t::array ();
    for (const q5_scan_field_t &field : slot.message.fields) {
        std::string letter (1, static_cast<char> (field.letter));
        fields.push_back ({{"letter", letter}, {"value", json_of (field)}});
        if (!field.type.name.empty ()) {
            fields.back ()["name"] = field.type.name;
        }
    }
    json_t problem;
    if (!slot.message.problem.empty ()) {
        problem = slot.message.problem;
    }
    const std::string &letters = slot.message.letters;
    json_t object = {{"slot", slot.slot},
                     {"state", state_of (slot.typed_result, "not answered")},
                     {"result", json_of (slot.typed_result)},
                     {"length", slot.message.length},
                     {"types", letters},
                     {"types_hex", hex_digits ({letters.begin (), letters.end ()})},
                     {"fields", fields},
                     {"problem", problem},
                     {"left_hex", hex_digits (slot.message.left)},
                     {"raw_state", state_of (slot.raw_result, "not asked")},
                     {"raw_result", json_of (slot.raw_result)},
                     {"raw_hex", hex_digits (slot.raw)},
                     {"raw_text", characters (slot.raw)}};
    add_meaning (object, slot.typed_result, "");
    add_meaning (object, slot.raw_result, "raw_");
    return object;
}

report_t report_of (const fetched_t &fetched, bool must_answer, bool only_present)
{
    report_t report = fetched.failure ? report_of (*fetched.failure) : report_t ();
    report.json["slots"] = json_t::array ();
    for (const slot_report_t &slot : fetched.slots) {
        if (!only_present || !slot.is_empty ()) {
            report.json["slots"].push_back (json_of (slot));
        }
        bool is_wrong = slot.is_damaged () || (must_answer && slot.is_empty ());
        report.status = is_wrong && !report.failure ? status_failed : report.status;
    }
    return report;
}

static std::vector<size_t> parse_columns (const std::string &text)
{
    const row_t names = {"slot", "state", "length", "types", "fields", "raw", "text"};
    std::vector<size_t> columns;
    for (const std::string &part : split ({text})) {
        auto found = std::find (names.begin (), names.end (), part);
        if (found == names.end ()) {
            usage_failure ("--columns '" + printable (part) + "' is not a column",
                           "The columns are slot, state, length, types, fields, raw and text.");
        }
        columns.push_back (found - names.begin ());
    }
    return columns;
}

void add_types (CLI::App &command, std::optional<std::string> &types)
{
    command
        .add_option ("--types", types,
                     "what the letters mean, LETTER[N]=TYPE[*SCALE][:NAME],...; types: byte, "
                     "sbyte, short, sshort, int, uint, string, rest, bytes:N (default: "
                     "b=byte,h=short,i=int,s=string,x=rest); or @FILE: SLOTS TYPES a line")
        ->type_name ("TYPES");
}

void table_words_t::add_to (CLI::App &command)
{
    command.add_option ("SLOT", slots, "0 to 31, or 3-7,23; none: all slots");
    add_types (command, types);
    command
        .add_option ("--columns", columns,
                     "what to show, comma-separated: slot, state, length, types, fields, raw, text")
        ->type_name ("LIST");
    command.add_flag ("--full", full, "cut nothing in the table");
    command.add_flag ("--present", present, "leave out the slots without a card");
}

card_types_t table_words_t::parsed_types () const
{
    return types ? parse_types (*types) : card_types_t{q5_scan_usual_types ()};
}

table_style_t table_words_t::style () const
{
    return {columns ? parse_columns (*columns) : std::vector<size_t> (), full, present};
}

static report_t fetch (const globals_t &globals, const table_words_t &words)
{
    const table_style_t style = words.style ();
    const std::vector<int32_t> slots = parse_slots (words.slots);
    const card_types_t types = words.parsed_types ();
    interruptible_t session (globals);
    progress_t progress (slots.size ());
    fetched_t fetched =
        fetch_slots (session.settings, slots, types, [&progress] (q5_scan_request_t &r) {
            progress.advance (r.command == Q5_SCAN_GET_TYPED);
        });
    report_t report = report_of (fetched, !words.slots.empty (), style.only_present);
    if (progress.has_begun ()) {
        report.text = joined (lines_of (rows_of (fetched.slots, style), style));
    }
    return report;
}

void add_fetch (command_line_t &line)
{
    auto words = std::make_shared<table_words_t> ();
    words->add_to (
        add_command (line, "fetch", "show what the cards say, as a table",
                     [&globals = line.globals, words] () { return fetch (globals, *words); }));
}
