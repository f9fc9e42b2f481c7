#include "tools/parse/types.h"

#include "tools/parse/files.h"
#include "tools/parse/parse.h"

#include <sstream>
#include <stdexcept>

static q5_scan_types_t types_of (const std::string &text)
{
    try {
        return q5_scan_parse_types (text);
    } catch (std::invalid_argument &problem) {
        usage_failure (std::string ("--types: ") + printable (problem.what ()),
                       "Give it like this: A=int,B=sshort*0.1:celsius,C=bytes:4");
    }
}

card_types_t read_types (std::istream &text, const std::string &file)
{
    card_types_t types = {q5_scan_usual_types ()};
    read_lines (text, file, [&] (const std::string &line) {
        std::istringstream words (line);
        std::string slots, rest;
        words >> slots;
        std::getline (words, rest);
        for (int32_t slot : parse_slots ({slots})) {
            q5_scan_types_t &known = types.of_slot.emplace (slot, types.usual).first->second;
            for (const auto &[letter, fields] : types_of (rest)) {
                known[letter] = fields;
            }
        }
    });
    return types;
}

card_types_t parse_types (const std::string &text)
{
    if (text[0] != '@') {
        return {types_of (text)};
    }
    const std::string path = text.substr (1);
    std::istringstream lines (read_file (path, most_lines));
    return read_types (lines, shown_name (path));
}

std::string text_of (const q5_scan_field_t &field)
{
    bool is_string = field.type.kind == q5_scan_kind_t::string_field;
    return is_string ? in_quotes (field.string ()) : field.text ();
}

json_t json_of (const q5_scan_field_t &field)
{
    if (field.is_number ()) {
        return field.type.scale == 1 ? json_t (field.number) : json_t (field.value);
    }
    return field.type.kind == q5_scan_kind_t::string_field ? json_t (field.string ())
                                                           : json_t (hex_digits (field.bytes));
}
