// Big-endian words, as on the wire, in the device's memory and in buffer descriptors.
#pragma once

#include <endian.h>
#include <stdint.h>

// A signed 32-bit word in big-endian byte order. Reads and writes as a host integer; on the target
// the conversion is free. Trivial, so that a record of such words can be read straight off a
// socket.
struct be32_t {
    uint32_t raw;

    be32_t () = default;
    be32_t (int32_t value) : raw (htobe32 (static_cast<uint32_t> (value))) {}
    operator int32_t () const
    {
        return static_cast<int32_t> (be32toh (raw));
    }
};

// An unsigned 16-bit word in big-endian byte order, for what is read and written in place only: see
// scanp/mpc8260_io.h.
struct be16_t {
    uint16_t raw;
};

static_assert (sizeof (be32_t) == 4 && alignof (be32_t) == 4);
static_assert (sizeof (be16_t) == 2 && alignof (be16_t) == 2);
