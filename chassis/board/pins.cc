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

// PSOR has no effect on a general-purpose pin.
bool select_pins_drive (const board_memory_t &memory)
{
    constexpr uint32_t pins = PC24 | PC25_PC31;
    return all_clear (memory, PPARC, pins) && all_set (memory, PDIRC, pins);
}

// The SCC's own function of a pin.
static bool is_dedicated (const board_memory_t &memory, uint32_t pin)
{
    return all_set (memory, PPARD, pin) && all_clear (memory, PSORD, pin);
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

bool cts3_is_connected (const board_memory_t &memory)
{
    return all_set (memory, PPARC, PC11_CTS3); // no program changes what set_cts3 has set
}

void set_cts3 (board_memory_t &memory, bool connected)
{
    uint32_t pparc = memory.read32 (PPARC);
    memory.write (PPARC, 4, connected ? pparc | PC11_CTS3 : pparc & ~PC11_CTS3);
    memory.write (PSORC, 4, memory.read32 (PSORC) & ~PC11_CTS3);
    memory.write (PDIRC, 4, memory.read32 (PDIRC) & ~PC11_CTS3);
}
