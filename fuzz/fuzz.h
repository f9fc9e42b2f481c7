// What the fuzz targets share: the values that are read out of an input.
#pragma once

#include "tests/require.h"
#include "tests/support.h"

// An input, read from its front; after its end all is 0.
class input_t {
  public:
    input_t (const uint8_t *data, size_t size) : next (data), end (data + size) {}

    uint8_t byte ()
    {
        return next < end ? *next++ : 0;
    }
    // A word of at most 32 bits: below 0x80 the byte itself, then one of the values at which
    // something changes, then, from 0xC0, the next four bytes.
    int32_t word ()
    {
        static constexpr int32_t edges[] = {
            INT32_MIN, -0x70000000, -0x6FFFFFFF, -256, -1,   255,  256,        257,
            2047,      2048,        4094,        4095, 4096, 4097, 0x10000001, INT32_MAX};
        uint8_t first = byte ();
        if (first < 0x80) {
            return first;
        }
        if (first < 0xC0) {
            return edges[first % 16];
        }
        const uint32_t b[] = {byte (), byte (), byte (), byte ()};
        return static_cast<int32_t> (b[0] << 24 | b[1] << 16 | b[2] << 8 | b[3]);
    }
    bool at_end () const
    {
        return next == end;
    }
    bytes_t rest ()
    {
        return bytes_t (std::exchange (next, end), end);
    }

  private:
    const uint8_t *next;
    const uint8_t *end;
};
