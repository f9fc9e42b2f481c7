#include "chassis/board/board_memory.h"

#include "chassis/trap/own_descriptor.h"
#include "scanp/scanp_driver.h"

#include <errno.h>
#include <string.h>
#include <sys/mman.h>
#include <system_error>
#include <unistd.h>

constexpr const char *file_name = "q5_board_memory";
constexpr uint64_t page_size = 4096;
constexpr uint64_t address_space = 0x100000000;

[[noreturn]] static void fail (const char *what)
{
    throw std::system_error (errno, std::generic_category (), what);
}

board_memory_t::board_memory_t (const board_t &board)
{
    place_buffers (board.buffer);
    size_ = IMMR_SIZE + (buffers_end_ - buffers_begin_);
    file_ = moved_out_of_the_way (memfd_create (file_name, MFD_CLOEXEC));
    if (file_ < 0) {
        fail ("memory of the emulated board");
    }
    void *bytes = MAP_FAILED;
    if (ftruncate (file_, static_cast<off_t> (size_)) == 0) {
        bytes = mmap (nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED, file_, 0);
    }
    if (bytes == MAP_FAILED) {
        close (file_);
        fail ("memory of the emulated board");
    }
    bytes_ = static_cast<uint8_t *> (bytes);
    fill (board.fill);
}

board_memory_t::~board_memory_t ()
{
    munmap (bytes_, size_);
    close (file_);
}

// 0 and what reaches past the top of the address space are failure values, not addresses.
void board_memory_t::place_buffers (uint32_t address)
{
    uint64_t end = static_cast<uint64_t> (address) + SCAN_BUFFERS_SIZE;
    if (address == 0 || end > address_space) {
        return;
    }
    buffers_begin_ = address & ~(page_size - 1);
    buffers_end_ = (end + page_size - 1) & ~(page_size - 1);
}

void board_memory_t::fill (board_t::fill_t how)
{
    if (how == board_t::fill_t::zeros || how == board_t::fill_t::ones) {
        memset (bytes_, how == board_t::fill_t::ones ? 0xFF : 0x00, size_);
        return;
    }
    uint32_t seed = static_cast<uint32_t> (how) - static_cast<uint32_t> (board_t::fill_t::noise);
    uint32_t state = 0x9E3779B9 + seed; // xorshift, the same noise each time
    for (size_t i = 0; i < size_; i++) {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        bytes_[i] = static_cast<uint8_t> (state >> 24);
    }
}

bool board_memory_t::is_internal (uint64_t phys, uint64_t length)
{
    return phys >= IMMR_BASE && phys - IMMR_BASE < IMMR_SIZE &&
           length <= IMMR_SIZE - (phys - IMMR_BASE);
}

bool board_memory_t::is_buffers (uint64_t phys, uint64_t length) const
{
    return phys >= buffers_begin_ && phys < buffers_end_ && length <= buffers_end_ - phys;
}

uint8_t *board_memory_t::physical (uint32_t address)
{
    if (is_internal (address, 1)) {
        return bytes_ + (address - IMMR_BASE);
    }
    if (is_buffers (address, 1)) {
        return bytes_ + IMMR_SIZE + (address - buffers_begin_);
    }
    return nullptr;
}

void *board_memory_t::map (void *where, size_t length, int protection, int flags, uint64_t phys)
{
    bool internal = is_internal (phys, length);
    if (!internal && !is_buffers (phys, length)) {
        errno = EPERM;
        return MAP_FAILED;
    }
    if (!is_memory_file (file_, file_name)) {
        errno = EBADF;
        return MAP_FAILED;
    }
    uint64_t offset = internal ? phys - IMMR_BASE : IMMR_SIZE + (phys - buffers_begin_);
    return mmap (where, length, internal ? PROT_NONE : protection, flags, file_,
                 static_cast<off_t> (offset));
}
