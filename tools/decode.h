// Typed messages: which letter stands for which field, and a message taken apart by it.
#pragma once

#include "scan/q5_scan_reader.h"
#include "tools/output.h"
#include "tools/report.h"

#include <map>
#include <stdint.h>
#include <string>
#include <vector>

enum class kind_t {
    byte_field,
    short_field, // 16 bits, unsigned
    int_field,   // 32 bits, signed
    string_field,
    bytes_field, // `count` bytes
    rest_field   // everything that is left
};

struct field_type_t {
    kind_t kind;
    int32_t count = 0; // bytes of a bytes_field
};

using type_map_t = std::map<uint8_t, field_type_t>;

// b byte, h short, i int, s string, x rest.
type_map_t usual_types ();

// Reads "LETTER=TYPE,...", TYPE being byte, short, int, string, rest or bytes:N, N from 0 to 4096.
// Blanks around an entry do not count. The letters that it does not name have no meaning. Throws
// failure_t.
type_map_t parse_types (const std::string &text);

struct field_t {
    uint8_t letter;
    std::string text; // for a person
    json_t value;     // a number; a text; or the bytes in hex
};

struct message_t {
    std::string letters;
    int32_t length = 0; // payload bytes
    std::vector<field_t> fields;
    bytes_t left;        // payload behind the last field
    std::string problem; // why the fields end early; empty when the message is sound
};

// Takes the slot's typed message apart, as far as it is sound; a slot without one gives an empty
// message. Moves the reader's cursor.
message_t decode_message (q5_scan_reader_t &reader, int32_t slot, const type_map_t &types);
