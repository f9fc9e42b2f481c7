// A value of a typed message that is built is decoded to the same; one that cannot be built is
// refused in one line.
#include "chassis/bus/one_line.h"
#include "chassis/file/typed_message.h"
#include "client/message.h"
#include "fuzz/fuzz.h"

// Numbers may be negative: the bits count.
static bool is_value (const q5_scan_field_t &field, const field_t &value)
{
    if (const int64_t *number = std::get_if<int64_t> (&value)) {
        int64_t range = INT64_C (1) << (field.letter == 'b' ? 8 : field.letter == 'h' ? 16 : 32);
        return *number >= -range / 2 && *number < range && (field.number - *number) % range == 0;
    }
    const std::string &text = std::get<std::string> (value);
    return field.letter == 'x' ? field.bytes == bytes_from_hex (text) : field.string () == text;
}

extern "C" int LLVMFuzzerTestOneInput (const uint8_t *data, size_t size)
{
    input_t input (data, size);
    const std::string types (1, "bhisx\n"[input.byte () % 6]);
    int64_t number = input.word () * (INT64_C (1) << input.byte () % 33);
    bytes_t text = input.rest ();
    const field_t value =
        text.empty () ? field_t (number) : std::string (text.begin (), text.end ());
    try {
        bytes_t message = message_head ("b" + types);
        append_field (message, 'b', 42);
        append_field (message, types[0], value);
        q5_scan_message_t m =
            q5_scan_decode (message.data (), message.size (), q5_scan_usual_types ());
        REQUIRE (m.adds_up () && m.fields.size () == 2 && is_value (m.fields[1], value));
    } catch (message_error_t &e) {
        const std::string line = one_line (e.what ()); // as the chassis file reports it
        REQUIRE_SHOWING (is_one_line (line), line);
    }
    return 0;
}
