#include "chassis/board/clock.h"

#include "scanp/mpc8260.h"

uint32_t brg4_divider (const board_memory_t &memory)
{
    uint32_t brgc = memory.read32 (BRGC4);
    if (!(brgc & BRGC_EN)) {
        return 0;
    }
    uint32_t divider = ((brgc & BRGC_CD) >> BRGC_CD_SHIFT) + 1;
    return brgc & BRGC_DIV16 ? divider * 16 : divider;
}

bool brg4_clocks_transmitter (const board_memory_t &memory)
{
    return (memory.read32 (CMXSCR) & CMXSCR_TS3CS) == CMXSCR_TS3CS_BRG4;
}

bool brg4_clocks_receiver (const board_memory_t &memory)
{
    return (memory.read32 (CMXSCR) & CMXSCR_RS3CS) == CMXSCR_RS3CS_BRG4;
}
