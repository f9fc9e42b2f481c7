// The MPC8260 family's internal memory map, the part that the scan bus uses: offsets from the start
// of the map, bits by the manual's names (bit 0 of the manual is the most significant one), and the
// records in memory that the communications processor shares with the core.
// Source: MPC8260 PowerQUICC II Family Reference Manual, the chapter named at each block.
#pragma once

#include "base/big_endian.h"

#include <stddef.h>
#include <stdint.h>

// Internal memory map (chapter "Memory Map").
constexpr uint32_t IMMR_BASE = 0xF0000000; // physical address on this board
constexpr uint32_t IMMR_SIZE = 0x40000;    // bytes

// Parallel I/O ports (chapter "Parallel I/O Ports"); every register is 32 bits wide.
constexpr uint32_t PDIRB = 0x10D20;
constexpr uint32_t PPARB = 0x10D24;
constexpr uint32_t PSORB = 0x10D28;
constexpr uint32_t PODRB = 0x10D2C;
constexpr uint32_t PDATB = 0x10D30;
constexpr uint32_t PDIRC = 0x10D40;
constexpr uint32_t PPARC = 0x10D44;
constexpr uint32_t PSORC = 0x10D48;
constexpr uint32_t PODRC = 0x10D4C;
constexpr uint32_t PDATC = 0x10D50;
constexpr uint32_t PDIRD = 0x10D60;
constexpr uint32_t PPARD = 0x10D64;
constexpr uint32_t PSORD = 0x10D68;
constexpr uint32_t PODRD = 0x10D6C;
constexpr uint32_t PDATD = 0x10D70;

constexpr uint32_t PB8 = 0x00800000;
constexpr uint32_t PB14 = 0x00020000;
constexpr uint32_t PC11_CTS3 = 0x00100000;
constexpr uint32_t PC24 = 0x80;      // slot select strobe, active low
constexpr uint32_t PC25_PC31 = 0x7F; // slot code
constexpr uint32_t PD24_TXD3 = 0x80;
constexpr uint32_t PD25_RXD3 = 0x40;

// Baud-rate generator 4 (chapter "Baud-Rate Generators"), 32 bits.
constexpr uint32_t BRGC4 = 0x119FC;
constexpr uint32_t BRGC_EN = 0x00010000;
constexpr uint32_t BRGC_CD = 0x00001FFE; // clock divider less one
constexpr uint32_t BRGC_CD_SHIFT = 1;
constexpr uint32_t BRGC_DIV16 = 0x00000001;

// CMX SCC clock route (chapter "CMX"), 32 bits.
constexpr uint32_t CMXSCR = 0x11B08;
constexpr uint32_t CMXSCR_SCC3 = 0x0000FF00;  // SCC3's byte: GR3, SC3, RS3CS, TS3CS
constexpr uint32_t CMXSCR_GR3 = 0x00008000;   // grant support
constexpr uint32_t CMXSCR_SC3 = 0x00004000;   // SCC3 on the time-slot assigner
constexpr uint32_t CMXSCR_RS3CS = 0x00003800; // receive clock
constexpr uint32_t CMXSCR_TS3CS = 0x00000700; // transmit clock
constexpr uint32_t CMXSCR_RS3CS_BRG4 = 0x00001800;
constexpr uint32_t CMXSCR_TS3CS_BRG4 = 0x00000300;

// SCC3 (chapters "Serial Communications Controllers" and "SCC UART Mode").
constexpr uint32_t GSMR_L3 = 0x11A40; // 32 bits
constexpr uint32_t GSMR_L_TDCR_16 = 0x00020000;
constexpr uint32_t GSMR_L_RDCR_16 = 0x00008000;
constexpr uint32_t GSMR_L_ENR = 0x00000020;
constexpr uint32_t GSMR_L_ENT = 0x00000010;
constexpr uint32_t GSMR_L_MODE_UART = 0x00000004;
constexpr uint32_t GSMR_H3 = 0x11A44;       // 32 bits
constexpr uint32_t GSMR_H_TFL = 0x00000040; // a transmit FIFO of one character
constexpr uint32_t GSMR_H_RFW = 0x00000020; // a receive FIFO for single characters
constexpr uint32_t PSMR3 = 0x11A48;         // 16 bits
constexpr uint16_t PSMR_FLC = 0x8000;
constexpr uint16_t PSMR_SL = 0x4000;
constexpr uint16_t PSMR_CL_8 = 0x3000;
constexpr uint16_t PSMR_UM_MULTIDROP_AUTO = 0x0C00;
constexpr uint16_t PSMR_RZS = 0x0100;
constexpr uint16_t PSMR_DRT = 0x0040;
constexpr uint32_t DSR3 = 0x11A4E; // 16 bits
constexpr uint16_t DSR_RESET = 0x7E7E;
constexpr uint32_t SCCE3 = 0x11A50; // 16 bits, a written one clears the event
constexpr uint16_t SCCE_BRKS = 0x0020;
constexpr uint16_t SCCE_BSY = 0x0004;
constexpr uint16_t SCCE_TX = 0x0002;
constexpr uint16_t SCCE_RX = 0x0001;
constexpr uint32_t SCCM3 = 0x11A54; // 16 bits
constexpr uint32_t SCCS3 = 0x11A57; // 8 bits
constexpr uint8_t SCCS_ID = 0x01;   // the receive line is idle

// SCC3's parameter RAM (chapter "SCC UART Mode", table of the UART-specific parameter RAM).
constexpr uint32_t SCC3_PRAM = 0x8200;

struct scc_uart_pram_t {
    be16_t RBASE;
    be16_t TBASE;
    uint8_t RFCR;
    uint8_t TFCR;
    be16_t MRBLR;
    be32_t RSTATE;
    be32_t R_IDP;
    be16_t RBPTR;
    be16_t R_COUNT;
    be32_t R_TEMP;
    be32_t TSTATE;
    be32_t T_IDP;
    be16_t TBPTR;
    be16_t T_COUNT;
    be32_t T_TEMP;
    be32_t RCRC;
    be32_t TCRC;
    uint8_t reserved_30[8];
    be16_t MAX_IDL;
    be16_t IDLC;
    be16_t BRKCR;
    be16_t PAREC;
    be16_t FRMEC;
    be16_t NOSEC;
    be16_t BRKEC;
    be16_t BRKLN;
    be16_t UADDR1;
    be16_t UADDR2;
    be16_t RTEMP;
    be16_t TOSEQ;
    be16_t CHARACTER[8];
    be16_t RCCM;
    be16_t RCCR;
    be16_t RLBC;
};

static_assert (offsetof (scc_uart_pram_t, MRBLR) == 0x06);
static_assert (offsetof (scc_uart_pram_t, RBPTR) == 0x10);
static_assert (offsetof (scc_uart_pram_t, TBPTR) == 0x20);
static_assert (offsetof (scc_uart_pram_t, MAX_IDL) == 0x38);
static_assert (offsetof (scc_uart_pram_t, NOSEC) == 0x42);
static_assert (offsetof (scc_uart_pram_t, UADDR1) == 0x48);
static_assert (offsetof (scc_uart_pram_t, TOSEQ) == 0x4E);
static_assert (offsetof (scc_uart_pram_t, CHARACTER) == 0x50);
static_assert (offsetof (scc_uart_pram_t, RCCM) == 0x60);
static_assert (sizeof (scc_uart_pram_t) == 0x68);

constexpr uint8_t FCR_GBL = 0x20;          // snooped by the caches
constexpr uint8_t FCR_BIG_ENDIAN = 0x10;   // BO = 10
constexpr uint16_t CHARACTER_END = 0x8000; // E: end of the control character table
constexpr uint16_t RCCM_END = 0xC000;      // end of the table, after its last entry
constexpr uint16_t RCCM_ALL = RCCM_END | 0xFF;
constexpr uint16_t TOSEQ_REA = 0x2000; // the character is ready to be sent

// Buffer descriptor (chapter "SCC Buffer Descriptors" and the UART descriptors' tables).
struct scc_bd_t {
    be16_t status;
    be16_t length;  // bytes
    be32_t pointer; // physical address
};
static_assert (sizeof (scc_bd_t) == 8);

constexpr uint16_t BD_TX_R = 0x8000;  // ready
constexpr uint16_t BD_TX_W = 0x2000;  // wrap
constexpr uint16_t BD_TX_I = 0x1000;  // report in SCCE
constexpr uint16_t BD_TX_A = 0x0400;  // send as address characters
constexpr uint16_t BD_RX_E = 0x8000;  // empty
constexpr uint16_t BD_RX_W = 0x2000;  // wrap
constexpr uint16_t BD_RX_I = 0x1000;  // report in SCCE
constexpr uint16_t BD_RX_A = 0x0400;  // opened by an address character
constexpr uint16_t BD_RX_ID = 0x0100; // closed by idle time
constexpr uint16_t BD_RX_AM = 0x0080; // the address was UADDR1
constexpr uint16_t BD_RX_BR = 0x0020; // break
constexpr uint16_t BD_RX_FR = 0x0010; // framing error
constexpr uint16_t BD_RX_OV = 0x0002; // overrun

// CP command register, as handed to the driver (chapter "CPM Command Set").
constexpr uint32_t CPCR_PAGE_SBC_SCC3 = 0x08C00000; // page 2, sub-block code 6
constexpr uint32_t CPCR_FLG = 0x00010000;
constexpr uint32_t CPCR_OPCODE = 0x0000000F;
constexpr uint32_t CPCR_INIT_RX_AND_TX = 0;
constexpr uint32_t CPCR_ENTER_HUNT_MODE = 3;
