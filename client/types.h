// What the letters of a typed message mean. That is agreed between a program and its cards.
#pragma once

#include <map>
#include <stdint.h>
#include <string>
#include <string_view>
#include <vector>

// Numbers, first of all, are big-endian.
enum class q5_scan_kind_t {
    byte_field,
    signed_byte_field,
    short_field, // 16 bits, unsigned
    signed_short_field,
    int_field, // 32 bits, signed
    unsigned_int_field,
    string_field, // ends with a NUL
    bytes_field,  // `size` bytes
    rest_field    // everything that is left
};

struct q5_scan_type_t {
    q5_scan_kind_t kind = q5_scan_kind_t::byte_field;
    int32_t size = 0;      // of a bytes_field
    double scale = 1;      // factor of a number
    std::string name = {}; // of the field; "" for none
};

// The types of a letter's first field in a message, of its second, and so on; the last one applies
// to all that follow. A letter without a type ends the decoding.
using q5_scan_types_t = std::map<uint8_t, std::vector<q5_scan_type_t>>;

// b byte, h short, i int, s string, x rest.
q5_scan_types_t q5_scan_usual_types ();

// Reads "LETTER[N]=TYPE[*SCALE][:NAME],...", for example "b=byte,h=sshort*0.01:celsius,c=bytes:4".
// TYPE is byte, sbyte, short, sshort, int, uint, string, rest or bytes:COUNT, COUNT from 0 to 4096;
// with a number N from 1 on it is the type of the letter's Nth field in a message, and of those
// before and after it that have none. Blanks around an entry are ignored. Throws
// std::invalid_argument, which says what is wrong where.
q5_scan_types_t q5_scan_parse_types (std::string_view text);
