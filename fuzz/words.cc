// What a person types, and files of lines. What is accepted means the same when it is printed; what
// is refused is refused in one line that begins with the place.
#include "fuzz/fuzz.h"
#include "tools/command/batch.h"
#include "tools/parse/parse.h"
#include "tools/parse/types.h"

#include <set>
#include <sstream>

// What `read` returns; nothing when it refuses.
template <typename read_t> static auto accepted (const std::string &place, const read_t &read)
{
    std::optional<decltype (read ())> value;
    try {
        value = read ();
    } catch (failure_t &failure) {
        const std::string line = printable (failure.what);
        REQUIRE_SHOWING (is_one_line (line) && line.substr (0, place.size ()) == place, line);
    }
    return value;
}

static std::string text_of (const std::vector<q5_scan_request_t> &requests)
{
    std::string text;
    size_t sum = 0;
    REQUIRE (!requests.empty () && requests.size () <= 100);
    for (const q5_scan_request_t &r : requests) {
        REQUIRE ((sum += r.tx.size ()) <= 4094);
        REQUIRE (r.slot >= 0 && r.slot < 32 && r.rxlen >= 0 && r.rxlen <= Q5_SCAN_MAX_RX);
        text += std::to_string (r.slot) + " " + std::to_string (r.command) +
                (r.tx.empty () ? "" : " --tx '" + hex (r.tx) + "'") +
                " --rx=" + std::to_string (r.rxlen) + "\n";
    }
    return text;
}

// "3-7,0x1f": what an accepted text says.
static std::vector<int32_t> slots_of (const std::string &text)
{
    auto number = [] (const char *digits, char **end) {
        return strtol (digits, end, digits[0] == '0' && (digits[1] | 0x20) == 'x' ? 16 : 10);
    };
    std::set<int32_t> slots;
    std::istringstream parts (text);
    for (std::string part; std::getline (parts, part, ',');) {
        char *end;
        long first = number (part.c_str (), &end);
        long last = *end == '-' ? number (end + 1, &end) : first;
        for (long slot = first; slot <= last; slot++) {
            slots.insert (slot);
        }
    }
    return {slots.begin (), slots.end ()};
}

extern "C" int LLVMFuzzerTestOneInput (const uint8_t *data, size_t size)
{
    const std::string text (data, data + size);
    std::istringstream batch (text), types (text);
    if (auto requests = accepted ("file", [&] { return read_batch (batch, "file"); })) {
        std::istringstream again (text_of (*requests));
        REQUIRE_SHOWING (text_of (read_batch (again, "again")) == again.str (), again.str ());
    }
    accepted ("file:", [&] { return read_types (types, "file"); });
    if (text.substr (0, 1) != "@") { // @FILE would open a file of this machine
        accepted ("--types: ", [&] { return parse_types (text); });
    }
    accepted ("command ", [&] { return parse_commands (text); });
    if (auto slots = accepted ("slot", [&] { return parse_slots ({text}); })) {
        REQUIRE (*slots == slots_of (text));
    }

    int64_t number = strtoll (text.c_str (), nullptr, text.find_first_of ("xX") < size ? 16 : 10);
    auto word = accepted ("word ", [&] { return parse_word ("word", text); });
    REQUIRE (word ? *word == number : std::to_string (int32_t (number)) != text);
    if (auto time = accepted ("--wait ", [&] { return parse_seconds ("--wait", text, 86400); })) {
        const std::string seconds = std::to_string (time->count () / 1000.0);
        REQUIRE_SHOWING (parse_seconds ("--wait", seconds, 86400) == *time, seconds);
    }
    return 0;
}
