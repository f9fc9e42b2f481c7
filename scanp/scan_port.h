// The scan bus: one-time set-up of the serial controller, and the transfer of one request.
#pragma once

#include <stdint.h>

// Limits of one transfer, in bytes. Two command bytes precede the transmitted data.
constexpr int32_t SCAN_PORT_MAX_TX = 4094;
constexpr int32_t SCAN_PORT_MAX_RX = 4096;

// Failure results of scan_port_transfer.
constexpr int32_t SCAN_PORT_LINE_ERROR = -1;  // break, framing error, overrun, noise, no address
constexpr int32_t SCAN_PORT_NO_SLOT = -2;     // no such slot, or the receive line is low
constexpr int32_t SCAN_PORT_NO_ANSWER = -3;   // sent, but no answer was completed in time
constexpr int32_t SCAN_PORT_BAD_LENGTH = -4;  // a length above its limit
constexpr int32_t SCAN_PORT_BAD_ADDRESS = -4; // the answer came to the second address
constexpr int32_t SCAN_PORT_NOT_SENT = -10;   // the frame was not sent in time

// Opens the driver, maps the device and programs ports, clock and SCC3. Leaves SCC3 disabled, slot
// code 0 and the strobe high. Ends the process with status 255 when /dev/scanp cannot be opened.
void scan_port_init ();

// Sends `command` (its low 8 bits) and `txlen` bytes of `txbuf` to `slot` and waits for the answer.
// Returns the number of bytes received, 0 to 65535, or a failure result; on success `rxlen` bytes,
// whatever the number received, are copied to `rxbuf`. Lengths: txlen -2 to SCAN_PORT_MAX_TX, rxlen
// at most SCAN_PORT_MAX_RX; a negative length copies nothing. txbuf is not read when txlen is 0.
int32_t scan_port_transfer (uint32_t slot, int32_t command, int32_t txlen, const uint8_t *txbuf,
                            int32_t rxlen, uint8_t *rxbuf);
