// A typed message of a card, taken apart into fields.
//
//   typed message = n letter*n payload     each letter stands for one field of the payload
//
// What a letter stands for is agreed between the program and the cards; a map tells it here.
#pragma once

#include <map>
#include <stddef.h>
#include <stdint.h>
#include <string>
#include <vector>

// Numbers are big-endian.
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
    double scale = 1;      // what a number is multiplied by
    std::string name = {}; // of the field, for who reads it
};

// The type of a letter's first field in a message, of its second, and so on; the last one stands
// for all that follow. A letter without a type ends the decoding.
using q5_scan_types_t = std::map<uint8_t, std::vector<q5_scan_type_t>>;

// b byte, h short, i int, s string, x rest.
q5_scan_types_t q5_scan_usual_types ();

struct q5_scan_field_t {
    uint8_t letter = 0;
    q5_scan_type_t type = {};
    int64_t number = 0;              // as sent; of a number
    double value = 0;                // the same, scaled, to 15 digits
    std::vector<uint8_t> bytes = {}; // of a string without its NUL, of bytes, of a rest

    bool is_number () const
    {
        return type.kind < q5_scan_kind_t::string_field;
    }
    std::string string () const
    {
        return std::string (bytes.begin (), bytes.end ());
    }
};

// Letters, fields and what is left are the whole message, whatever is wrong with it.
struct q5_scan_message_t {
    std::string letters;
    size_t length = 0; // payload bytes
    std::vector<q5_scan_field_t> fields;
    std::vector<uint8_t> left; // payload behind the last field
    std::string problem;       // why the fields end early; "" when the message adds up

    // Whether every byte of the payload belongs to a field.
    bool adds_up () const
    {
        return problem.empty () && left.empty ();
    }
};

// Takes `size` bytes apart as far as they are sound; none give an empty message. Reads nothing
// behind them, whatever they hold, and throws nothing for them. Any number of threads may call it.
q5_scan_message_t q5_scan_decode (const uint8_t *bytes, size_t size, const q5_scan_types_t &types);
