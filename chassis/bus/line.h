// What travels on the two lines of the scan bus. All times are ticks of BRGCLK since the chassis
// was switched on.
#pragma once

#include <stdint.h>

constexpr uint64_t NEVER = UINT64_MAX;

// How long a bit lasts: `bits` bits take `ticks` ticks. A ratio, so that nothing rounds up over a
// long frame.
struct bit_time_t {
    uint64_t ticks;
    uint64_t bits;

    // How long `count` bits last.
    uint64_t lasts (uint64_t count) const
    {
        return count * ticks / bits;
    }
    // Whether a receiver at this rate reads bits of the other rate: within 3 %.
    bool reads (const bit_time_t &other) const
    {
        uint64_t mine = ticks * other.bits, theirs = other.ticks * bits;
        uint64_t apart = mine > theirs ? mine - theirs : theirs - mine;
        return apart <= mine / 33;
    }
};

enum class line_fault_t {
    none,
    wrong_rate, // its bits last longer or shorter than the card's
    cut,        // broken off, or begun before there was a listener
    framing,    // the stop bit is low
    noise,      // the samples of a bit disagree
    overrun,    // sent well; the controller's FIFO is full
    line_break  // the line is low all the time
};

// One character, or a break, on one of the lines.
struct line_character_t {
    uint64_t start;
    uint64_t end; // of the last stop bit; before it when cut off
    bool from_card;
    int slot; // the selected one; -1: none
    uint8_t value;
    bool address;
    line_fault_t fault;
    bit_time_t bit;
    uint32_t levels; // of the line, bit by bit, the first in the least significant place
    int num_levels;

    // The level of the line at a time from `start` on.
    bool level_at (uint64_t tick) const
    {
        uint64_t index = (tick - start) * bit.bits / bit.ticks;
        return tick >= end || index >= static_cast<uint64_t> (num_levels) || (levels >> index & 1);
    }
};

// The bus's own form: start bit, eight data bits, address bit, stop bit.
constexpr int BITS_PER_CHARACTER = 11;

constexpr uint32_t character_levels (uint8_t value, bool address, bool stop = true)
{
    return uint32_t{value} << 1 | uint32_t{address} << 9 | uint32_t{stop} << 10;
}

// The pins that select a slot.
struct bus_pins_t {
    uint8_t code;     // PC25 to PC31
    bool strobe_low;  // PC24
    int slot;         // what the two select; -1: none
    bool rx_held_low; // the selected card holds the receive line low
    bool tx_held_up;  // it holds up the transmitter

    bool operator== (const bus_pins_t &other) const
    {
        return code == other.code && strobe_low == other.strobe_low && slot == other.slot &&
               rx_held_low == other.rx_held_low && tx_held_up == other.tx_held_up;
    }
};
