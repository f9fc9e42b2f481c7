#include "chassis/board/register_map.h"

#include "chassis/board/scc_ring.h"
#include "scanp/mpc8260.h"
#include "scanp/scanp_driver.h"

#include <algorithm>
#include <iterator>

constexpr uint32_t all = 0xFFFFFFFF;
constexpr uint32_t pins_4_to_31 = 0x0FFFFFFF; // of ports B and D

static constexpr known_register_t own (uint32_t offset, uint32_t width, const char *name,
                                       uint32_t reset = 0, effect_t on_write = effect_t::none)
{
    return {offset, width, name, all, 0, 0, reset, effect_t::none, on_write};
}

static constexpr known_register_t parameter (uint32_t offset, uint32_t width, const char *name,
                                             effect_t on_write = effect_t::none)
{
    return {offset, width, name, all, 0, all, 0, effect_t::none, on_write};
}

static constexpr known_register_t shared (uint32_t offset, const char *name, uint32_t ours,
                                          uint32_t present)
{
    return {offset, 4, name, ours, present & ~ours, present & ~ours};
}

// A data register shows the levels of its input pins, which are arbitrary.
static constexpr known_register_t pins (uint32_t offset, const char *name, uint32_t ours,
                                        uint32_t present, effect_t on_read = effect_t::none)
{
    return {offset, 4, name, ours, present & ~ours, present, 0, on_read};
}

#define OWN(width, name, ...) own (name, width, #name, ##__VA_ARGS__)
#define PARAMETER(width, name, ...) parameter (SCC3_PARAM (name), width, #name, ##__VA_ARGS__)
#define CONTROL_CHARACTER(n) parameter (SCC3_PARAM (CHARACTER) + 2 * (n - 1), 2, "CHARACTER" #n)
#define PORT_B(name) shared (name, #name, PB8 | PB14, pins_4_to_31)
#define PORT_C(name) shared (name, #name, PC24 | PC25_PC31, all)
#define PORT_D(name) shared (name, #name, PD24_TXD3 | PD25_RXD3, pins_4_to_31)

// By offset.
static constexpr known_register_t known[] = {
    PARAMETER (2, RBASE),
    PARAMETER (2, TBASE),
    PARAMETER (1, RFCR),
    PARAMETER (1, TFCR),
    PARAMETER (2, MRBLR),
    PARAMETER (4, RSTATE, effect_t::stops_the_receiver),
    PARAMETER (4, R_IDP),
    PARAMETER (2, RBPTR),
    PARAMETER (2, R_COUNT),
    PARAMETER (4, R_TEMP),
    PARAMETER (4, TSTATE, effect_t::stops_the_transmitter),
    PARAMETER (4, T_IDP),
    PARAMETER (2, TBPTR),
    PARAMETER (2, T_COUNT),
    PARAMETER (4, T_TEMP),
    PARAMETER (4, RCRC),
    PARAMETER (4, TCRC),
    PARAMETER (2, MAX_IDL),
    PARAMETER (2, IDLC),
    PARAMETER (2, BRKCR),
    PARAMETER (2, PAREC),
    PARAMETER (2, FRMEC),
    PARAMETER (2, NOSEC),
    PARAMETER (2, BRKEC),
    PARAMETER (2, BRKLN),
    PARAMETER (2, UADDR1),
    PARAMETER (2, UADDR2),
    PARAMETER (2, RTEMP),
    PARAMETER (2, TOSEQ),
    CONTROL_CHARACTER (1),
    CONTROL_CHARACTER (2),
    CONTROL_CHARACTER (3),
    CONTROL_CHARACTER (4),
    CONTROL_CHARACTER (5),
    CONTROL_CHARACTER (6),
    CONTROL_CHARACTER (7),
    CONTROL_CHARACTER (8),
    PARAMETER (2, RCCM),
    PARAMETER (2, RCCR),
    PARAMETER (2, RLBC),
    PORT_B (PDIRB),
    PORT_B (PPARB),
    PORT_B (PSORB),
    PORT_B (PODRB),
    pins (PDATB, "PDATB", PB8 | PB14, pins_4_to_31),
    PORT_C (PDIRC),
    PORT_C (PPARC),
    PORT_C (PSORC),
    PORT_C (PODRC),
    pins (PDATC, "PDATC", PC24 | PC25_PC31, all),
    PORT_D (PDIRD),
    PORT_D (PPARD),
    PORT_D (PSORD),
    PORT_D (PODRD),
    pins (PDATD, "PDATD", PD24_TXD3 | PD25_RXD3, pins_4_to_31, effect_t::shows_receive_line),
    OWN (4, BRGC4),
    OWN (4, GSMR_L3),
    OWN (4, GSMR_H3),
    OWN (2, PSMR3),
    OWN (2, DSR3, DSR_RESET),
    OWN (2, SCCE3, 0, effect_t::clears_events),
    OWN (2, SCCM3),
    {SCCS3, 1, "SCCS3", 0, 0, 0, 0, effect_t::shows_idle_line},
    shared (CMXSCR, "CMXSCR", CMXSCR_SCC3, all),
};

met_registers_t registers_at (uint32_t offset, int width)
{
    auto ends_before = [] (const known_register_t &r, uint32_t at) {
        return r.offset + r.width <= at;
    };
    const known_register_t *begin =
        std::lower_bound (std::begin (known), std::end (known), offset, ends_before);
    const known_register_t *end = begin;
    while (end != std::end (known) && end->offset < offset + static_cast<uint32_t> (width)) {
        end++;
    }
    return {begin, end, begin != end && begin->offset <= offset ? begin->name : ""};
}

const known_register_t *find_register (uint32_t offset)
{
    met_registers_t met = registers_at (offset, 1);
    return met.first == met.last ? nullptr : met.first;
}

void reset_registers (board_memory_t &memory)
{
    for (const known_register_t &r : known) {
        int width = static_cast<int> (r.width);
        memory.write (r.offset, width, (memory.read (r.offset, width) & r.filled) | r.reset);
    }
}

namespace {
struct area_t {
    uint32_t end; // begins where the one before it ends
    bool is_ours;
    bool is_reserved;
    bool is_known;
    const char *name;
};
} // namespace

// Everything but the known registers (chapter "Memory Map").
static constexpr area_t areas[] = {
    {0x04000, false, false, true, "dual-port RAM that the driver did not reserve"},
    {0x08000, false, true, true, "reserved memory"},
    {SCC3_PRAM, false, false, true, "another controller's parameter RAM"},
    {SCC3_PRAM + 0x100, true, false, true, ""},
    {0x09000, false, false, true, "another controller's parameter RAM"},
    {0x0B000, false, true, true, "reserved memory"},
    {0x0C000, false, false, true, "dual-port RAM that the driver did not reserve"},
    {0x10000, false, true, true, "reserved memory"},
    {0x20000, false, false, false, ""},
    {all, false, true, true, "reserved memory"},
};

// Of bytes in one register, or of one byte.
static bit_owners_t owners_within (const known_register_t *r, uint32_t at, uint32_t width,
                                   uint32_t dpram)
{
    const uint32_t whole = all >> (32 - 8 * width);
    if (at - dpram < SCANP_DPMEM_SIZE) { // modulo 2^32
        return {whole, 0, true, ""};
    }
    if (r != nullptr) {
        uint32_t shift = 8 * (r->offset + r->width - width - at);
        return {r->ours >> shift & whole, ~(r->ours | r->others) >> shift & whole, true, r->name};
    }
    const area_t *area = areas;
    while (at >= area->end && area->end != all) {
        area++;
    }
    return {area->is_ours ? whole : 0, area->is_reserved ? whole : 0, area->is_known, area->name};
}

bit_owners_t owners_at (const met_registers_t &met, uint32_t offset, int width, uint32_t dpram)
{
    const auto bytes = static_cast<uint32_t> (width);
    if (*met.name && offset + bytes <= met.first->offset + met.first->width) {
        return owners_within (met.first, offset, bytes, dpram);
    }
    bit_owners_t owners = owners_within (find_register (offset), offset, 1, dpram);
    for (uint32_t i = 1; i < bytes; i++) {
        bit_owners_t byte = owners_within (find_register (offset + i), offset + i, 1, dpram);
        owners.ours = owners.ours << 8 | byte.ours;
        owners.reserved = owners.reserved << 8 | byte.reserved;
        owners.is_known = owners.is_known && byte.is_known;
    }
    return owners;
}
