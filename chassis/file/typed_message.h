// The bytes of an answer, built from what a person writes.
//
// A typed message is one byte n, then n type letters, then the payload: one value for each letter,
// integers big-endian. The letters:
//
//     b  byte, 0 to 255 (or -128 to -1)
//     h  16 bits, 0 to 65535 (or -32768 to -1)
//     i  32 bits, 0 to 4294967295 (or -2147483648 to -1)
//     s  text, ended by a NUL in the message
//     x  run of bytes, given as hexadecimal text
#pragma once

#include <stdexcept>
#include <stdint.h>
#include <string>
#include <variant>
#include <vector>

// Thrown by all functions below: one line, what was found and what was expected.
class message_error_t : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

using field_t = std::variant<int64_t, std::string>;

// Two digits a byte; white space is allowed between bytes.
std::vector<uint8_t> bytes_from_hex (const std::string &text);

// The count byte and the letters. At most 127: readers take the count for a signed byte.
std::vector<uint8_t> message_head (const std::string &types);

// Appends one value of the payload.
void append_field (std::vector<uint8_t> &message, char type, const field_t &field);

// `text` in quotes for a message of one line: no control characters, cut after 40 characters.
std::string quoted (const std::string &text);
