// Access to device memory, by width: each function is one volatile, whole-width, big-endian access;
// io_set and io_clear are one read and one write. On PowerPC the accesses are kept in order, and
// none is merged with its neighbour. The data buffers are plain memory to the core: between them
// and the device stands io_complete.
#pragma once

#include "base/big_endian.h"

#include <stdint.h>

// Keeps the device accesses before it, loads and stores, ahead of those after it. What the compiler
// knows of other memory stays valid: io_complete stands where that matters.
inline void io_order ()
{
#ifdef __powerpc__
    __asm__ volatile("eieio");
#endif
}

// Every access before it, buffers in ordinary memory included, is done before any after it.
inline void io_complete ()
{
#ifdef __powerpc__
    __asm__ volatile("sync" ::: "memory");
#else
    __asm__ volatile("" ::: "memory");
#endif
}

inline uint16_t io_read (const volatile be16_t *word)
{
    uint16_t raw = word->raw;
    io_order ();
    return be16toh (raw);
}

inline uint32_t io_read (const volatile be32_t *word)
{
    uint32_t raw = word->raw;
    io_order ();
    return be32toh (raw);
}

inline void io_write (volatile uint8_t *byte, uint8_t value)
{
    *byte = value;
    io_order ();
}

inline void io_write (volatile be16_t *word, uint16_t value)
{
    word->raw = htobe16 (value);
    io_order ();
}

inline void io_write (volatile be32_t *word, uint32_t value)
{
    word->raw = htobe32 (value);
    io_order ();
}

inline void io_set (volatile be32_t *word, uint32_t bits)
{
    io_write (word, io_read (word) | bits);
}

inline void io_clear (volatile be32_t *word, uint32_t bits)
{
    io_write (word, io_read (word) & ~bits);
}
