// The device accesses of one transfer, with precomputed pointers and no run-time decisions.
#include "bench/floor.h"
#include "scanp/mpc8260.h"
#include "scanp/mpc8260_io.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>

constexpr uint32_t command_word = CPCR_PAGE_SBC_SCC3 | CPCR_FLG;
constexpr uint32_t stopped = GSMR_L_TDCR_16 | GSMR_L_RDCR_16 | GSMR_L_MODE_UART;

static int fd;
static uint8_t *immr, *tx_buf, *rx_buf;
static volatile scc_bd_t *bds; // four to transmit, then four to receive
static uint32_t phys;

static uint8_t *map (uint32_t size)
{
    return static_cast<uint8_t *> (mmap (nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
}

void floor_init ()
{
    fd = open ("/dev/scanp", O_RDWR);
    immr = map (IMMR_SIZE);
    phys = ioctl (fd, _IO ('s', 1));
    bds = reinterpret_cast<volatile scc_bd_t *> (immr + ioctl (fd, _IO ('s', 2)));
    tx_buf = map (2 * 4096);
    rx_buf = map (4096);
}

static volatile be32_t *reg32 (uint32_t offset)
{
    return reinterpret_cast<volatile be32_t *> (immr + offset);
}

static volatile be16_t *reg16 (uint32_t offset)
{
    return reinterpret_cast<volatile be16_t *> (immr + offset);
}

static void give (int i, uint32_t offset, uint16_t length, uint16_t status)
{
    io_write (&bds[i].pointer, phys + offset);
    io_write (&bds[i].length, length);
    io_write (&bds[i].status, status);
}

int32_t floor_transfer (int32_t slot, int32_t command, int32_t txlen, const uint8_t *txbuf,
                        int32_t rxlen, uint8_t *rxbuf)
{
    volatile scc_uart_pram_t *pram =
        reinterpret_cast<volatile scc_uart_pram_t *> (immr + SCC3_PRAM);
    io_write (reg32 (GSMR_L3), stopped);
    io_write (reg16 (SCCE3), 0xFFFF);
    io_write (&pram->NOSEC, 0);
    io_write (reg32 (BRGC4), BRGC_EN | 4 << BRGC_CD_SHIFT);
    io_set (reg32 (PDATC), PC24);
    io_write (reg32 (PDATC), (io_read (reg32 (PDATC)) & ~PC25_PC31) | slot);
    io_clear (reg32 (PDATC), PC24);
    io_write (&bds[4].pointer, phys + 4096);
    io_write (&bds[4].status, BD_RX_E | BD_RX_W);
    tx_buf[0] = tx_buf[1] = command;
    tx_buf[txlen + 2] = 0;
    give (0, 0, 1, BD_TX_R | BD_TX_A);
    give (1, 0, txlen + 2, BD_TX_R);
    give (2, txlen + 2, 1, BD_TX_R | BD_TX_W | BD_TX_A);
    io_copy_to (tx_buf + 2, txbuf, txlen);
    if (!(io_read (reg32 (PDATD)) & PD25_RXD3)) {
        return -2;
    }
    io_complete ();
    ioctl (fd, _IO ('s', 3), command_word);
    io_complete ();
    ioctl (fd, _IO ('s', 3), command_word);
    io_complete ();
    io_set (reg32 (GSMR_L3), GSMR_L_ENR);
    io_set (reg32 (GSMR_L3), GSMR_L_ENT);
    while (io_read (&bds[2].status) & BD_TX_R || io_read (&bds[4].status) & BD_RX_E) {
    }
    io_write (reg32 (GSMR_L3), stopped);
    if (io_read (&bds[4].status) & (BD_RX_BR | BD_RX_FR | BD_RX_OV) ||
        !(io_read (&bds[4].status) & BD_RX_A) || !(io_read (&bds[4].status) & BD_RX_AM) ||
        io_read (&pram->NOSEC) != 0) {
        return -1;
    }
    io_complete ();
    io_copy_from (rxbuf, rx_buf, rxlen);
    io_set (reg32 (PDATC), PC24);
    return io_read (&bds[4].length);
}
