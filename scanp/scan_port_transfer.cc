#include "scanp/mpc8260_io.h"
#include "scanp/scan_port.h"
#include "scanp/scanp.h"

#include <unistd.h>

static_assert (SCAN_PORT_MAX_TX == SCAN_BUF_SIZE - 2 && SCAN_PORT_MAX_RX == SCAN_BUF_SIZE);

constexpr uint32_t num_slots = 32;
constexpr int8_t no_code = -1;

// The code on port C that selects a slot.
static const int8_t slot_port_code[num_slots] = {
    31, 19, 18, 17, 16, 15,      14,      13, 12, 11,      10,      9,  8,  7,  6,  5,
    4,  3,  2,  1,  0,  no_code, no_code, 22, 23, no_code, no_code, 26, 27, 28, 29, no_code,
};

// Codes of the slots that run at one fifth of the bit rate.
static const uint8_t slow_port_code[num_slots] = {
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0,
};

constexpr uint32_t BRGC_FAST = BRGC_EN | 4 << BRGC_CD_SHIFT;  // BRGCLK / 5
constexpr uint32_t BRGC_SLOW = BRGC_EN | 24 << BRGC_CD_SHIFT; // BRGCLK / 25

constexpr useconds_t poll_interval = 10000; // microseconds
constexpr int max_polls = 10;

static void stop_controller ()
{
    io_write (reg32 (GSMR_L3), GSMR_L_TDCR_16 | GSMR_L_RDCR_16 | GSMR_L_MODE_UART);
}

static void clear_controller ()
{
    stop_controller ();
    io_write (reg16 (SCCE3), 0xFFFF);
    io_write (&scc3_pram ()->NOSEC, 0);
}

static void select_slot (int8_t code)
{
    io_write (reg32 (BRGC4), slow_port_code[code] ? BRGC_SLOW : BRGC_FAST);
    scan_strobe_high ();
    scan_set_slot_code (code);
    scan_strobe_low ();
}

// The controller writes the length.
static void arm_receiver ()
{
    volatile scc_bd_t *bd = &scan_port_state.rx_bds[0];
    io_write (&bd->pointer, scan_port_state.rx_buf_phys);
    io_write (&bd->status, BD_RX_E | BD_RX_W);
}

static void point_transmitter (int i, uint32_t offset)
{
    io_write (&scan_port_state.tx_bds[i].pointer, scan_port_state.tx_buf_phys + offset);
}

// The status is written last: it hands the descriptor over to the controller.
static void ready_transmitter (int i, uint16_t length, uint16_t status)
{
    io_write (&scan_port_state.tx_bds[i].length, length);
    io_write (&scan_port_state.tx_bds[i].status, status);
}

// The frame: the command as address, the command twice and the data, 0x00 as closing address.
static void lay_out_frame (uint8_t command, int32_t txlen, const uint8_t *txbuf)
{
    volatile uint8_t *tx_buf = scan_port_state.tx_buf;
    point_transmitter (0, 0);
    tx_buf[0] = command;
    ready_transmitter (0, 1, BD_TX_R | BD_TX_A);
    point_transmitter (1, 0);
    tx_buf[1] = command;
    ready_transmitter (1, txlen + 2, BD_TX_R);
    point_transmitter (2, txlen + 2);
    // With txlen 4094 deliberately one byte past the transmit buffer, in the receive buffer.
    tx_buf[txlen + 2] = 0x00;
    ready_transmitter (2, 1, BD_TX_R | BD_TX_W | BD_TX_A);
    io_copy_to (tx_buf + 2, txbuf, txlen);
}

static bool line_is_low ()
{
    return !(io_read (reg32 (PDATD)) & PD25_RXD3);
}

static void start_controller ()
{
    scan_cp_command (CPCR_INIT_RX_AND_TX);
    scan_cp_command (CPCR_ENTER_HUNT_MODE); // sends the same word once more, see scan_cp_command
    io_complete ();
    io_set (reg32 (GSMR_L3), GSMR_L_ENR);
    io_set (reg32 (GSMR_L3), GSMR_L_ENT);
}

static bool still_sending ()
{
    return io_read (&scan_port_state.tx_bds[2].status) & BD_TX_R;
}

static bool still_awaited ()
{
    return io_read (&scan_port_state.rx_bds[0].status) & BD_RX_E;
}

// Returns 0 once the frame is sent and the answer is there.
static int32_t await_answer ()
{
    int count = 0;
    while (still_sending () || still_awaited ()) {
        count++;
        usleep (poll_interval);
        if (count > max_polls) {
            if (still_sending ()) {
                return SCAN_PORT_NOT_SENT;
            }
            if (still_awaited ()) {
                return SCAN_PORT_NO_ANSWER;
            }
        }
    }
    return 0;
}

// Returns 0 for a good answer. The status is read again for each test.
static int32_t check_answer ()
{
    volatile be16_t *status = &scan_port_state.rx_bds[0].status;
    if (io_read (status) & (BD_RX_BR | BD_RX_FR | BD_RX_OV)) {
        return SCAN_PORT_LINE_ERROR;
    }
    if (!(io_read (status) & BD_RX_A)) {
        return SCAN_PORT_LINE_ERROR;
    }
    if (!(io_read (status) & BD_RX_AM)) {
        return SCAN_PORT_BAD_ADDRESS;
    }
    if (io_read (&scc3_pram ()->NOSEC) != 0) {
        return SCAN_PORT_LINE_ERROR;
    }
    return 0;
}

// The bytes are read after the descriptor that announced them, never ahead of it.
static void copy_answer (int32_t rxlen, uint8_t *rxbuf)
{
    io_complete ();
    io_copy_from (rxbuf, scan_port_state.rx_buf, rxlen);
}

// Deliberately, every failure after the slot is selected leaves the strobe low, and a timeout
// leaves the controller running: the next transfer resets both.
int32_t scan_port_transfer (uint32_t slot, int32_t command, int32_t txlen, const uint8_t *txbuf,
                            int32_t rxlen, uint8_t *rxbuf)
{
    if (slot >= num_slots || slot_port_code[slot] == no_code) {
        return SCAN_PORT_NO_SLOT;
    }
    if (txlen > SCAN_PORT_MAX_TX || rxlen > SCAN_PORT_MAX_RX) {
        return SCAN_PORT_BAD_LENGTH;
    }
    clear_controller ();
    select_slot (slot_port_code[slot]);
    arm_receiver ();
    lay_out_frame (static_cast<uint8_t> (command), txlen, txbuf);
    if (line_is_low ()) {
        return SCAN_PORT_NO_SLOT;
    }
    start_controller ();
    if (int32_t failure = await_answer ()) {
        return failure;
    }
    stop_controller ();
    if (int32_t failure = check_answer ()) {
        return failure;
    }
    copy_answer (rxlen, rxbuf);
    scan_strobe_high ();
    return io_read (&scan_port_state.rx_bds[0].length);
}
