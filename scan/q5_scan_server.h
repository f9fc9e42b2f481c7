// The server side of the scan request protocol: one session is one batch.
#pragma once

#include "net/kp_server.h"
#include "scan/q5_scan_protocol.h"

#include <stdint.h>

// Buffers and table are never cleared: what a batch does not overwrite stays from earlier ones.
class q5_scan_server_t : public kp_server_t {
  public:
    // Aligned so that the target copies them by aligned words.
    alignas (4) uint8_t txbuf[Q5_SCAN_MAX_TX];     // transmit bytes of the batch, back to back
    alignas (4) uint8_t rxbuf[Q5_SCAN_MAX_RX + 1]; // received bytes of the last transfer
    scan_request_t requests[MAX_REQUESTS];         // headers of the batch
    int32_t owner_id;                              // the client that holds the bus; 0: none

    q5_scan_server_t ();

    // Reads, checks and executes one batch on the connection `fd` (more than 0). Every check and
    // read comes before the first request runs; each reply is written as its request ends. Returns
    // without a reply while another client holds the bus. Throws exception_t on a failed check or
    // write. The result has no meaning.
    int32_t handle (int32_t fd) override;

    // Returns `m` when its slot and lengths are within the limits, else throws exception_t.
    scan_request_t *check_request (scan_request_t *m);

    // Carries out one request on one slot; returns what scan_port_transfer returns. Throws
    // exception_t for arguments outside the limits.
    int32_t scan (int32_t slot, int32_t command, int32_t txlen, const uint8_t *txbuf, int32_t rxlen,
                  uint8_t *rxbuf);

  private:
    void read_transmit_bytes (int32_t fd, int32_t num_requests);
    void execute_all (int32_t fd, int32_t num_requests, int32_t id);
    int32_t execute (const scan_request_t &m, int32_t id, const uint8_t *txbuf);
    int32_t change_owner (int32_t id, int32_t new_owner);
    void reply (int32_t fd, int32_t result, int32_t rxlen);
};
