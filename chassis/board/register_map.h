// The registers that the model knows, by offset: their names in the manual, whose their bits are,
// what they hold after reset, and what an access does besides reading or storing.
#pragma once

#include <stdint.h>

class board_memory_t;

enum class effect_t {
    none,
    shows_receive_line,    // read: PD25 is the level of RXD3
    shows_idle_line,       // read: ID is set after a character time without a start bit
    clears_events,         // write: a one clears its bit
    stops_the_receiver,    // write: the controller's own state is lost
    stops_the_transmitter, // write: likewise
};

struct known_register_t {
    uint32_t offset;
    uint32_t width; // bytes
    const char *name;
    uint32_t ours;      // bits that the program may change
    uint32_t others;    // bits of other drivers; the remaining ones are reserved
    uint32_t filled;    // bits with arbitrary contents after reset
    uint32_t reset = 0; // of the rest
    effect_t on_read = effect_t::none;
    effect_t on_write = effect_t::none;
};

// The register that contains the offset; null: none that is known.
const known_register_t *find_register (uint32_t offset);
// The registers that an access meets.
struct met_registers_t {
    const known_register_t *first, *last; // begin and end
    const char *name;                     // of the one that contains the first byte; or empty
};
met_registers_t registers_at (uint32_t offset, int width);

// Gives the registers their values after reset, except for bits with arbitrary contents.
void reset_registers (board_memory_t &memory);

// Who owns the bits of an access. `width`: 1, 2 or 4 bytes.
struct bit_owners_t {
    uint32_t ours;
    uint32_t reserved; // neither ours nor another driver's
    bool is_known;     // RAM, or a register that the model knows
    const char *name;  // of the first byte's place
};
// `dpram`: the offset of the dual-port RAM that the driver reserved.
bit_owners_t owners_at (const met_registers_t &met, uint32_t offset, int width, uint32_t dpram);
