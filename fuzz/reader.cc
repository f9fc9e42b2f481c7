// A reply as a card may send it: the reader's cursor stays in its object, wherever it is led, and
// finds the fields of the decoded message.
#include "fuzz/fuzz.h"
#include "scan/q5_scan_message.h"
#include "scan/q5_scan_reader.h"

#include <string.h>

static q5_scan_reader_t r ("", 0);

static uint32_t get_number (int size)
{
    return size == 1 ? r.get_byte () : size == 2 ? r.get_short () : r.get_int ();
}

static void take_step (input_t &input)
{
    const uint8_t *at = r.bytes + r.pos;
    uint8_t how = input.byte () % 8;
    if (how == 1 || how == 2 || how == 4) {
        uint32_t number = get_number (how);
        for (; how > 0; how--, number >>= 8) {
            REQUIRE (at[how - 1] == (number & 0xFF));
        }
    } else if (how == 0) {
        r.get_type ();
    } else if (how == 3) {
        REQUIRE (strlen (r.get_string ()) == size_t (r.bytes + r.pos - at - 1));
    } else if (how == 5) {
        REQUIRE (r.get_bytes (input.word ()) == at);
    } else {
        int32_t slot = input.word ();
        how == 6 ? r.begin_message (slot) : r.begin_raw (slot);
    }
}

static void walk (input_t &input)
{
    while (!input.at_end ()) {
        std::pair before (r.pos, r.types_pos);
        try {
            take_step (input);
        } catch (exception_t &e) {
            REQUIRE (before == std::pair (r.pos, r.types_pos) && is_one_line (e.message));
        }
        const void *at = r.bytes + r.pos;
        REQUIRE (!r.bytes || (at >= &r && at <= &r + 1));
    }
}

static bool comes_next (const q5_scan_field_t &field)
{
    uint8_t letter = r.get_type ();
    return letter == field.letter &&
           (letter == 'b'   ? r.get_byte () == field.number
            : letter == 'h' ? r.get_short () == field.number
            : letter == 'i' ? r.get_int () == field.number
            : letter == 's' ? r.get_string () == field.string ()
                            : std::equal (field.bytes.begin (), field.bytes.end (),
                                          r.get_bytes (field.bytes.size ())));
}

static void decode (const bytes_t &bytes)
{
    q5_scan_message_t m = q5_scan_decode (bytes.data (), bytes.size (), q5_scan_usual_types ());
    REQUIRE (is_one_line (m.problem));
    REQUIRE (m.length + m.letters.size () + !bytes.empty () == bytes.size ());
    REQUIRE (m.problem.empty () == (m.fields.size () == (bytes.empty () ? 0 : bytes[0])));
    REQUIRE (m.left.size () <= m.length);
    REQUIRE (std::equal (m.left.rbegin (), m.left.rend (), bytes.rbegin ()));
    int32_t length = r.begin_message (1);
    REQUIRE (m.fields.empty () || length == int32_t (m.length));
    REQUIRE (std::all_of (m.fields.begin (), m.fields.end (), comes_next));
    REQUIRE (m.fields.empty () || r.pos + m.left.size () == m.length);
}

extern "C" int LLVMFuzzerTestOneInput (const uint8_t *data, size_t size)
{
    input_t input (data, size);
    // Before this one lies another, not the cursor: a negative letter count reaches there.
    q5_scan_buffer_t &typed = r.typed_buffers[1], &raw = r.raw_buffers[31];
    raw.count = input.word (); // what a daemon says, whatever came
    bytes_t message (input.byte ());
    std::generate (message.begin (), message.end (), [&] { return input.byte (); });
    memset (typed.data, 0, sizeof (typed.data));
    typed.count = message.size ();
    std::copy (message.begin (), message.end (), typed.data);
    std::copy (message.rbegin (), message.rend (), std::end (raw.data) - message.size ());
    r.bytes = r.types = nullptr;
    r.length = r.types_length = r.pos = r.types_pos = 0;
    decode (message);
    walk (input);
    return 0;
}
