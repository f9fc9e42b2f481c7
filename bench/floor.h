// What bench/run compares the daemon with: the same work by hand, with and without a device.
#pragma once

#include <stdint.h>

void floor_init ();

// Sends and receives as scan_port_transfer does, on a slot that exists and answers.
int32_t floor_transfer (int32_t slot, int32_t command, int32_t txlen, const uint8_t *txbuf,
                        int32_t rxlen, uint8_t *rxbuf);
