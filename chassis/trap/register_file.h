// What the program's accesses arrive at.
#pragma once

#include <stdint.h>

// Device registers: big-endian words of 1, 2 or 4 bytes at an offset.
struct register_file_t {
    virtual uint32_t read (uint32_t offset, int width) = 0;
    virtual void write (uint32_t offset, int width, uint32_t value) = 0;

  protected:
    ~register_file_t () = default;
};

// The place in it that an access met.
struct register_place_t {
    register_file_t &registers;
    uint32_t offset;

    uint32_t read (int width) const
    {
        return registers.read (offset, width);
    }
    void write (int width, uint32_t value) const
    {
        registers.write (offset, width, value);
    }
};
