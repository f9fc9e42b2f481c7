// What the letters of a typed message mean, as a person types it, and fields as they are shown.
#pragma once

#include "client/message.h"
#include "tools/show/report.h"

#include <istream>
#include <map>
#include <string>

struct card_types_t {
    q5_scan_types_t usual;
    std::map<int32_t, q5_scan_types_t> of_slot = {};

    const q5_scan_types_t &of (int32_t slot) const
    {
        auto found = of_slot.find (slot);
        return found == of_slot.end () ? usual : found->second;
    }
};

// What q5_scan_parse_types reads, for all slots; or @FILE. Throws failure_t.
card_types_t parse_types (const std::string &text);

// Lines of a list of slots and the types of their letters; a letter without one has its usual type.
// Throws failure_t with `file` and the line for the first thing that is wrong.
card_types_t read_types (std::istream &text, const std::string &file);

// For a person; and for a program: a number, a text, or bytes in hex.
std::string text_of (const q5_scan_field_t &field);
json_t json_of (const q5_scan_field_t &field);
