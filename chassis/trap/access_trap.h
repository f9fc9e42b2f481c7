// Makes the program's own loads and stores to device registers visible: the pages of a trapped view
// are closed, so that each access faults; the faulting instruction is decoded, carried out on a
// register file, and stepped over. All this happens in the accessing thread, at the instruction.
#pragma once

#include "chassis/trap/register_file.h"

#include <stddef.h>

struct trapped_view_t {
    uint8_t *begin; // closed pages: PROT_NONE
    size_t length;
    uint32_t offset; // in the register file, of `begin`
    int protection;  // what the program asked for: an access beyond it is its own fault
    register_file_t *registers;
};

// Installs the handler of SIGSEGV at the first call. Faults elsewhere go on to the handler that was
// there before. An instruction that the decoder does not know ends the process, with a message.
void trap_view (const trapped_view_t &view);
// Forgets all views of these registers, before they go away.
void forget_trapped_views (const register_file_t &registers);
