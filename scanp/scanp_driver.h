// The interface of the /dev/scanp driver.
#pragma once

#include <stdint.h>
#include <sys/ioctl.h>

// Its requests, without size or direction: the address of its buffers, the offset of its dual-port
// RAM, a word for the CP command register.
constexpr unsigned long SCANP_GET_PHYS_MEM = _IO ('s', 1);
constexpr unsigned long SCANP_GET_DPMEM_OFFSET = _IO ('s', 2);
constexpr unsigned long SCANP_DO_CPCR_COMMAND = _IO ('s', 3);

// Its buffers: transmit, then receive. Bytes.
constexpr uint32_t SCAN_BUF_SIZE = 4096;
constexpr uint32_t SCAN_BUFFERS_SIZE = 2 * SCAN_BUF_SIZE;
// Bytes of dual-port RAM that it reserves.
constexpr uint32_t SCANP_DPMEM_SIZE = 64;
