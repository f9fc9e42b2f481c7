// The back plane: which slots there are, the code on port C that selects each, and its bit rate.
#pragma once

#include <stdint.h>

// The slot that a code of 7 bits selects; -1: none.
constexpr int slot_of_code (uint8_t code)
{
    if (code <= 19) {
        return 20 - code;
    }
    if (code == 22 || code == 23 || (code >= 26 && code <= 29)) {
        return code + 1;
    }
    return code == 31 ? 0 : -1;
}

constexpr bool slot_exists (int slot)
{
    return slot >= 0 && slot <= 30 && slot != 21 && slot != 22 && slot != 25 && slot != 26;
}

// BRGCLK ticks a bit.
constexpr uint32_t USUAL_DIVIDER = 80;
constexpr uint32_t SLOW_DIVIDER = 400;

constexpr uint32_t divider_of_slot (int slot)
{
    return slot == 23 || slot == 24 ? SLOW_DIVIDER : USUAL_DIVIDER;
}
