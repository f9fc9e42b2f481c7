#include "client/message.h"

#include <algorithm>
#include <charconv>
#include <string.h>

using kind_t = q5_scan_kind_t;

std::string q5_scan_field_t::name () const
{
    return type.name.empty () ? std::string (1, static_cast<char> (letter)) : type.name;
}

static void append_hex (std::string &text, uint8_t byte)
{
    static const char digits[] = "0123456789abcdef";
    text += {digits[byte >> 4], digits[byte & 15]};
}

std::string q5_scan_field_t::text () const
{
    if (is_number ()) {
        char digits[32], *last = digits + sizeof (digits);
        return {digits, (type.scale == 1 ? std::to_chars (digits, last, number)
                                         : std::to_chars (digits, last, value))
                            .ptr};
    }
    if (type.kind == kind_t::string_field) {
        return string ();
    }
    std::string text;
    for (uint8_t byte : bytes) {
        text += text.empty () ? "" : " ";
        append_hex (text, byte);
    }
    return text;
}

const q5_scan_field_t *q5_scan_message_t::field (std::string_view name) const
{
    for (const q5_scan_field_t &field : fields) {
        if (field.name () == name) {
            return &field;
        }
    }
    return nullptr;
}

namespace {

struct number_form_t {
    size_t size; // in bytes
    bool is_signed;
};

// The payload of one message, field by field.
class payload_t {
  public:
    payload_t (const uint8_t *bytes, size_t size) : next (bytes), end (bytes + size) {}

    // Fills in the field and returns true; or leaves the payload as it is.
    bool take (q5_scan_field_t *field);
    std::vector<uint8_t> rest () const
    {
        return {next, end};
    }

  private:
    const uint8_t *next;
    const uint8_t *end;

    size_t size_of (const q5_scan_type_t &type) const;
};

} // namespace

static number_form_t form_of (kind_t number)
{
    static constexpr number_form_t forms[] = {{1, false}, {1, true}, {2, false},
                                              {2, true},  {4, true}, {4, false}};
    return forms[static_cast<size_t> (number)];
}

// What the field takes of the payload, the NUL of a string included: more than is left when it has
// none.
size_t payload_t::size_of (const q5_scan_type_t &type) const
{
    switch (type.kind) {
    case kind_t::string_field:
        return std::find (next, end, 0) - next + 1;
    case kind_t::bytes_field:
        return std::max (type.size, 0);
    case kind_t::rest_field:
        return end - next;
    default:
        return form_of (type.kind).size;
    }
}

static int64_t number_of (kind_t kind, const uint8_t *bytes)
{
    const auto [size, is_signed] = form_of (kind);
    int64_t value = 0, range = int64_t (1) << (8 * size);
    for (const uint8_t *p = bytes; p < bytes + size; p++) {
        value = value << 8 | *p;
    }
    return is_signed && value >= range / 2 ? value - range : value;
}

// A tenth of 3 is 0.3, not the double next to it.
static double scaled (int64_t number, double scale)
{
    double value = number * scale;
    char text[32];
    char *end =
        std::to_chars (text, text + sizeof (text), value, std::chars_format::general, 15).ptr;
    std::from_chars (text, end, value);
    return value;
}

bool payload_t::take (q5_scan_field_t *field)
{
    const size_t size = size_of (field->type);
    if (size > static_cast<size_t> (end - next)) {
        return false;
    }
    if (field->is_number ()) {
        field->number = number_of (field->type.kind, next);
        field->value = scaled (field->number, field->type.scale);
    } else {
        bool has_nul = field->type.kind == kind_t::string_field;
        field->bytes.assign (next, next + size - has_nul);
    }
    next += size;
    return true;
}

static std::string shown (uint8_t letter)
{
    if (letter >= 0x20 && letter < 0x7F) {
        return std::string (1, static_cast<char> (letter));
    }
    std::string text = "\\x";
    append_hex (text, letter);
    return text;
}

// The type of the `count`th field of a letter, from 0; null when it has none.
static const q5_scan_type_t *type_of (const q5_scan_types_t &types, uint8_t letter, size_t count)
{
    auto found = types.find (letter);
    if (found == types.end () || found->second.empty ()) {
        return nullptr;
    }
    return &found->second[std::min (count, found->second.size () - 1)];
}

// Returns why it had to stop; "" at the end of the letters.
static std::string take_fields (payload_t &payload, const uint8_t *letters, size_t num_letters,
                                const q5_scan_types_t &types, std::vector<q5_scan_field_t> *fields)
{
    size_t counts[256] = {};
    for (const uint8_t *letter = letters; letter < letters + num_letters; letter++) {
        const q5_scan_type_t *type = type_of (types, *letter, counts[*letter]++);
        if (!type) {
            return "letter " + shown (*letter) + " has no type";
        }
        q5_scan_field_t field;
        field.letter = *letter;
        field.type = *type;
        if (!payload.take (&field)) {
            return type->kind == kind_t::string_field
                       ? "the string of letter " + shown (*letter) + " has no terminating NUL"
                       : "letter " + shown (*letter) + " runs past the end of the payload";
        }
        fields->push_back (field);
    }
    return "";
}

q5_scan_message_t q5_scan_decode (const uint8_t *bytes, size_t size, const q5_scan_types_t &types)
{
    q5_scan_message_t message;
    if (size == 0) {
        return message;
    }
    const uint8_t *letters = bytes + 1;
    size_t num_letters = bytes[0];
    size_t after = size - 1;
    // A count above 127 is negative to the cards' reader.
    if (num_letters > 127 || num_letters > after) {
        message.problem = "it announces " + std::to_string (num_letters) +
                          " letters, bytes after that: " + std::to_string (after);
        message.length = after;
        message.left.assign (letters, letters + after);
        return message;
    }
    message.letters.assign (letters, letters + num_letters);
    message.length = after - num_letters;
    payload_t payload (letters + num_letters, message.length);
    message.problem = take_fields (payload, letters, num_letters, types, &message.fields);
    message.left = payload.rest ();
    return message;
}
