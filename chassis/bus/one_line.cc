#include "chassis/bus/one_line.h"

#include <stdint.h>
#include <stdio.h>

// Bytes of the UTF-8 character that begins here; 0 if none does, or one that moves the cursor.
static size_t shown_length (const std::string &text, size_t at)
{
    auto byte = [&] (size_t i) { return static_cast<uint8_t> (i < text.size () ? text[i] : 0); };
    uint8_t first = byte (at);
    if (first < 0x80) {
        return first >= 0x20 && first != 0x7F;
    }
    bool is_control = first == 0xC2 && byte (at + 1) < 0xA0;
    if (is_control || first < 0xC2 || first > 0xF4) {
        return 0;
    }
    size_t length = first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    for (size_t i = 1; i < length; i++) {
        if ((byte (at + i) & 0xC0) != 0x80) {
            return 0;
        }
    }
    return length;
}

std::string one_line (const std::string &text)
{
    std::string line;
    for (size_t at = 0; at < text.size ();) {
        size_t length = shown_length (text, at);
        if (length > 0) {
            line += text.substr (at, length);
        } else if (text[at] == '\n' || text[at] == '\t') {
            line += text[at] == '\n' ? "\\n" : "\\t";
        } else {
            char digits[8];
            snprintf (digits, sizeof (digits), "\\x%02X", static_cast<uint8_t> (text[at]));
            line += digits;
        }
        at += length > 0 ? length : 1;
    }
    return line;
}

void complain (const std::string &message)
{
    fputs (("q5_chassis: " + one_line (message) + "\n").c_str (), stderr);
}
