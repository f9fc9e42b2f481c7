#include "client/types.h"

#include "scan/q5_scan_protocol.h"

#include <algorithm>
#include <charconv>
#include <math.h>
#include <stdexcept>

using kind_t = q5_scan_kind_t;

q5_scan_types_t q5_scan_usual_types ()
{
    return q5_scan_parse_types ("b=byte,h=short,i=int,s=string,x=rest");
}

static std::string quoted (std::string_view text)
{
    return "'" + std::string (text) + "'";
}

[[noreturn]] static void fail (const std::string &what)
{
    throw std::invalid_argument (what);
}

// The text up to one of the marks; leaves the rest, the mark included.
static std::string_view take_until (std::string_view &text, const char *marks)
{
    std::string_view front = text.substr (0, text.find_first_of (marks));
    text.remove_prefix (front.size ());
    return front;
}

static bool take_mark (std::string_view &text, char mark)
{
    bool is_there = !text.empty () && text[0] == mark;
    text.remove_prefix (is_there);
    return is_there;
}

template <typename number_t> static bool read_number (std::string_view text, number_t *number)
{
    const char *end = text.data () + text.size ();
    auto [stop, error] = std::from_chars (text.data (), end, *number);
    return error == std::errc () && stop == end;
}

static int32_t read_count (const char *name, std::string_view text, int32_t least, int32_t most)
{
    int32_t count = 0;
    if (!read_number (text, &count) || count < least || count > most) {
        fail (std::string (name) + " " + quoted (text) + " is not a number from " +
              std::to_string (least) + " to " + std::to_string (most));
    }
    return count;
}

static kind_t read_kind (std::string_view text)
{
    static const std::map<std::string_view, kind_t> kinds = {
        {"byte", kind_t::byte_field},     {"sbyte", kind_t::signed_byte_field},
        {"short", kind_t::short_field},   {"sshort", kind_t::signed_short_field},
        {"int", kind_t::int_field},       {"uint", kind_t::unsigned_int_field},
        {"string", kind_t::string_field}, {"rest", kind_t::rest_field},
        {"bytes", kind_t::bytes_field},
    };
    auto found = kinds.find (text);
    if (found == kinds.end ()) {
        fail (quoted (text) +
              " is not a type: byte, sbyte, short, sshort, int, uint, string, rest or bytes:N");
    }
    return found->second;
}

static double read_scale (std::string_view text)
{
    double scale = 0;
    if (!read_number (text, &scale) || !isfinite (scale)) {
        fail ("scale " + quoted (text) + " is not a number");
    }
    return scale;
}

// TYPE[*SCALE][:NAME]
static q5_scan_type_t read_type (std::string_view text)
{
    q5_scan_type_t type;
    type.kind = read_kind (take_until (text, "*:"));
    if (type.kind == kind_t::bytes_field) {
        take_mark (text, ':');
        type.size = read_count ("count", take_until (text, "*:"), 0, Q5_SCAN_MAX_RX);
    }
    if (type.kind < kind_t::string_field && take_mark (text, '*')) {
        type.scale = read_scale (take_until (text, ":"));
    }
    if (text.size () > 1 && take_mark (text, ':')) {
        type.name = text;
    } else if (!text.empty ()) {
        fail (quoted (text) + " is not expected here");
    }
    return type;
}

static std::string_view trimmed (std::string_view text)
{
    const char *const blanks = " \t\n";
    text.remove_prefix (std::min (text.find_first_not_of (blanks), text.size ()));
    return text.substr (0, text.find_last_not_of (blanks) + 1);
}

static void read_entry (std::string_view entry, q5_scan_types_t &types)
{
    size_t equals = entry.find ('=', 1);
    if (entry.empty () || equals == entry.npos || equals + 1 == entry.size ()) {
        fail (quoted (entry) + " is not LETTER=TYPE");
    }
    std::string_view number = entry.substr (1, equals - 1);
    std::vector<q5_scan_type_t> &fields = types[entry[0]];
    size_t at = number.empty () ? 1 : read_count ("field", number, 1, 127);
    if (at <= fields.size ()) {
        fail (quoted (entry.substr (0, equals)) + " is given twice, or after a later field");
    }
    q5_scan_type_t type = read_type (entry.substr (equals + 1));
    fields.resize (at - 1, fields.empty () ? type : fields.back ());
    fields.push_back (type);
}

q5_scan_types_t q5_scan_parse_types (std::string_view text)
{
    q5_scan_types_t types;
    do {
        read_entry (trimmed (take_until (text, ",")), types);
    } while (take_mark (text, ','));
    return types;
}
