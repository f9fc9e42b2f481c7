#include "tools/parse/types.h"

#include "scan/q5_scan_protocol.h"
#include "tools/parse/parse.h"
#include "tools/show/output.h"

#include <algorithm>
#include <charconv>
#include <math.h>
#include <sstream>

using kind_t = q5_scan_kind_t;

static const char *const example =
    "Give it like this: --types A=int,B=sshort*0.1:celsius,C=bytes:4";

[[noreturn]] static void type_failure (const std::string &what, const std::string &advice)
{
    usage_failure ("--types: " + what, advice);
}

// The text up to the mark; leaves what stands behind it, the mark included.
static std::string take_until (std::string &text, const char *marks)
{
    size_t size = std::min (text.find_first_of (marks), text.size ());
    std::string front = text.substr (0, size);
    text.erase (0, size);
    return front;
}

static kind_t parse_kind (const std::string &text)
{
    static const std::map<std::string, kind_t> kinds = {
        {"byte", kind_t::byte_field},     {"sbyte", kind_t::signed_byte_field},
        {"short", kind_t::short_field},   {"sshort", kind_t::signed_short_field},
        {"int", kind_t::int_field},       {"uint", kind_t::unsigned_int_field},
        {"string", kind_t::string_field}, {"rest", kind_t::rest_field},
        {"bytes", kind_t::bytes_field},
    };
    auto found = kinds.find (text);
    if (found == kinds.end ()) {
        type_failure ("'" + printable (text) + "' is no type",
                      "The types are byte, sbyte, short, sshort, int, uint, string, rest and "
                      "bytes:N.");
    }
    return found->second;
}

static double parse_scale (const std::string &text)
{
    double scale = 0;
    const char *end = text.data () + text.size ();
    auto [stop, error] = std::from_chars (text.data (), end, scale);
    if (error != std::errc () || stop != end || !isfinite (scale)) {
        type_failure ("scale '" + printable (text) + "' is not a number", example);
    }
    return scale;
}

// TYPE[*SCALE][:NAME]
static q5_scan_type_t parse_type (std::string text)
{
    q5_scan_type_t type;
    type.kind = parse_kind (take_until (text, "*:"));
    bool is_number = type.kind < kind_t::string_field;
    if (type.kind == kind_t::bytes_field) {
        std::string colon = text.substr (0, 1);
        text.erase (0, 1);
        type.size = parse_number ("--types: count", take_until (text, "*:"), 0, Q5_SCAN_MAX_RX);
    }
    if (!text.empty () && text[0] == '*' && is_number) {
        text.erase (0, 1);
        type.scale = parse_scale (take_until (text, ":"));
    }
    if (text.size () > 1 && text[0] == ':') {
        type.name = text.substr (1);
    } else if (!text.empty ()) {
        type_failure ("'" + printable (text) + "' is not expected here", example);
    }
    return type;
}

static std::string trimmed (const std::string &text)
{
    size_t begin = std::min (text.find_first_not_of (" \t\n"), text.size ());
    return text.substr (begin, text.find_last_not_of (" \t\n") + 1 - begin);
}

// LETTER[N]= is the front of an entry; N counts from 1.
static void add_entry (const std::string &entry, q5_scan_types_t &types)
{
    size_t equals = entry.size () > 1 ? entry.find ('=', 1) : entry.npos;
    if (equals == entry.npos || equals + 1 == entry.size ()) {
        type_failure ("'" + printable (entry) + "' is not LETTER=TYPE", example);
    }
    std::string number = entry.substr (1, equals - 1);
    std::vector<q5_scan_type_t> &fields = types[entry[0]];
    size_t at = number.empty () ? 1 : parse_number ("--types: field", number, 1, 127);
    if (at <= fields.size ()) {
        type_failure (printable (entry.substr (0, equals)) + " is given twice",
                      "Give each field of a letter one type, the first one first: h=short,h2=int.");
    }
    q5_scan_type_t type = parse_type (entry.substr (equals + 1));
    fields.resize (at - 1, fields.empty () ? type : fields.back ());
    fields.push_back (type);
}

q5_scan_types_t parse_types (const std::string &text)
{
    q5_scan_types_t types;
    std::istringstream entries (text + ",");
    for (std::string entry; std::getline (entries, entry, ',');) {
        add_entry (trimmed (entry), types);
    }
    return types;
}

// Digits as short as they can be, without a fraction where there is none.
static std::string digits_of (const q5_scan_field_t &field)
{
    if (field.type.scale == 1) {
        return std::to_string (field.number);
    }
    char text[32];
    return std::string (text, std::to_chars (text, text + sizeof (text), field.value).ptr);
}

std::string text_of (const q5_scan_field_t &field)
{
    if (field.is_number ()) {
        return digits_of (field);
    }
    return field.type.kind == kind_t::string_field ? in_quotes (field.string ())
                                                   : hex (field.bytes);
}

json_t json_of (const q5_scan_field_t &field)
{
    if (field.is_number ()) {
        return field.type.scale == 1 ? json_t (field.number) : json_t (field.value);
    }
    return field.type.kind == kind_t::string_field
               ? json_t (field.string ())
               : json_t (hex_digits (field.bytes.data (), field.bytes.size ()));
}
