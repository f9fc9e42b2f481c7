// A reply as a card may send it: the reader's cursor stays in its object, wherever it is led, and
// finds the fields of the decoded message.
#include "client/message.h"
#include "fuzz/fuzz.h"
#include "scan/q5_scan_reader.h"

#include <string.h>

static q5_scan_reader_t r ("", 0);

static int64_t take_step (int how, int32_t n)
{
    return how == 'm'   ? r.begin_message (n)
           : how == 'r' ? r.begin_raw (n)
           : how == 't' ? r.get_type ()
           : how == 'b' ? r.get_byte ()
           : how == 'h' ? r.get_short ()
           : how == 'i' ? r.get_int ()
           : how == 's' ? *r.get_string ()
                        : r.get_bytes (n) - r.bytes;
}

static bool comes_next (const q5_scan_field_t &f)
{
    return r.get_type () == f.letter &&
           (f.is_number () ? take_step (f.letter, 0) == f.number
            : f.letter == 's'
                ? r.get_string () == f.string ()
                : std::equal (f.bytes.begin (), f.bytes.end (), r.get_bytes (f.bytes.size ())));
}

// Each kind of type under a letter, decoded once more in the plainest way.
static void require_values (const bytes_t &bytes)
{
    static const q5_scan_types_t types = q5_scan_parse_types (
        "b=byte,B=sbyte,h=short,H=sshort,i=uint,I=int,s=string,c=bytes:3,x=rest");
    q5_scan_message_t m = q5_scan_decode (bytes.data (), bytes.size (), types);
    const uint8_t *next = bytes.data () + 1 + m.letters.size ();
    for (const q5_scan_field_t &f : m.fields) {
        int size = strchr ("bB", f.letter) ? 1 : strchr ("hH", f.letter) ? 2 : 4;
        int64_t number = 0;
        for (int i = 0; f.is_number () && i < size; i++) {
            number = number * 256 + *next++;
        }
        int64_t beyond = INT64_C (1) << 8 * size;
        number -= strchr ("BHI", f.letter) && number >= beyond / 2 ? beyond : 0;
        REQUIRE (f.number == number && f.value == number);
        REQUIRE (std::equal (f.bytes.begin (), f.bytes.end (), next));
        next += f.bytes.size ();
        REQUIRE (f.letter != 's' || *next++ == 0);
        REQUIRE (f.letter != 'c' || f.bytes.size () == 3);
        REQUIRE (f.letter != 'x' || next == bytes.data () + bytes.size ());
    }
}

extern "C" int LLVMFuzzerTestOneInput (const uint8_t *data, size_t size)
{
    input_t input (data, size);
    bytes_t bytes (input.byte ());
    std::generate (bytes.begin (), bytes.end (), [&] { return input.byte (); });
    // Before this one is another, not the cursor: a negative letter count reaches there.
    q5_scan_buffer_t &typed = r.typed_buffers[1];
    std::fill (std::copy (bytes.begin (), bytes.end (), typed.data), std::end (typed.data), 0);
    typed.count = bytes.size ();
    r.raw_buffers[31].count = input.word (); // what a daemon says, whatever came
    r.bytes = r.types = nullptr;
    r.length = r.types_length = r.pos = r.types_pos = 0;
    q5_scan_message_t m = q5_scan_decode (bytes.data (), bytes.size (), q5_scan_usual_types ());
    REQUIRE (m.length + m.letters.size () + !bytes.empty () == bytes.size ());
    REQUIRE (m.problem.empty () == (m.fields.size () == (bytes.empty () ? 0 : bytes[0])));
    REQUIRE (std::equal (m.left.rbegin (), m.left.rend (), bytes.rbegin ()));
    require_values (bytes);
    int32_t length = r.begin_message (1);
    REQUIRE (std::all_of (m.fields.begin (), m.fields.end (), comes_next));
    REQUIRE (m.fields.empty () || length == int32_t (r.pos + m.left.size ()));
    while (!input.at_end ()) {
        std::pair before (r.pos, r.types_pos);
        try {
            take_step ("mrtbhisx"[input.byte () % 8], input.word ());
        } catch (exception_t &e) {
            REQUIRE (before == std::pair (r.pos, r.types_pos) && is_one_line (e.message));
        }
        const void *at = r.bytes + r.pos;
        REQUIRE (!r.bytes || (at >= &r && at <= &r + 1));
    }
    return 0;
}
