#include "chassis/board/scc3.h"

#include "chassis/board/clock.h"
#include "chassis/board/pins.h"
#include "chassis/board/register_map.h"
#include "chassis/board/scc_ring.h"

constexpr uint32_t samples_a_bit = 16;
constexpr size_t long_fifo = 32;

namespace {
// The expected bits under the mask; anything else is refused, or noted.
struct rule_t {
    uint32_t offset;
    int width;
    uint32_t mask;
    uint32_t value;
    bool is_refused;
    const char *why;
};
} // namespace

constexpr uint32_t whole = 0xFFFFFFFF;
constexpr uint16_t psmr_seen_by_cards = PSMR_FLC | PSMR_SL | PSMR_RZS | PSMR_DRT | 0x000F;

static constexpr rule_t rules[] = {
    {GSMR_L3, 4, whole & ~(GSMR_L_ENR | GSMR_L_ENT),
     GSMR_L_TDCR_16 | GSMR_L_RDCR_16 | GSMR_L_MODE_UART, true,
     "only a UART that samples a bit 16 times is modelled"},
    {GSMR_H3, 4, whole & ~GSMR_H_TFL, GSMR_H_RFW, true,
     "only RFW is modelled, and without it no single characters are received"},
    {GSMR_H3, 4, GSMR_H_TFL, 0, false, "TFL: the transmit FIFO holds one character"},
    {PSMR3, 2, 0xFFFF & ~psmr_seen_by_cards, PSMR_CL_8 | PSMR_UM_MULTIDROP_AUTO, true,
     "only automatic multidrop, 8 data bits and no parity are modelled"},
    {PSMR3, 2, psmr_seen_by_cards, PSMR_FLC, false,
     "flow control other than FLC, a second stop bit, RZS, DRT and the kind of parity are not "
     "modelled"},
    {DSR3, 2, 0xFFFF, DSR_RESET, false, "shorter stop bits are not modelled"},
    {SCCM3, 2, 0xFFFF, 0, true, "interrupts are not modelled"},
    {BRGC4, 4, whole & ~(BRGC_EN | BRGC_CD | BRGC_DIV16), 0, true,
     "only BRGCLK is modelled as its clock"},
    {CMXSCR, 4, CMXSCR_SC3, 0, true, "the time-slot assigner is not modelled"},
    {CMXSCR, 4, CMXSCR_GR3, 0, false, "GR3: grants are not modelled"},
    {PODRC, 4, PC24 | PC25_PC31, 0, true, "open-drain pins are not modelled"},
    {PODRD, 4, PD24_TXD3, 0, true, "an open-drain TXD3 is not modelled"},
    {SCC3_PARAM (RFCR), 1, 0xFF & ~FCR_GBL, FCR_BIG_ENDIAN, true,
     "only big-endian memory is modelled"},
    {SCC3_PARAM (TFCR), 1, 0xFF & ~FCR_GBL, FCR_BIG_ENDIAN, true,
     "only big-endian memory is modelled"},
    {SCC3_PARAM (RFCR), 1, FCR_GBL, 0, false, "GBL: caches are not modelled"},
    {SCC3_PARAM (TFCR), 1, FCR_GBL, 0, false, "GBL: caches are not modelled"},
    {SCC3_PARAM (TOSEQ), 2, TOSEQ_REA, 0, true, "out-of-sequence characters are not modelled"},
    {SCC3_PARAM (CHARACTER), 2, CHARACTER_END, CHARACTER_END, true,
     "control characters are not modelled"},
    {SCC3_PARAM (RCCM), 2, RCCM_END, RCCM_END, true, "its two top bits end the control characters"},
};

bool scc3_t::is_enabled (uint32_t bits) const
{
    return memory_.read32 (GSMR_L3) & bits;
}

void scc3_t::check_set_up ()
{
    for (const rule_t &rule : rules) {
        uint32_t value = memory_.read (rule.offset, rule.width);
        if ((value & rule.mask) == rule.value) {
            continue;
        }
        const char *name = find_register (rule.offset)->name;
        rule.is_refused ? remarks_.refuse (name, value, rule.width, rule.why)
                        : remarks_.note (name, value, rule.width, rule.why);
    }
}

void scc3_t::follow_registers ()
{
    uint32_t gsmr = memory_.read32 (GSMR_L3);
    if (is_enabled ()) {
        check_set_up ();
    }
    uint64_t ticks = uint64_t{brg4_divider (memory_)} * samples_a_bit;
    transmit_bit_ = brg4_clocks_transmitter (memory_) ? ticks : 0;
    receive_bit_ = brg4_clocks_receiver (memory_) ? ticks : 0;
    transmits_ = (gsmr & GSMR_L_ENT) && transmit_bit_ != 0;
    receives_ = (gsmr & GSMR_L_ENR) && receive_bit_ != 0 && rxd3_is_connected (memory_);
    fifo_depth_ = memory_.read32 (GSMR_H3) & GSMR_H_TFL ? 1 : long_fifo;
}

line_character_t scc3_t::frame (uint8_t value, bool address, uint64_t start) const
{
    bit_time_t bit{transmit_bit_, 1};
    return {start,
            start + bit.lasts (BITS_PER_CHARACTER),
            false,
            -1,
            value,
            address,
            line_fault_t::none,
            bit,
            character_levels (value, address),
            BITS_PER_CHARACTER};
}

void scc3_t::raise (uint16_t event)
{
    memory_.write16 (SCCE3, memory_.read16 (SCCE3) | event);
}

void scc3_t::refuse_to_resume (const std::string &part)
{
    remarks_.refuse ("GSMR_L3", memory_.read32 (GSMR_L3), 4,
                     part + " was stopped inside a buffer: only INIT RX AND TX PARAMETERS says "
                            "where it resumes");
}
