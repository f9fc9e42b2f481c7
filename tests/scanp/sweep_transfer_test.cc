// Every status that the controller can leave, and copies at every alignment, on plain memory in
// place of the board.
#include "scanp/mpc8260_io.h"
#include "scanp/scan_port.h"
#include "scanp/scanp.h"
#include "tests/support.h"

#include <array>
#include <gtest/gtest.h>
#include <numeric>

alignas (8) static uint8_t immr[0x40000], buffers[2 * 4096];

// What the controller leaves: the status; whether it is still sending; whether it counted noise.
static uint32_t left;
static int sleeps;

// The command that starts the controller.
extern "C" int ioctl (int, unsigned long, ...) noexcept
{
    io_write (reg16 (0x1010), left & 0x10000 ? 0xA400 : 0x2400);
    io_write (reg16 (0x1020), left);
    io_write (reg16 (0x1022), 0xABCD);
    io_write (reg16 (0x8242), left >> 17);
    return 0;
}

extern "C" int usleep (useconds_t)
{
    sleeps++;
    return 0;
}

// Bits of the status by the manual's numbers: 0 is the most significant.
static bool has_bit (int bit)
{
    return left >> (15 - bit) & 1;
}

static int32_t documented_result ()
{
    constexpr int E = 0, A = 5, AM = 8, BR = 10, FR = 11, OV = 14;
    bool is_sending = left & 0x10000, is_noisy = left >> 17;
    if (is_sending || has_bit (E)) {
        return is_sending ? -10 : -3;
    }
    bool is_damaged = has_bit (BR) || has_bit (FR) || has_bit (OV) || !has_bit (A);
    return is_damaged ? -1 : !has_bit (AM) ? -4 : is_noisy ? -1 : 0xABCD;
}

TEST (transfer_sweep, gives_the_result_of_every_status)
{
    scan_port_state.immr = immr;
    scan_port_state.tx_buf = buffers;
    scan_port_state.rx_buf = buffers + 4096;
    scan_port_state.tx_bds = reinterpret_cast<volatile scc_bd_t *> (immr + 0x1000);
    scan_port_state.rx_bds = reinterpret_cast<volatile scc_bd_t *> (immr + 0x1020);
    buffers[4096] = 1;
    immr[0x10D73] = 0x40; // RXD3 is high
    for (left = 0; left < 4 * 0x10000; left++) {
        uint8_t rx = 0;
        sleeps = 0;
        int32_t result = scan_port_transfer (3, 0x33, 0, nullptr, 1, &rx);
        bool timed_out = result == -3 || result == -10;
        ASSERT_EQ (result, documented_result ()) << std::hex << left;
        ASSERT_EQ (sleeps, timed_out ? 11 : 0) << std::hex << left;
        ASSERT_EQ (immr[0x11A43], timed_out ? 0x34 : 0x04) << "GSMR: running or stopped";
        ASSERT_EQ (immr[0x10D53], result >= 0 ? 0x91 : 0x11) << "strobe and slot";
        ASSERT_EQ (rx, result >= 0);
    }
    immr[0x10D73] = 0;
    EXPECT_EQ (scan_port_transfer (3, 0x33, 0, nullptr, 0, nullptr), -2);
    EXPECT_EQ (immr[0x1020], 0xA0) << "was started on a low line";
    EXPECT_EQ (immr[0x10D53], 0x11);
}

TEST (transfer_sweep, copies_every_size_at_every_alignment_and_nothing_beside_it)
{
    using bytes_t = std::array<uint8_t, 96>;
    bytes_t from, before;
    std::iota (from.begin (), from.end (), 1);
    before.fill (0xEE);
    for (int place = 0; place < 16 * 82; place++) {
        const int at = place % 4, to = place / 4 % 4, size = place / 16 - 1;
        bytes_t expected = before, in = before, out = before;
        std::copy_n (from.begin () + at, std::max (size, 0), expected.begin () + to);
        io_copy_from (&in[to], &from[at], size);
        io_copy_to (&out[to], &from[at], size);
        ASSERT_EQ (in, expected) << at << " " << to << " " << size;
        ASSERT_EQ (out, expected) << at << " " << to << " " << size;
    }
}
