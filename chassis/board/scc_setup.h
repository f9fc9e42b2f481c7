// How SCC3 is set up, decoded from its registers at the moment of use. A setting that does not make
// a working multidrop UART makes the bus fail, as on the board.
#pragma once

#include "chassis/board/board_memory.h"
#include "chassis/bus/line.h"

struct scc_setup_t {
    enum class multidrop_t {
        none,
        manual,
        automatic,
        reserved
    };
    bool transmits;      // enabled, and in a mode that works
    bool receives;       // the same of the receiver
    bool flow_control;   // CTS paces the transmitter; without it nothing is sent
    bool frozen;         // the transmitter stops between characters
    uint32_t tx_divider; // BRGCLK ticks a bit; 0: no clock
    uint32_t rx_divider;
    multidrop_t multidrop;
    int data_bits;
    int stop_bits;
    bool garbles; // parity, synchronous mode, stop bits of another length: no card understands

    // A character as the transmitter puts it on the line at `start`.
    line_character_t frame (uint8_t value, bool address, bool no_stop, uint64_t start) const;
    // Whether the receiver makes characters of what a card sends with such bits.
    bool reads (const bit_time_t &bit) const;
};

scc_setup_t decode_scc_setup (const board_memory_t &memory);
