// The board's memory: the internal memory map, and the pages that hold the driver's two buffers.
// One memory file holds both, so that the program and the emulated controller see the same bytes.
#pragma once

#include "chassis/bus/settings.h"
#include "scanp/mpc8260.h"

#include <stddef.h>

class board_memory_t {
  public:
    // Throws std::system_error when there is not enough memory.
    explicit board_memory_t (const board_t &board);
    ~board_memory_t ();
    board_memory_t (const board_memory_t &) = delete;
    board_memory_t &operator= (const board_memory_t &) = delete;

    // Big-endian words of the internal memory map; `width` is 1, 2 or 4. What is not wholly inside
    // reads 0 and is not written.
    uint32_t read (uint32_t offset, int width) const
    {
        uint32_t value = 0;
        for (int i = 0; i < width && is_inside (offset, width); i++) {
            value = value << 8 | bytes_[offset + static_cast<uint32_t> (i)];
        }
        return value;
    }
    void write (uint32_t offset, int width, uint32_t value)
    {
        for (int i = width; i > 0 && is_inside (offset, width); i--, value >>= 8) {
            bytes_[offset + static_cast<uint32_t> (i) - 1] = static_cast<uint8_t> (value);
        }
    }
    uint32_t read32 (uint32_t offset) const
    {
        return read (offset, 4);
    }
    uint16_t read16 (uint32_t offset) const
    {
        return static_cast<uint16_t> (read (offset, 2));
    }
    void write16 (uint32_t offset, uint16_t value)
    {
        write (offset, 2, value);
    }
    // Counts, modulo 2^16.
    void increment16 (uint32_t offset)
    {
        write16 (offset, static_cast<uint16_t> (read16 (offset) + 1));
    }

    // The byte at a physical address; null where the board has no memory.
    uint8_t *physical (uint32_t address);

    // Whether [phys, phys + length) is in the internal memory map; in the pages of the buffers.
    static bool is_internal (uint64_t phys, uint64_t length);
    bool is_buffers (uint64_t phys, uint64_t length) const;

    // A view of the board's memory for the program: the pages of the buffers as they are, those of
    // the internal memory map closed to every access. Like mmap: MAP_FAILED and errno on failure,
    // EPERM outside of the board's memory, EBADF when the program closed this object's descriptor.
    void *map (void *where, size_t length, int protection, int flags, uint64_t phys);

  private:
    uint8_t *bytes_ = nullptr; // the internal memory map, then the pages of the buffers
    size_t size_ = 0;
    int file_ = -1;
    uint64_t buffers_begin_ = 0; // physical, whole pages; equal to the end when there are none
    uint64_t buffers_end_ = 0;

    static bool is_inside (uint32_t offset, int width)
    {
        return offset <= IMMR_SIZE - static_cast<uint32_t> (width);
    }
    void place_buffers (uint32_t address);
    void fill (board_t::fill_t how);
};
