#include "tools/parse/parse.h"

#include "scan/q5_scan_protocol.h"
#include "tools/show/report.h"

#include <algorithm>
#include <charconv>
#include <math.h>
#include <set>
#include <sstream>

using texts_t = std::vector<std::string>;

constexpr size_t most_shown = 40; // characters of a wrong value in a message

static std::string shown_value (const std::string &text)
{
    return "'" + shortened (printable (text), most_shown) + "'";
}

static bool begins_with_0x (const std::string &text)
{
    return text.size () > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
}

// The magnitude of a number, the largest there is when it needs more than 64 bits; false when it is
// none.
static bool read_digits (const std::string &text, uint64_t *value)
{
    bool is_hex = begins_with_0x (text);
    const char *begin = text.data () + (is_hex ? 2 : 0);
    const char *end = text.data () + text.size ();
    auto [stop, error] = std::from_chars (begin, end, *value, is_hex ? 16 : 10);
    if (error == std::errc::result_out_of_range) {
        *value = UINT64_MAX;
    }
    return error != std::errc::invalid_argument && stop == end;
}

int32_t parse_number (const std::string &name, const std::string &text, int64_t least, int64_t most)
{
    bool is_negative = text.size () > 1 && text[0] == '-';
    uint64_t magnitude = 0;
    bool is_number = read_digits (is_negative ? text.substr (1) : text, &magnitude);
    // Beyond 32 bits it is out of every range; until then the sign cannot overflow.
    bool is_short = is_number && magnitude <= 1ULL << 32;
    int64_t value = is_short ? static_cast<int64_t> (magnitude) : 0;
    value = is_negative ? -value : value;
    if (!is_short || value < least || value > most) {
        usage_failure (name + " " + shown_value (text) +
                           (is_number ? " is out of range" : " is not a number"),
                       "Give a number from " + std::to_string (least) + " to " +
                           std::to_string (most) + ", decimal or 0x form.");
    }
    return static_cast<int32_t> (value);
}

std::vector<std::string> split (const std::vector<std::string> &texts)
{
    std::vector<std::string> parts;
    for (const std::string &text : texts) {
        std::istringstream stream (text + ",");
        for (std::string part; std::getline (stream, part, ',');) {
            parts.push_back (part);
        }
    }
    return parts;
}

int32_t parse_slot (const std::string &text)
{
    return parse_number ("slot", text, 0, Q5_SCAN_NUM_SLOTS - 1);
}

int32_t parse_word (const std::string &name, const std::string &text)
{
    return parse_number (name, text, INT32_MIN, INT32_MAX);
}

// "3" or "3-7".
static void add_slots (const std::string &text, std::set<int32_t> *slots)
{
    size_t dash = text.find ('-', 1);
    int32_t first = parse_slot (text.substr (0, dash));
    int32_t last = dash == text.npos ? first : parse_slot (text.substr (dash + 1));
    if (last < first) {
        usage_failure ("slots " + shown_value (text) + " end before they begin",
                       "Give the lower slot first: 3-7.");
    }
    for (int32_t slot = first; slot <= last; slot++) {
        slots->insert (slot);
    }
}

std::vector<int32_t> parse_slots (const std::vector<std::string> &texts)
{
    std::set<int32_t> slots;
    for (const std::string &part : texts.empty () ? texts_t{"0-31"} : split (texts)) {
        add_slots (part, &slots);
    }
    return {slots.begin (), slots.end ()};
}

std::vector<int32_t> parse_commands (const std::string &text)
{
    std::vector<int32_t> commands;
    for (const std::string &part : split ({text})) {
        int32_t command = parse_number ("command", part, 3, 255);
        if (std::count (commands.begin (), commands.end (), command) == 0) {
            commands.push_back (command);
        }
    }
    return commands;
}

uint8_t parse_plain_byte (const std::string &name, const std::string &text)
{
    uint8_t value = static_cast<uint8_t> (parse_number (name, text, 0, 255));
    if (text.size () > 1 && !begins_with_0x (text)) {
        usage_failure (name + " " + shown_value (text) + " is ambiguous: decimal or hex?",
                       "Give it in 0x form: 0x" + hex_digits ({value}) + " is decimal " +
                           std::to_string (value) + ".");
    }
    return value;
}

std::chrono::milliseconds parse_seconds (const std::string &name, const std::string &text,
                                         int32_t most)
{
    double seconds = 0;
    const char *end = text.data () + text.size ();
    auto [stop, error] = std::from_chars (text.data (), end, seconds);
    if (error != std::errc () || stop != end || !(seconds >= 0 && seconds <= most)) {
        usage_failure (name + " " + shown_value (text) + " is not a number of seconds",
                       "Give seconds from 0 to " + std::to_string (most) + ", for example 0.5.");
    }
    // Upwards, so that a little is not none; but 2.007 times 1000 is more than 2007 only in a
    // double.
    double whole = round (seconds * 1000);
    bool is_whole = fabs (seconds * 1000 - whole) < 1e-6 && (whole > 0 || seconds == 0);
    return std::chrono::milliseconds (
        static_cast<int64_t> (is_whole ? whole : ceil (seconds * 1000)));
}

static void append_group (const std::string &name, const std::string &group, bytes_t *bytes)
{
    const char *advice = "Give two hex digits for each byte, with or without blanks: 01 a0 FF.";
    size_t begin = begins_with_0x (group) ? 2 : 0;
    size_t wrong = group.find_first_not_of ("0123456789abcdefABCDEF", begin);
    if (wrong != group.npos) {
        usage_failure (name + " " + shown_value (group) + " is not hex at character " +
                           std::to_string (wrong + 1),
                       advice);
    }
    if ((group.size () - begin) % 2 != 0) {
        usage_failure (name + " " + shown_value (group) + " has an odd number of hex digits",
                       advice);
    }
    for (size_t i = begin; i < group.size (); i += 2) {
        bytes->push_back (std::stoi (group.substr (i, 2), nullptr, 16));
    }
}

bytes_t parse_bytes (const std::string &name, const std::vector<std::string> &texts, size_t most)
{
    bytes_t bytes;
    for (const std::string &text : texts) {
        std::istringstream groups (text);
        for (std::string group; groups >> group;) {
            append_group (name, group, &bytes);
        }
    }
    if (bytes.size () > most) {
        usage_failure (name + " has " + std::to_string (bytes.size ()) + " bytes",
                       "At most " + std::to_string (most) + " fit into one request.");
    }
    return bytes;
}
