// Bytes for a person.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string>

// "5A 00 FF"; empty for no bytes.
inline std::string hex_text (const uint8_t *bytes, size_t count)
{
    constexpr const char *digits = "0123456789ABCDEF";
    std::string text;
    for (size_t i = 0; i < count; i++) {
        text += {digits[bytes[i] >> 4], digits[bytes[i] & 15], ' '};
    }
    text.resize (count == 0 ? 0 : text.size () - 1);
    return text;
}
