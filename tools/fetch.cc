#include "tools/fetch.h"

#include "scan/q5_scan_result.h"
#include "tools/parse.h"
#include "tools/session.h"
#include "tools/types.h"

#include <algorithm>
#include <set>

constexpr size_t most_field_text = 60; // characters of one field in a row
constexpr size_t most_raw_bytes = 16;

std::vector<int32_t> parse_slots (const std::vector<std::string> &texts)
{
    std::set<int32_t> slots;
    for (const std::string &text : texts) {
        slots.insert (parse_slot (text));
    }
    for (int32_t slot = 0; texts.empty () && slot < Q5_SCAN_NUM_SLOTS; slot++) {
        slots.insert (slot);
    }
    return {slots.begin (), slots.end ()};
}

std::vector<slot_report_t> fetch_slots (const q5_scan_settings_t &settings,
                                        const std::vector<int32_t> &slots,
                                        const q5_scan_types_t &types)
{
    std::vector<q5_scan_request_t> replies;
    q5_scan_fetch_t fetch;
    fetch.slots = slots;
    q5_scan_outcome_t outcome = q5_scan_fetch (settings, fetch, replies);
    if (!outcome.answered ()) {
        throw failure_of (outcome);
    }
    std::vector<slot_report_t> reports;
    for (size_t i = 0; i < slots.size (); i++) {
        const q5_scan_request_t &typed = replies[i], &raw = replies[slots.size () + i];
        reports.push_back ({slots[i], typed.result, raw.result,
                            q5_scan_decode (typed.rx.data (), typed.rx.size (), types), raw.rx});
    }
    return reports;
}

static std::string fields_text (const q5_scan_message_t &message, size_t limit)
{
    std::vector<std::string> parts;
    for (const q5_scan_field_t &field : message.fields) {
        std::string letter (1, static_cast<char> (field.letter));
        const std::string &name = field.type.name.empty () ? letter : field.type.name;
        parts.push_back (printable (name) + "=" + shortened (text_of (field), limit));
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

// The raw block as two cells: hex, and the characters beside it.
static row_t raw_cells (const slot_report_t &slot, bool full)
{
    if (slot.raw_result < 0) {
        bool is_told = slot.raw_result == slot.typed_result;
        return {is_told ? "-" : "(" + q5_scan_describe (slot.raw_result).state + ")", ""};
    }
    size_t size = full ? slot.raw.size () : std::min (slot.raw.size (), most_raw_bytes);
    std::string more;
    if (size < slot.raw.size ()) {
        more = "... " + std::to_string (slot.raw.size () - size) + " more";
    }
    bytes_t first (slot.raw.begin (), slot.raw.begin () + size);
    return {hex (first) + more, characters (first.data (), size)};
}

static row_t row_of (const slot_report_t &slot, bool full)
{
    row_t row = {std::to_string (slot.slot), q5_scan_describe (slot.typed_result).state, "-", "-",
                 "-"};
    if (slot.typed_result >= 0) {
        row[2] = std::to_string (slot.message.length);
        row[3] = printable (slot.message.letters);
        row[4] = fields_text (slot.message, full ? 0 : most_field_text);
    }
    row_t raw = raw_cells (slot, full);
    row.insert (row.end (), raw.begin (), raw.end ());
    return row;
}

std::vector<row_t> rows_of (const std::vector<slot_report_t> &slots, bool full)
{
    std::vector<row_t> rows = {{"SLOT", "STATE", "LENGTH", "TYPES", "FIELDS", "RAW", "TEXT"}};
    for (const slot_report_t &slot : slots) {
        rows.push_back (row_of (slot, full));
    }
    return rows;
}

// What a failure means, as in the outcome of a single request.
static void add_meaning (json_t &object, int32_t result, const std::string &prefix)
{
    if (result < 0) {
        object[prefix + "meaning"] = q5_scan_describe (result).meaning;
        object[prefix + "look_at"] = q5_scan_describe (result).look_at;
    }
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
    bytes_t letter_bytes (letters.begin (), letters.end ());
    json_t object = {
        {"slot", slot.slot},
        {"state", q5_scan_describe (slot.typed_result).state},
        {"result", slot.typed_result},
        {"length", slot.message.length},
        {"types", letters},
        {"types_hex", hex_digits (letter_bytes.data (), letter_bytes.size ())},
        {"fields", fields},
        {"problem", problem},
        {"left_hex", hex_digits (slot.message.left.data (), slot.message.left.size ())},
        {"raw_state", q5_scan_describe (slot.raw_result).state},
        {"raw_result", slot.raw_result},
        {"raw_hex", hex_digits (slot.raw.data (), slot.raw.size ())},
        {"raw_text", characters (slot.raw.data (), slot.raw.size ())}};
    add_meaning (object, slot.typed_result, "");
    add_meaning (object, slot.raw_result, "raw_");
    return object;
}

static int status_of (const std::vector<slot_report_t> &slots)
{
    bool failed = std::any_of (slots.begin (), slots.end (), [] (const slot_report_t &slot) {
        return slot.typed_result < 0 || slot.raw_result < 0;
    });
    return failed ? status_failed : status_ok;
}

report_t report_of (const std::vector<slot_report_t> &slots, const std::vector<row_t> &rows)
{
    report_t report;
    report.status = status_of (slots);
    for (const std::string &line : table_lines (rows)) {
        report.text += line + "\n";
    }
    report.json["slots"] = json_t::array ();
    for (const slot_report_t &slot : slots) {
        report.json["slots"].push_back (json_of (slot));
    }
    return report;
}
