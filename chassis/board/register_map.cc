#include "chassis/board/register_map.h"

#include "chassis/board/scc_ring.h"
#include "scanp/mpc8260.h"

#include <algorithm>
#include <iterator>

constexpr uint32_t registers_begin = 0x10000; // dual-port RAM before it
constexpr uint32_t registers_end = 0x20000;   // reserved behind it

#define PARAMETER(width, name)                                                                     \
    {                                                                                              \
        SCC3_PARAM (name), width, #name                                                            \
    }
#define CONTROL_CHARACTER(n)                                                                       \
    {                                                                                              \
        SCC3_PARAM (CHARACTER) + 2 * (n - 1), 2, "CHARACTER" #n                                    \
    }
#define REGISTER(width, name)                                                                      \
    {                                                                                              \
        name, width, #name                                                                         \
    }

// By offset.
static constexpr known_register_t known[] = {
    PARAMETER (2, RBASE),   PARAMETER (2, TBASE),   PARAMETER (1, RFCR),   PARAMETER (1, TFCR),
    PARAMETER (2, MRBLR),   PARAMETER (4, RSTATE),  PARAMETER (4, R_IDP),  PARAMETER (2, RBPTR),
    PARAMETER (2, R_COUNT), PARAMETER (4, R_TEMP),  PARAMETER (4, TSTATE), PARAMETER (4, T_IDP),
    PARAMETER (2, TBPTR),   PARAMETER (2, T_COUNT), PARAMETER (4, T_TEMP), PARAMETER (4, RCRC),
    PARAMETER (4, TCRC),    PARAMETER (2, MAX_IDL), PARAMETER (2, IDLC),   PARAMETER (2, BRKCR),
    PARAMETER (2, PAREC),   PARAMETER (2, FRMEC),   PARAMETER (2, NOSEC),  PARAMETER (2, BRKEC),
    PARAMETER (2, BRKLN),   PARAMETER (2, UADDR1),  PARAMETER (2, UADDR2), PARAMETER (2, RTEMP),
    PARAMETER (2, TOSEQ),   CONTROL_CHARACTER (1),  CONTROL_CHARACTER (2), CONTROL_CHARACTER (3),
    CONTROL_CHARACTER (4),  CONTROL_CHARACTER (5),  CONTROL_CHARACTER (6), CONTROL_CHARACTER (7),
    CONTROL_CHARACTER (8),  PARAMETER (2, RCCM),    PARAMETER (2, RCCR),   PARAMETER (2, RLBC),
    REGISTER (4, PDIRB),    REGISTER (4, PPARB),    REGISTER (4, PSORB),   REGISTER (4, PDIRC),
    REGISTER (4, PPARC),    REGISTER (4, PSORC),    REGISTER (4, PODRC),   REGISTER (4, PDATC),
    REGISTER (4, PDIRD),    REGISTER (4, PPARD),    REGISTER (4, PSORD),   REGISTER (4, PODRD),
    REGISTER (4, PDATD),    REGISTER (4, BRGC4),    REGISTER (4, GSMR_L3), REGISTER (4, GSMR_H3),
    REGISTER (2, PSMR3),    REGISTER (2, DSR3),     REGISTER (2, SCCE3),   REGISTER (2, SCCM3),
    REGISTER (4, CMXSCR),
};

const known_register_t *find_register (uint32_t offset)
{
    auto after = [] (uint32_t at, const known_register_t &r) { return at < r.offset; };
    const known_register_t *next =
        std::upper_bound (std::begin (known), std::end (known), offset, after);
    if (next == std::begin (known) || offset >= next[-1].offset + next[-1].width) {
        return nullptr;
    }
    return next - 1;
}

const char *access_problem (uint32_t offset, uint32_t width)
{
    if (offset + width <= registers_begin || offset >= registers_end) {
        return nullptr;
    }
    const known_register_t *found = find_register (offset);
    if (found == nullptr) {
        return "no register that the board knows";
    }
    return found->offset == offset && found->width == width ? nullptr
                                                            : "not the register's own width";
}
