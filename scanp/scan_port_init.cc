#include "scanp/mpc8260_io.h"
#include "scanp/scan_port.h"
#include "scanp/scanp.h"

#include <stdio.h>
#include <stdlib.h>

static void open_device ()
{
    scan_port_state.scanp_fd = scanp_open ();
    if (scan_port_state.scanp_fd < 0) {
        fputs ("can't get scanp_fd.\n", stderr);
        exit (-1);
    }
    scan_port_state.immr = scanp_map_phys_mem (IMMR_BASE, IMMR_SIZE, 0);
}

// PB8 and PB14 are general-purpose outputs; nothing ever drives them.
static void set_up_port_b ()
{
    io_clear (reg32 (PPARB), PB8 | PB14);
    io_clear (reg32 (PSORB), PB8 | PB14);
    io_set (reg32 (PDIRB), PB8 | PB14);
}

// PD24 and PD25 belong to SCC3: TXD3 and RXD3, push-pull.
static void set_up_port_d ()
{
    io_clear (reg32 (PPARD), PD24_TXD3 | PD25_RXD3);
    io_clear (reg32 (PODRD), PD24_TXD3 | PD25_RXD3);
    io_clear (reg32 (PSORD), PD24_TXD3 | PD25_RXD3);
    io_set (reg32 (PDIRD), PD24_TXD3);
    io_clear (reg32 (PDIRD), PD25_RXD3);
    io_set (reg32 (PPARD), PD24_TXD3 | PD25_RXD3);
}

// PC24 to PC31 are general-purpose push-pull outputs: strobe and slot code.
static void set_up_port_c ()
{
    io_clear (reg32 (PPARC), PC24 | PC25_PC31);
    io_clear (reg32 (PODRC), PC24 | PC25_PC31);
    io_clear (reg32 (PSORC), PC24 | PC25_PC31);
    io_set (reg32 (PDIRC), PC24 | PC25_PC31);
    io_clear (reg32 (PDATC), PC25_PC31);
    io_set (reg32 (PDATC), PC24);
}

static void set_up_clock ()
{
    constexpr uint32_t divide_by_10 = 9 << BRGC_CD_SHIFT; // until the first transfer sets its own
    io_write (reg32 (BRGC4), BRGC_EN | divide_by_10);
    io_clear (reg32 (CMXSCR), CMXSCR_SCC3);
    io_set (reg32 (CMXSCR), CMXSCR_RS3CS_BRG4 | CMXSCR_TS3CS_BRG4);
}

static void set_up_scc3 ()
{
    io_write (reg32 (GSMR_H3), GSMR_H_RFW);
    io_write (reg32 (GSMR_L3), GSMR_L_TDCR_16 | GSMR_L_RDCR_16 | GSMR_L_MODE_UART);
    io_write (reg16 (PSMR3), PSMR_FLC | PSMR_CL_8 | PSMR_UM_MULTIDROP_AUTO);
    io_write (reg16 (DSR3), DSR_RESET);
}

static void place_descriptors ()
{
    uint32_t offset = scanp_get_dpmem_offset (scan_port_state.scanp_fd);
    scan_port_state.tx_bd_offset = offset;
    scan_port_state.rx_bd_offset = offset + SCAN_NUM_BDS * sizeof (scc_bd_t);
    io_write (&scc3_pram ()->TBASE, static_cast<uint16_t> (scan_port_state.tx_bd_offset));
    io_write (&scc3_pram ()->RBASE, static_cast<uint16_t> (scan_port_state.rx_bd_offset));
    volatile uint8_t *immr = scan_port_state.immr;
    scan_port_state.tx_bds =
        reinterpret_cast<volatile scc_bd_t *> (immr + scan_port_state.tx_bd_offset);
    scan_port_state.rx_bds =
        reinterpret_cast<volatile scc_bd_t *> (immr + scan_port_state.rx_bd_offset);
}

static void map_buffers ()
{
    uint32_t phys = scanp_get_phys_mem (scan_port_state.scanp_fd);
    scan_port_state.tx_buf_phys = phys;
    scan_port_state.rx_buf_phys = phys + SCAN_BUF_SIZE;
    // The transmit mapping includes the receive buffer: the controller reads the closing character
    // of a full transmission one byte past the transmit buffer.
    scan_port_state.tx_buf = scanp_map_phys_mem (phys, 2 * SCAN_BUF_SIZE, 1);
    scan_port_state.rx_buf = scanp_map_phys_mem (phys + SCAN_BUF_SIZE, SCAN_BUF_SIZE, 1);
}

static void set_up_parameter_ram ()
{
    volatile scc_uart_pram_t *pram = scc3_pram ();
    io_write (&pram->RFCR, FCR_BIG_ENDIAN);
    io_write (&pram->TFCR, FCR_BIG_ENDIAN);
    io_write (&pram->MRBLR, SCAN_BUF_SIZE);
    io_write (&pram->RBPTR, static_cast<uint16_t> (scan_port_state.rx_bd_offset));
    io_write (&pram->TBPTR, static_cast<uint16_t> (scan_port_state.tx_bd_offset));
    io_write (&pram->MAX_IDL, 0);
    io_write (&pram->BRKCR, 0);
    io_write (&pram->PAREC, 0);
    io_write (&pram->FRMEC, 0);
    io_write (&pram->NOSEC, 0);
    io_write (&pram->BRKEC, 0);
    io_write (&pram->UADDR1, 0x005A);
    io_write (&pram->UADDR2, 0x00A5);
    io_write (&pram->TOSEQ, 0);
    for (volatile be16_t &character : pram->CHARACTER) {
        io_write (&character, CHARACTER_END);
    }
    io_write (&pram->RCCM, RCCM_ALL);
}

static void clear_descriptors (volatile scc_bd_t *bds, uint16_t status)
{
    for (int i = 0; i < SCAN_NUM_BDS; i++) {
        io_write (&bds[i].status, status);
        io_write (&bds[i].length, 0);
        io_write (&bds[i].pointer, 0);
    }
}

void scan_port_init ()
{
    open_device ();
    set_up_port_b ();
    set_up_port_d ();
    set_up_port_c ();
    set_up_clock ();
    set_up_scc3 ();
    place_descriptors ();
    map_buffers ();
    set_up_parameter_ram ();
    io_write (reg16 (SCCE3), 0xFFFF);
    io_write (reg16 (SCCM3), 0);
    clear_descriptors (scan_port_state.rx_bds, BD_RX_W);
    clear_descriptors (scan_port_state.tx_bds, BD_TX_W);
    scan_set_slot_code (0);
    scan_strobe_high ();
}
