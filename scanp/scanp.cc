// Undo global build settings: the devices are opened with exactly the documented flags, by plain
// open and mmap, not open64 (O_LARGEFILE) or __open_2; and assertions stay.
#undef _FILE_OFFSET_BITS
#undef _TIME_BITS
#undef _FORTIFY_SOURCE
#undef NDEBUG

#include "scanp/scanp.h"

#include "scanp/mpc8260_io.h"

#include <assert.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/types.h>

scan_port_state_t scan_port_state;

constexpr uint32_t PAGE_SIZE = 4096;
constexpr uint32_t PAGE_MASK = PAGE_SIZE - 1;

// The C library's assertion. The messages are part of the interface, so the line is given: moving
// code does not change it.
#define DRIVER_ASSERT(line, condition)                                                             \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            __assert_fail (#condition, "scanp.cc", line, __func__);                                \
        }                                                                                          \
    } while (0)

int32_t scanp_open ()
{
    return open ("/dev/scanp", O_RDWR);
}

uint32_t scanp_get_phys_mem (int32_t fd)
{
    uint32_t addr = ioctl (fd, SCANP_GET_PHYS_MEM);
    DRIVER_ASSERT (27, addr != 0);
    return addr;
}

uint32_t scanp_get_dpmem_offset (int32_t fd)
{
    uint32_t offset = ioctl (fd, SCANP_GET_DPMEM_OFFSET);
    // clang-format off: the text of the message
    DRIVER_ASSERT (34, offset != ((uint)0x7fffffff));
    // clang-format on
    return offset;
}

int32_t scanp_do_cpcr_command (int32_t fd, uint32_t command)
{
    int32_t cc = ioctl (fd, SCANP_DO_CPCR_COMMAND, command);
    DRIVER_ASSERT (41, cc == 0);
    return cc;
}

volatile uint8_t *scanp_map_phys_mem (uint32_t phys, uint32_t length, int32_t uncached)
{
    // The descriptor deliberately stays open for the life of the process.
    int fd = open ("/dev/mem", uncached ? O_RDWR | O_SYNC : O_RDWR);
    if (fd < 0) {
        return nullptr;
    }
    // Modulo 2^32, so that a range may end at the top of the address space.
    uint32_t page_base = phys & ~PAGE_MASK;
    uint32_t end = (phys + length + PAGE_MASK) & ~PAGE_MASK;
    void *pages =
        mmap (nullptr, end - page_base, PROT_READ | PROT_WRITE, MAP_SHARED, fd, page_base);
    if (pages == MAP_FAILED) {
        return nullptr;
    }
    return static_cast<volatile uint8_t *> (pages) + (phys & PAGE_MASK);
}

int32_t scan_cp_command (uint32_t opcode)
{
    // The mask deliberately drops the opcode itself: every opcode from 0 to 15 sends INIT RX AND TX
    // PARAMETERS for SCC3.
    uint32_t command = (opcode & ~CPCR_OPCODE) | CPCR_PAGE_SBC_SCC3 | CPCR_FLG;
    io_complete (); // the command acts on parameter RAM and descriptors
    return scanp_do_cpcr_command (scan_port_state.scanp_fd, command);
}

void scan_set_slot_code (uint32_t code)
{
    io_write (reg32 (PDATC), (io_read (reg32 (PDATC)) & ~PC25_PC31) | (code & PC25_PC31));
}

void scan_strobe_low ()
{
    io_clear (reg32 (PDATC), PC24);
}

void scan_strobe_high ()
{
    io_set (reg32 (PDATC), PC24);
}
