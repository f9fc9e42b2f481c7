#include "tools/decode.h"

#include "net/exception.h"
#include "tools/parse.h"

#include <algorithm>
#include <sstream>
#include <string.h>

type_map_t usual_types ()
{
    return {{'b', {kind_t::byte_field}},
            {'h', {kind_t::short_field}},
            {'i', {kind_t::int_field}},
            {'s', {kind_t::string_field}},
            {'x', {kind_t::rest_field}}};
}

static field_type_t parse_type (const std::string &text)
{
    static const std::map<std::string, kind_t> kinds = {
        {"byte", kind_t::byte_field}, {"short", kind_t::short_field},
        {"int", kind_t::int_field},   {"string", kind_t::string_field},
        {"rest", kind_t::rest_field},
    };
    if (text.rfind ("bytes:", 0) == 0) {
        return {kind_t::bytes_field,
                parse_number ("--types: count", text.substr (6), 0, Q5_SCAN_MAX_RX)};
    }
    auto found = kinds.find (text);
    if (found == kinds.end ()) {
        usage_failure ("--types: '" + printable (text) + "' is no type",
                       "The types are byte, short, int, string, rest and bytes:N.");
    }
    return {found->second};
}

static std::string trimmed (const std::string &text)
{
    size_t begin = std::min (text.find_first_not_of (" \t\n"), text.size ());
    return text.substr (begin, text.find_last_not_of (" \t\n") + 1 - begin);
}

type_map_t parse_types (const std::string &text)
{
    type_map_t types;
    std::istringstream entries (text + ",");
    for (std::string entry; std::getline (entries, entry, ',');) {
        entry = trimmed (entry);
        if (entry.size () < 3 || entry[1] != '=') {
            usage_failure ("--types: '" + printable (entry) + "' is not LETTER=TYPE",
                           "Give it like this: --types A=int,B=short,C=bytes:4");
        }
        if (!types.emplace (entry[0], parse_type (entry.substr (2))).second) {
            usage_failure (std::string ("--types: ") + printable (entry.substr (0, 1)) +
                               " is given twice",
                           "Give each letter one type.");
        }
    }
    return types;
}

static int32_t bytes_left (const q5_scan_reader_t &reader)
{
    return reader.length - reader.pos;
}

static bytes_t take_bytes (q5_scan_reader_t &reader, int32_t count)
{
    const uint8_t *bytes = reader.get_bytes (count);
    return bytes_t (bytes, bytes + count);
}

// The reader lets a text run past the end of its message; here that breaks it off.
static bool has_end (const q5_scan_reader_t &reader)
{
    int32_t left = bytes_left (reader);
    return left > 0 && memchr (reader.bytes + reader.pos, '\0', left);
}

static field_t number_field (uint8_t letter, int32_t value)
{
    return {letter, std::to_string (value), value};
}

static field_t bytes_field (uint8_t letter, const bytes_t &bytes)
{
    return {letter, hex (bytes), hex_digits (bytes.data (), bytes.size ())};
}

static field_t take_field (q5_scan_reader_t &reader, uint8_t letter, const field_type_t &type)
{
    switch (type.kind) {
    case kind_t::byte_field:
        return number_field (letter, reader.get_byte ());
    case kind_t::short_field:
        return number_field (letter, reader.get_short ());
    case kind_t::int_field:
        return number_field (letter, reader.get_int ());
    case kind_t::string_field: {
        std::string text = reader.get_string ();
        return {letter, in_quotes (text), text};
    }
    case kind_t::bytes_field:
        return bytes_field (letter, take_bytes (reader, type.count));
    default:
        return bytes_field (letter, take_bytes (reader, bytes_left (reader)));
    }
}

static std::string letter_text (uint8_t letter)
{
    return printable (std::string (1, static_cast<char> (letter)));
}

// Returns why it had to stop; empty at the end of the letters.
static std::string take_fields (q5_scan_reader_t &reader, const type_map_t &types,
                                std::vector<field_t> *fields)
{
    while (reader.types_pos < reader.types_length) {
        uint8_t letter = reader.get_type ();
        auto type = types.find (letter);
        if (type == types.end ()) {
            return "letter " + letter_text (letter) + " has no type";
        }
        if (type->second.kind == kind_t::string_field && !has_end (reader)) {
            return "the text of letter " + letter_text (letter) + " has no end";
        }
        try {
            fields->push_back (take_field (reader, letter, type->second));
        } catch (exception_t &) {
            return "letter " + letter_text (letter) + " reaches beyond the payload";
        }
    }
    return "";
}

message_t decode_message (q5_scan_reader_t &reader, int32_t slot, const type_map_t &types)
{
    message_t message;
    if (reader.typed_buffers[slot].count < 1) {
        return message;
    }
    const q5_scan_buffer_t &buffer = reader.typed_buffers[slot];
    message.length = reader.begin_message (slot);
    if (reader.types_length < 0 || message.length < 0) {
        message.problem = "it announces " + std::to_string (buffer.data[0]) + " letters, and has " +
                          std::to_string (buffer.count - 1) + " bytes behind that";
        message.left.assign (buffer.data + 1, buffer.data + buffer.count);
        message.length = buffer.count - 1;
        return message;
    }
    message.letters.assign (reader.types, reader.types + reader.types_length);
    message.problem = take_fields (reader, types, &message.fields);
    message.left = take_bytes (reader, bytes_left (reader));
    return message;
}
