#include "chassis/board/scc_setup.h"

#include "chassis/board/clock.h"
#include "scanp/mpc8260.h"

// An event that is not masked interrupts the processor, where nobody serves it: the board hangs.
static bool mode_works (const board_memory_t &memory)
{
    constexpr uint32_t free_bits = GSMR_L_TDCR | GSMR_L_RDCR | GSMR_L_ENR | GSMR_L_ENT;
    return (memory.read32 (GSMR_L3) & ~free_bits) == GSMR_L_MODE_UART &&
           (memory.read32 (GSMR_H3) & ~GSMR_H_RFW) == 0 && memory.read16 (SCCM3) == 0;
}

// TDCR and RDCR: how often a bit is sampled.
static uint32_t oversampling (uint32_t field)
{
    constexpr uint32_t times[4] = {1, 8, 16, 32};
    return times[field];
}

static void decode_clocks (const board_memory_t &memory, scc_setup_t &setup)
{
    uint32_t gsmr = memory.read32 (GSMR_L3), divider = brg4_divider (memory);
    uint32_t transmit = brg4_clocks_transmitter (memory) ? divider : 0;
    uint32_t receive = brg4_clocks_receiver (memory) ? divider : 0;
    setup.tx_divider = transmit * oversampling ((gsmr & GSMR_L_TDCR) >> GSMR_L_TDCR_SHIFT);
    setup.rx_divider = receive * oversampling ((gsmr & GSMR_L_RDCR) >> GSMR_L_RDCR_SHIFT);
}

static scc_setup_t::multidrop_t multidrop_of (uint16_t psmr)
{
    switch (psmr & PSMR_UM) {
    case PSMR_UM_NORMAL:
        return scc_setup_t::multidrop_t::none;
    case PSMR_UM_MULTIDROP_MANUAL:
        return scc_setup_t::multidrop_t::manual;
    case PSMR_UM_MULTIDROP_AUTO:
        return scc_setup_t::multidrop_t::automatic;
    default:
        return scc_setup_t::multidrop_t::reserved;
    }
}

static void decode_psmr (const board_memory_t &memory, scc_setup_t &setup)
{
    uint16_t psmr = memory.read16 (PSMR3);
    setup.flow_control = psmr & PSMR_FLC;
    setup.frozen = psmr & PSMR_FRZ;
    setup.multidrop = multidrop_of (psmr);
    setup.data_bits = 5 + (psmr & PSMR_CL) / (PSMR_CL & -PSMR_CL);
    setup.stop_bits = psmr & PSMR_SL ? 2 : 1;
    constexpr uint16_t known = PSMR_FLC | PSMR_SL | PSMR_CL | PSMR_UM | PSMR_FRZ;
    setup.garbles = (psmr & ~known) || memory.read16 (DSR3) != DSR_RESET ||
                    setup.multidrop == scc_setup_t::multidrop_t::reserved;
}

scc_setup_t decode_scc_setup (const board_memory_t &memory)
{
    scc_setup_t setup{};
    uint32_t gsmr = memory.read32 (GSMR_L3);
    bool works = mode_works (memory);
    setup.transmits = works && (gsmr & GSMR_L_ENT);
    setup.receives = works && (gsmr & GSMR_L_ENR) && (memory.read32 (GSMR_H3) & GSMR_H_RFW);
    decode_clocks (memory, setup);
    decode_psmr (memory, setup);
    return setup;
}

line_character_t scc_setup_t::frame (uint8_t value, bool address, bool no_stop,
                                     uint64_t start) const
{
    uint32_t levels = static_cast<uint32_t> (value) << 1; // after the start bit
    int count = 1 + data_bits;
    levels &= (1u << count) - 1;
    if (multidrop != multidrop_t::none) {
        levels |= static_cast<uint32_t> (address) << count++;
    }
    for (int i = 0; i < stop_bits && !no_stop; i++) {
        levels |= 1u << count++;
    }
    bool readable =
        !garbles && multidrop != multidrop_t::none && data_bits == 8 && count == BITS_PER_CHARACTER;
    bit_time_t bit{tx_divider, 1};
    return {
        start,   start + bit.lasts (static_cast<uint64_t> (count)),          false, -1,     value,
        address, readable ? line_fault_t::none : line_fault_t::wrong_format, bit,   levels, count};
}

bool scc_setup_t::reads (const bit_time_t &bit) const
{
    return !garbles && data_bits == 8 && bit_time_t{rx_divider, 1}.reads (bit);
}
