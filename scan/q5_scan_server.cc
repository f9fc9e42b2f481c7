#include "scan/q5_scan_server.h"

#include "net/assertion.h"
#include "scanp/scan_port.h"

#include <algorithm>

// The device takes every length that the protocol allows.
static_assert (Q5_SCAN_MAX_TX == SCAN_PORT_MAX_TX && Q5_SCAN_MAX_RX == SCAN_PORT_MAX_RX);

#define MODULE "q5_scan_server.cc"

// Results of a transfer travel to the client unchanged.
static_assert (Q5_SCAN_LINE_ERROR == SCAN_PORT_LINE_ERROR && Q5_SCAN_NO_SLOT == SCAN_PORT_NO_SLOT);
static_assert (Q5_SCAN_NO_ANSWER == SCAN_PORT_NO_ANSWER && Q5_SCAN_NOT_SENT == SCAN_PORT_NOT_SENT);
static_assert (Q5_SCAN_BAD_ADDRESS == SCAN_PORT_BAD_ADDRESS);

q5_scan_server_t::q5_scan_server_t () : owner_id (0) {}

TESTS_ITS_OBJECT int32_t q5_scan_server_t::scan (int32_t slot, int32_t command, int32_t txlen,
                                                 const uint8_t *txbuf, int32_t rxlen,
                                                 uint8_t *rxbuf)
{
    ASSERT (27, this);
    ASSERT (28, txbuf && rxbuf);
    ASSERT (29, txlen >= 0);
    ASSERT (30, rxlen >= 0 && rxlen <= Q5_SCAN_MAX_RX);
    ASSERT_AS (32, slot >= 0 && slot < Q5_SCAN_NUM_SLOTS, "slot >=0 && slot < Q5_SCAN_NUM_SLOTS");
    return scan_port_transfer (slot, command, txlen, txbuf, rxlen, rxbuf);
}

TESTS_ITS_OBJECT scan_request_t *q5_scan_server_t::check_request (scan_request_t *m)
{
    ASSERT (39, this);
    ASSERT (46, m->slot >= 0 && m->slot < Q5_SCAN_NUM_SLOTS);
    ASSERT (47, m->txlen >= 0 && m->txlen <= Q5_SCAN_MAX_TX);
    ASSERT (48, m->rxlen >= 0 && m->rxlen <= Q5_SCAN_MAX_RX);
    return m;
}

TESTS_ITS_OBJECT int32_t q5_scan_server_t::handle (int32_t fd)
{
    ASSERT (58, this && fd);

    be32_t id;
    size_t r = read_fully (fd, &id, sizeof (id));
    ASSERT (61, r == sizeof (id));
    if (owner_id != 0 && id != owner_id) {
        return 0;
    }

    be32_t num_requests;
    r = read_fully (fd, &num_requests, sizeof (num_requests));
    ASSERT (68, r == sizeof (num_requests));
    ASSERT (72, num_requests <= MAX_REQUESTS);
    // A count of 0 or below is refused by read_fully, whatever its product with 16 would wrap to.
    int32_t size = num_requests > 0 ? num_requests * int32_t (sizeof (scan_request_t)) : 0;
    r = read_fully (fd, requests, size);
    ASSERT (75, r);
    read_transmit_bytes (fd, num_requests);
    execute_all (fd, num_requests, id);
    return 0;
}

void q5_scan_server_t::read_transmit_bytes (int32_t fd, int32_t num_requests)
{
    int32_t tx_count = 0;
    for (int32_t i = 0; i < num_requests; i++) {
        scan_request_t *m = check_request (&requests[i]);
        ASSERT (80, m);
        ASSERT (82, m->txlen + tx_count <= Q5_SCAN_MAX_TX);
        const int32_t txlen = m->txlen;
        if (txlen != 0) {
            int32_t r = read_fully (fd, txbuf + tx_count, txlen);
            ASSERT (85, r);
        }
        tx_count += txlen;
    }
}

void q5_scan_server_t::execute_all (int32_t fd, int32_t num_requests, int32_t id)
{
    const uint8_t *tx = txbuf;
    const scan_request_t *end = requests + num_requests;
    for (const scan_request_t *m = requests; m < end; m++) {
        const uint8_t *data = tx;
        tx += m->txlen;
        reply (fd, execute (*m, id, data), m->rxlen);
    }
}

int32_t q5_scan_server_t::execute (const scan_request_t &m, int32_t id, const uint8_t *txbuf)
{
    switch (m.command) {
    case Q5_SCAN_CLAIM:
        return change_owner (id, id);
    case Q5_SCAN_RELEASE:
        return change_owner (id, 0);
    default:
        return scan (m.slot, m.command, m.txlen, txbuf, m.rxlen, rxbuf);
    }
}

int32_t q5_scan_server_t::change_owner (int32_t id, int32_t new_owner)
{
    if (owner_id != 0 && owner_id != id) {
        return -1;
    }
    owner_id = new_owner;
    return 1;
}

void q5_scan_server_t::reply (int32_t fd, int32_t result, int32_t rxlen)
{
    be32_t p = result;
    size_t written = write_fully (fd, &p, sizeof (p));
    ASSERT_AS (121, written == sizeof (p), "r == sizeof (p)");

    // After a claim or a release this is deliberately the one stale byte that rxbuf begins with.
    result = std::min (result, rxlen);
    if (result > 0) {
        int32_t r = write_fully (fd, rxbuf, result);
        ASSERT (129, r == result);
    }
}
