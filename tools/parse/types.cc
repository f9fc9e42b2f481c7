#include "tools/parse/types.h"

#include "tools/show/output.h"

#include <stdexcept>

q5_scan_types_t parse_types (const std::string &text)
{
    try {
        return q5_scan_parse_types (text);
    } catch (std::invalid_argument &problem) {
        usage_failure (std::string ("--types: ") + printable (problem.what ()),
                       "Give it like this: --types A=int,B=sshort*0.1:celsius,C=bytes:4");
    }
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
    return field.type.kind == q5_scan_kind_t::string_field
               ? json_t (field.string ())
               : json_t (hex_digits (field.bytes.data (), field.bytes.size ()));
}
