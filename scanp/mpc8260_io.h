// Access to device memory, by width: each function is one volatile, whole-width, big-endian access;
// io_set and io_clear are one read and one write. On PowerPC the accesses are kept in order, and
// none is merged with its neighbour. The data buffers are copied without eieio: io_complete
// separates the copies from the device accesses that they belong to.
#pragma once

#include "base/big_endian.h"

#include <stdint.h>
#include <string.h>

// Keeps the device access before it, a load of `value` or a store to `word`, ahead of those after
// it. The operand orders it after that access; what the compiler knows of other memory stays valid.
template <typename value_t> inline void io_order_load (value_t &value)
{
#ifdef __powerpc__
    __asm__ volatile("eieio" : "+r"(value));
#else
    (void)value;
#endif
}

template <typename word_t> inline void io_order_store (volatile word_t *word)
{
#ifdef __powerpc__
    __asm__ volatile("eieio" : : "m"(*word));
#else
    (void)word;
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
    io_order_load (raw);
    return be16toh (raw);
}

inline uint32_t io_read (const volatile be32_t *word)
{
    uint32_t raw = word->raw;
    io_order_load (raw);
    return be32toh (raw);
}

inline void io_write (volatile uint8_t *byte, uint8_t value)
{
    *byte = value;
    io_order_store (byte);
}

inline void io_write (volatile be16_t *word, uint16_t value)
{
    word->raw = htobe16 (value);
    io_order_store (word);
}

inline void io_write (volatile be32_t *word, uint32_t value)
{
    word->raw = htobe32 (value);
    io_order_store (word);
}

inline void io_set (volatile be32_t *word, uint32_t bits)
{
    io_write (word, io_read (word) | bits);
}

inline void io_clear (volatile be32_t *word, uint32_t bits)
{
    io_write (word, io_read (word) & ~bits);
}

// Copies between ordinary memory and a buffer of the device, at any address, `size` bytes (none
// when it is negative). On the target each access to the device is an aligned word; ahead of the
// first and after the last at most one byte and one halfword: uncached memory takes as long
// whatever the width.
#ifdef __powerpc__
template <typename copy_t>
inline void io_copy_by_words (const volatile uint8_t *const &device, int32_t size, copy_t copy)
{
    auto copy_words = [&](int count) __attribute__ ((always_inline))
    {
#pragma GCC unroll 8
        for (int i = 0; i < count; i++) {
            copy (uint32_t ());
        }
    };
    if (size > 0 && reinterpret_cast<uintptr_t> (device) & 1) {
        copy (uint8_t ());
        size -= 1;
    }
    if (size > 1 && reinterpret_cast<uintptr_t> (device) & 2) {
        copy (uint16_t ());
        size -= 2;
    }
    if (size <= 0) {
        return;
    }
    for (uint32_t blocks = uint32_t (size) / 32; blocks > 0; blocks--) {
        copy_words (8);
    }
    if (size & 16) {
        copy_words (4);
    }
    if (size & 8) {
        copy_words (2);
    }
    if (size & 4) {
        copy_words (1);
    }
    if (size & 2) {
        copy (uint16_t ());
    }
    if (size & 1) {
        copy (uint8_t ());
    }
}

inline void io_copy_from (uint8_t *to, const volatile uint8_t *device, int32_t size)
{
    io_copy_by_words (device, size, [&] (auto unit) {
        unit = *reinterpret_cast<const volatile decltype (unit) *> (device);
        memcpy (to, &unit, sizeof (unit));
        device += sizeof (unit);
        to += sizeof (unit);
    });
}

inline void io_copy_to (volatile uint8_t *device, const uint8_t *from, int32_t size)
{
    const volatile uint8_t *at = device;
    io_copy_by_words (at, size, [&] (auto unit) {
        memcpy (&unit, from, sizeof (unit));
        *reinterpret_cast<volatile decltype (unit) *> (device) = unit;
        at = device += sizeof (unit);
        from += sizeof (unit);
    });
}
#else
inline void io_copy_from (uint8_t *to, const volatile uint8_t *device, int32_t size)
{
    if (size > 0) {
        memcpy (to, const_cast<const uint8_t *> (device), size);
    }
}

inline void io_copy_to (volatile uint8_t *device, const uint8_t *from, int32_t size)
{
    if (size > 0) {
        memcpy (const_cast<uint8_t *> (device), from, size);
    }
}
#endif
