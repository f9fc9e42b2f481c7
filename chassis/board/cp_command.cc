#include "chassis/board/cp_command.h"

#include "scanp/mpc8260.h"

#include <iterator>

const char *cp_command_problem (uint32_t word)
{
    static const char *const by_opcode[] = {nullptr,
                                            "INIT RX PARAMETERS is not modelled",
                                            "INIT TX PARAMETERS is not modelled",
                                            "ENTER HUNT MODE is not modelled",
                                            "STOP TRANSMIT is not modelled",
                                            "GRACEFUL STOP TRANSMIT is not modelled",
                                            "RESTART TRANSMIT is not modelled"};
    uint32_t opcode = word & CPCR_OPCODE;
    bool is_known = (word & ~CPCR_OPCODE) == (CPCR_PAGE_SBC_SCC3 | CPCR_FLG);
    return is_known && opcode < std::size (by_opcode) ? by_opcode[opcode]
                                                      : "no command that the board knows";
}
