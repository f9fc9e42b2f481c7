// What both directions of SCC3 share: words of the parameter RAM by name, and a ring of buffer
// descriptors.
#pragma once

#include "chassis/board/board_memory.h"
#include "scanp/mpc8260.h"

#include <stddef.h>

// The offset of a parameter in the internal memory map: SCC3_PARAM (RBASE).
#define SCC3_PARAM(name) (SCC3_PRAM + static_cast<uint32_t> (offsetof (scc_uart_pram_t, name)))

// One direction's descriptors. The live pointer is the parameter RAM's own word.
struct scc_ring_t {
    board_memory_t &memory;
    uint32_t base;    // offset of RBASE, TBASE
    uint32_t pointer; // offset of RBPTR, TBPTR

    // Offsets in the internal memory map, of the live descriptor and its fields.
    uint32_t live () const
    {
        return memory.read16 (pointer);
    }
    uint32_t status () const
    {
        return live () + static_cast<uint32_t> (offsetof (scc_bd_t, status));
    }
    uint32_t length () const
    {
        return live () + static_cast<uint32_t> (offsetof (scc_bd_t, length));
    }
    uint32_t buffer () const
    {
        return live () + static_cast<uint32_t> (offsetof (scc_bd_t, pointer));
    }
    // Descriptors are aligned to their size.
    bool is_aligned () const
    {
        return live () % sizeof (scc_bd_t) == 0;
    }
    void rewind ()
    {
        memory.write16 (pointer, memory.read16 (base));
    }
    void advance (bool wrap)
    {
        wrap ? rewind ()
             : memory.write16 (pointer, static_cast<uint16_t> (live () + sizeof (scc_bd_t)));
    }
};
