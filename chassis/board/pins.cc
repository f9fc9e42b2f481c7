#include "chassis/board/pins.h"

#include "scanp/mpc8260.h"

static bool all_set (const board_memory_t &memory, uint32_t offset, uint32_t bits)
{
    return (memory.read32 (offset) & bits) == bits;
}

static bool all_clear (const board_memory_t &memory, uint32_t offset, uint32_t bits)
{
    return (memory.read32 (offset) & bits) == 0;
}

bool select_pins_drive (const board_memory_t &memory)
{
    constexpr uint32_t pins = PC24 | PC25_PC31;
    return all_clear (memory, PPARC, pins) && all_clear (memory, PSORC, pins) &&
           all_clear (memory, PODRC, pins) && all_set (memory, PDIRC, pins);
}

// The SCC's own function of a pin, push-pull.
static bool is_dedicated (const board_memory_t &memory, uint32_t pin)
{
    return all_set (memory, PPARD, pin) && all_clear (memory, PSORD, pin) &&
           all_clear (memory, PODRD, pin);
}

bool txd3_is_connected (const board_memory_t &memory)
{
    return is_dedicated (memory, PD24_TXD3) && all_set (memory, PDIRD, PD24_TXD3);
}

bool rxd3_is_connected (const board_memory_t &memory)
{
    return is_dedicated (memory, PD25_RXD3) && all_clear (memory, PDIRD, PD25_RXD3);
}

bool rxd3_reads_latch (const board_memory_t &memory)
{
    return all_clear (memory, PPARD, PD25_RXD3) && all_set (memory, PDIRD, PD25_RXD3);
}

bool line_drivers_are_on (const board_memory_t &memory)
{
    constexpr uint32_t pins = PB8 | PB14;
    return all_clear (memory, PPARB, pins) && all_clear (memory, PSORB, pins) &&
           all_set (memory, PDIRB, pins);
}
