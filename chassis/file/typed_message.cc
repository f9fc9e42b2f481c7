#include "chassis/file/typed_message.h"

#include <ctype.h>

static constexpr size_t max_types = 127;
static constexpr size_t max_quoted = 40;

std::string quoted (const std::string &text)
{
    std::string line = text.substr (0, max_quoted);
    for (char &c : line) {
        if (iscntrl (static_cast<unsigned char> (c))) {
            c = '.';
        }
    }
    return '"' + line + (text.size () > max_quoted ? "...\"" : "\"");
}

static int hex_digit (char c)
{
    static const std::string digits = "0123456789abcdef";
    size_t value = digits.find (static_cast<char> (tolower (static_cast<unsigned char> (c))));
    return value == std::string::npos ? -1 : static_cast<int> (value);
}

std::vector<uint8_t> bytes_from_hex (const std::string &text)
{
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i < text.size ();) {
        if (isspace (static_cast<unsigned char> (text[i]))) {
            i++;
            continue;
        }
        int high = hex_digit (text[i]);
        int low = i + 1 < text.size () ? hex_digit (text[i + 1]) : -1;
        if (high < 0 || low < 0) {
            throw message_error_t ("found " + quoted (text.substr (i, 2)) + " at character " +
                                   std::to_string (i + 1) +
                                   ", expected two hexadecimal digits for each byte");
        }
        bytes.push_back (static_cast<uint8_t> (high << 4 | low));
        i += 2;
    }
    return bytes;
}

std::vector<uint8_t> message_head (const std::string &types)
{
    if (types.size () > max_types) {
        throw message_error_t ("found " + std::to_string (types.size ()) +
                               " type letters, expected at most " + std::to_string (max_types));
    }
    size_t unknown = types.find_first_not_of ("bhisx");
    if (unknown != std::string::npos) {
        throw message_error_t ("found the type letter " + quoted (types.substr (unknown, 1)) +
                               ", expected b, h, i, s or x");
    }
    std::string head = static_cast<char> (types.size ()) + types;
    return std::vector<uint8_t> (head.begin (), head.end ());
}

static std::string shown (const field_t &field)
{
    const int64_t *number = std::get_if<int64_t> (&field);
    return number ? std::to_string (*number) : quoted (std::get<std::string> (field));
}

static void append_number (std::vector<uint8_t> &message, char type, const field_t &field, int bits)
{
    int64_t low = -(INT64_C (1) << (bits - 1));
    int64_t high = (INT64_C (1) << bits) - 1;
    const int64_t *number = std::get_if<int64_t> (&field);
    if (!number || *number < low || *number > high) {
        throw message_error_t ("found " + shown (field) + ", expected a number from " +
                               std::to_string (low) + " to " + std::to_string (high) +
                               " for type " + type);
    }
    for (int shift = bits - 8; shift >= 0; shift -= 8) {
        message.push_back (static_cast<uint8_t> (*number >> shift));
    }
}

static const std::string &text_of (const field_t &field, char type, const char *expected)
{
    const std::string *text = std::get_if<std::string> (&field);
    if (!text) {
        throw message_error_t ("found " + shown (field) + ", expected " + expected + " for type " +
                               type);
    }
    return *text;
}

static void append_text (std::vector<uint8_t> &message, const field_t &field)
{
    const std::string &text = text_of (field, 's', "a text");
    if (text.find ('\0') != std::string::npos) {
        throw message_error_t ("found a NUL inside " + quoted (text) +
                               ", expected a text without one for type s");
    }
    message.insert (message.end (), text.begin (), text.end ());
    message.push_back (0);
}

static void append_run (std::vector<uint8_t> &message, const field_t &field)
{
    std::vector<uint8_t> run = bytes_from_hex (text_of (field, 'x', "hexadecimal text"));
    message.insert (message.end (), run.begin (), run.end ());
}

void append_field (std::vector<uint8_t> &message, char type, const field_t &field)
{
    switch (type) {
    case 'b':
        return append_number (message, type, field, 8);
    case 'h':
        return append_number (message, type, field, 16);
    case 'i':
        return append_number (message, type, field, 32);
    case 's':
        return append_text (message, field);
    default:
        return append_run (message, field);
    }
}
