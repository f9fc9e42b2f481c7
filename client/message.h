// A typed message of a card, decoded into fields.
//
//   typed message = n letter*n payload     a letter is the type of one field of the payload
#pragma once

#include "client/types.h"

#include <stddef.h>
#include <stdint.h>
#include <string>
#include <string_view>
#include <vector>

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
    // Its type's name, else its letter.
    std::string name () const;
    // A number in as few digits as it needs, a string as it is, other bytes in hex: "00 07 a1".
    std::string text () const;
};

// Letters, fields and what is left make up the whole message, whatever is wrong with it.
struct q5_scan_message_t {
    std::string letters;
    size_t length = 0; // payload bytes
    std::vector<q5_scan_field_t> fields;
    std::vector<uint8_t> left; // payload after the last field
    std::string problem;       // why the fields end early; "" when the message adds up

    // Whether every byte of the payload belongs to a field.
    bool adds_up () const
    {
        return problem.empty () && left.empty ();
    }
    // The first field of that name, or null.
    const q5_scan_field_t *field (std::string_view name) const;
};

// Decodes `size` bytes as far as they are sound; 0 bytes give an empty message. Reads nothing after
// them and throws for no input. Any number of threads may call it.
q5_scan_message_t q5_scan_decode (const uint8_t *bytes, size_t size, const q5_scan_types_t &types);
inline q5_scan_message_t q5_scan_decode (const std::vector<uint8_t> &bytes,
                                         const q5_scan_types_t &types)
{
    return q5_scan_decode (bytes.data (), bytes.size (), types);
}
