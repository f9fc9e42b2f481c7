// The scan port driver's device, physical memory, the record of what the set-up found, and the pin
// and command routines that set-up and transfer share.
#pragma once

#include "scanp/mpc8260.h"
#include "scanp/scanp_driver.h"

#include <stdint.h>

constexpr int SCAN_NUM_BDS = 4; // descriptors in each direction

// The scan port as scan_port_init found it; zero before. One for the process, read by every
// transfer.
struct scan_port_state_t {
    volatile uint8_t *immr;    // the internal memory map
    int32_t scanp_fd;          // /dev/scanp, never closed
    volatile uint8_t *rx_buf;  // 4096 bytes
    volatile uint8_t *tx_buf;  // 4096 bytes; the mapping continues over rx_buf's memory
    uint32_t rx_buf_phys;      // physical address of the receive buffer
    uint32_t tx_buf_phys;      // physical address of the transmit buffer
    volatile scc_bd_t *rx_bds; // SCAN_NUM_BDS descriptors in dual-port RAM
    volatile scc_bd_t *tx_bds; // SCAN_NUM_BDS descriptors in dual-port RAM
    uint32_t rx_bd_offset;     // from the start of the internal memory map
    uint32_t tx_bd_offset;     // from the start of the internal memory map
};
extern scan_port_state_t scan_port_state;

// Opens /dev/scanp; a negative descriptor on failure.
int32_t scanp_open ();

// The driver's three requests. Each aborts the process, with the C library's assertion message, on
// the value that means failure: 0, 0x7FFFFFFF and nonzero, respectively.
// Returns the physical address of 8192 bytes: the transmit buffer, then the receive buffer.
uint32_t scanp_get_phys_mem (int32_t fd);
// Returns the offset, in the internal memory map, of at least 64 bytes of reserved dual-port RAM.
uint32_t scanp_get_dpmem_offset (int32_t fd);
// Has the driver write `command` to the CP command register and wait for its end. Returns 0.
int32_t scanp_do_cpcr_command (int32_t fd, uint32_t command);

// Maps `length` bytes at the physical address `phys` through /dev/mem; with `uncached` not 0
// through a descriptor opened with O_SYNC. Returns the address that corresponds to `phys`, or null.
volatile uint8_t *scanp_map_phys_mem (uint32_t phys, uint32_t length, int32_t uncached);

// Issues a CP command for SCC3. The opcode's low four bits are not passed on (see scanp.cc).
// Returns what scanp_do_cpcr_command returns.
int32_t scan_cp_command (uint32_t opcode);

// Port C (PDATC): the slot code, its low 7 bits, and the strobe under which it takes effect.
void scan_set_slot_code (uint32_t code);
void scan_strobe_low ();
void scan_strobe_high ();

// Registers by their offset in the internal memory map.
inline volatile be32_t *reg32 (uint32_t offset)
{
    return reinterpret_cast<volatile be32_t *> (scan_port_state.immr + offset);
}

inline volatile be16_t *reg16 (uint32_t offset)
{
    return reinterpret_cast<volatile be16_t *> (scan_port_state.immr + offset);
}

inline volatile scc_uart_pram_t *scc3_pram ()
{
    return reinterpret_cast<volatile scc_uart_pram_t *> (scan_port_state.immr + SCC3_PRAM);
}
