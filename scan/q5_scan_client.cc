#include "scan/q5_scan_client.h"

#include "net/assertion.h"

#include <algorithm>
#include <string.h>
#include <unistd.h>

#define MODULE "q5_scan_server.cc"

constexpr int32_t default_client_id = 2;

q5_scan_client_t::q5_scan_client_t (const char *host, int32_t port)
    : kp_client_t (host, port), client_id (default_client_id)
{}

bool q5_scan_client_t::write_word (int32_t fd, int32_t word)
{
    be32_t p = word;
    return write_fully (fd, &p, sizeof (p));
}

bool q5_scan_client_t::write_request (int32_t fd, const q5_scan_command_t &c)
{
    scan_request_t m = {c.slot, c.command, c.rxlen, c.txlen};
    return write_fully (fd, &m, sizeof (m));
}

// The transmit bytes of each request follow its own header.
bool q5_scan_client_t::write_interleaved (int32_t fd, int32_t num_commands,
                                          const q5_scan_command_t *commands)
{
    for (int32_t i = 0; i < num_commands; i++) {
        const q5_scan_command_t *c = &commands[i];
        ASSERT (185, c->slot >= 0 && c->slot < Q5_SCAN_NUM_SLOTS);
        ASSERT (186, !c->txlen || c->txbuf);
        ASSERT (187, !c->rxlen || c->rxbuf);
        if (!write_request (fd, *c) || (c->txlen && !write_fully (fd, c->txbuf, c->txlen))) {
            return false;
        }
    }
    return true;
}

bool q5_scan_client_t::read_reply (int32_t fd, q5_scan_command_t &c)
{
    be32_t p;
    if (!read_fully (fd, &p, sizeof (p))) {
        return false;
    }
    c.result = p;
    int32_t size = std::min (c.result, c.rxlen);
    return size <= 0 || read_fully (fd, c.rxbuf, size);
}

bool q5_scan_client_t::read_replies (int32_t fd, int32_t num_commands, q5_scan_command_t *commands)
{
    int32_t i = 0;
    while (i < num_commands && read_reply (fd, commands[i])) {
        i++;
    }
    return i >= num_commands;
}

int32_t q5_scan_client_t::execute (int32_t num_commands, q5_scan_command_t *commands)
{
    ASSERT (161, num_commands && commands);

    int32_t fd = connect_to (host, port);
    if (fd < 0) {
        return 0;
    }
    // A check that throws deliberately leaves the descriptor open. A negative count sends its word,
    // no request, and succeeds.
    bool done = write_word (fd, client_id) && write_word (fd, num_commands) &&
                write_interleaved (fd, num_commands, commands) &&
                read_replies (fd, num_commands, commands);
    close (fd);
    return done;
}

int32_t q5_scan_client_t::change_owner (int32_t command)
{
    q5_scan_command_t c = {};
    c.command = command;
    return execute (1, &c) && c.result > 0;
}

int32_t q5_scan_client_t::claim ()
{
    return change_owner (Q5_SCAN_CLAIM);
}

int32_t q5_scan_client_t::release ()
{
    return change_owner (Q5_SCAN_RELEASE);
}

TESTS_ITS_OBJECT int32_t q5_scan_client_t::send_short (int32_t slot, uint8_t first, uint8_t second,
                                                       const void *p, int32_t size)
{
    ASSERT (234, this && p && size < 28);

    uint8_t bytes[2 + 27] = {first, second};
    // A negative size reaches execute as a length that the write refuses, or as no data at all.
    if (size > 0) {
        memcpy (bytes + 2, p, size);
    }
    q5_scan_command_t c = {};
    c.command = Q5_SCAN_SEND_SHORT;
    c.slot = slot;
    c.txlen = size + 2;
    c.txbuf = bytes;
    return execute (1, &c);
}
