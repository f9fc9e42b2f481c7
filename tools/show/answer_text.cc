#include "tools/show/answer_text.h"

#include "client/message.h"
#include "tools/show/report.h"

#include <algorithm>

static bool is_plain_text (const std::string &text)
{
    return std::all_of (text.begin (), text.end (), [] (char c) { return is_printable (c); });
}

// A basic string of TOML is one of JSON.
static std::string toml_string (const std::string &text)
{
    return json_t (text).dump ();
}

static std::string field_text (const q5_scan_field_t &field)
{
    if (field.is_number ()) {
        return std::to_string (field.number);
    }
    return field.type.kind == q5_scan_kind_t::string_field ? toml_string (field.string ())
                                                           : '"' + hex (field.bytes) + '"';
}

// As types and fields, when they say all there is in the message; "" otherwise.
static std::string typed_content (const bytes_t &bytes)
{
    q5_scan_message_t message =
        q5_scan_decode (bytes.data (), bytes.size (), q5_scan_usual_types ());
    std::string fields;
    for (const q5_scan_field_t &field : message.fields) {
        bool is_text = field.type.kind == q5_scan_kind_t::string_field;
        if (is_text && !is_plain_text (field.string ())) {
            return "";
        }
        fields += (fields.empty () ? "" : ", ") + field_text (field);
    }
    // A rest ends the payload: of two, the second is empty, and stays so.
    bool is_whole = message.adds_up () && !message.letters.empty ();
    return is_whole ? "types = " + toml_string (message.letters) + "\nfields = [" + fields + "]\n"
                    : "";
}

static bool is_texts (const bytes_t &bytes)
{
    return bytes.size () > 1 && bytes.back () == '\0' && is_printable (bytes.front ()) &&
           std::all_of (bytes.begin (), bytes.end (),
                        [] (uint8_t c) { return c == '\0' || is_printable (c); });
}

static std::string hex_content (const bytes_t &bytes)
{
    if (bytes.size () <= bytes_a_line) {
        return "hex = \"" + hex (bytes) + "\"\n";
    }
    std::string lines = "hex = \"\"\"\n";
    for (size_t at = 0; at < bytes.size (); at += bytes_a_line) {
        size_t end = std::min (at + bytes_a_line, bytes.size ());
        lines += hex ({bytes.begin () + at, bytes.begin () + end}) + "\n";
    }
    return lines + "\"\"\"\n";
}

std::string content_of (const bytes_t &bytes, bool is_typed)
{
    std::string typed = is_typed ? typed_content (bytes) : "";
    if (!typed.empty ()) {
        return typed;
    }
    return is_texts (bytes) ? "text = " + toml_string ({bytes.begin (), bytes.end ()}) + "\n"
                            : hex_content (bytes);
}
