#include "tests/board.h"
#include "tests/expected.h"

#include <numeric>

class scanp : public board_test {};

static int flags_of (int fd)
{
    return (fcntl (fd, F_GETFL) & (O_ACCMODE | O_SYNC)) | (fcntl (fd, F_GETFD) ? O_CLOEXEC : 0);
}

TEST_F (scanp, only_the_drivers_own_failure_answers_abort)
{
    for (uint32_t answer : {0xFFFFFFFFu, 0x80001000u, 0xEFFFC000u, 1u}) {
        settings.board.buffer = settings.board.dpram = answer;
        power_up ();
        int fd = scanp_open ();
        EXPECT_EQ (scanp_get_phys_mem (fd), answer);
        EXPECT_EQ (scanp_get_dpmem_offset (fd), answer);
        close (fd);
    }
    settings.board.buffer = 0;
    settings.board.dpram = 0x7FFFFFFF;
    for (uint32_t cc : {1u, 0xFFFFFFFFu}) {
        settings.board.cpcr = cc;
        power_up ();
        int fd = scanp_open ();
        EXPECT_DEATH (scanp_get_phys_mem (fd),
                      "scanp.cc:27: scanp_get_phys_mem: Assertion `addr != 0' failed");
        EXPECT_DEATH (scanp_get_dpmem_offset (fd), "scanp.cc:34: scanp_get_dpmem_offset: Assertion "
                                                   "`offset != \\(\\(uint\\)0x7fffffff\\)' failed");
        EXPECT_DEATH (scanp_do_cpcr_command (fd, 0x08C10000),
                      "scanp.cc:41: scanp_do_cpcr_command: Assertion `cc == 0' failed");
        EXPECT_DEATH (scan_port_init (), "scanp.cc:34") << "the first request that is made";
        close (fd);
    }
    settings.board.device = false;
    power_up ();
    EXPECT_EXIT (scan_port_init (), testing::ExitedWithCode (255), "^can't get scanp_fd.\n$");
}

TEST_F (scanp, the_set_up_programs_every_register_in_order)
{
    settings.board.fill = board_t::fill_t::noise;
    power_up ();
    int before = num_descriptors ();
    scan_port_init ();
    expect_file ("scanp/set_up.txt", in_rows (log->lines));
    EXPECT_EQ (num_descriptors (), before + 4) << "the driver's and three of /dev/mem";
    const int sync = O_RDWR | O_SYNC; // for the two buffers, not for the registers
    const std::vector<int> flags = {O_RDWR, O_RDWR, sync, sync};
    for (int i = 0; i < 4; i++) {
        EXPECT_EQ (flags_of (scan_port_state.scanp_fd + i), flags[i]) << i;
    }
}

TEST_F (scanp, maps_whole_pages_and_leaves_the_descriptor_open)
{
    settings.board.buffer = 0xE1FFF234;
    settings.board.dpram = 0xFF8;
    power_up ();
    int before = num_descriptors ();
    // The second crosses a page boundary.
    for (auto [phys, length] :
         {std::pair<uint32_t, uint32_t>{0xE1FFF234, 16}, {0xF0000FF8, 16}, {0xE1FFF234, 8192}}) {
        volatile uint8_t *p = scanp_map_phys_mem (phys, length, phys < 0xF0000000);
        ASSERT_NE (p, nullptr);
        EXPECT_EQ (reinterpret_cast<uintptr_t> (p) & 0xFFF, phys & 0xFFF);
        p[0] = 0x11;
        p[length - 1] = 0x22;
        EXPECT_EQ (*chassis->memory ().physical (phys), 0x11);
        EXPECT_EQ (*chassis->memory ().physical (phys + length - 1), 0x22);
    }
    EXPECT_EQ (scanp_map_phys_mem (0x00001000, 16, 1), nullptr);
    EXPECT_EQ (scanp_map_phys_mem (0xFFFFFFFF, 8192, 1), nullptr)
        << "past the end of the address space";
    EXPECT_EQ (num_descriptors (), before + 5) << "after a failure too";
}

TEST_F (scanp, commands_pins_and_descriptor_bases_use_their_own_bits)
{
    settings.board.fill = board_t::fill_t::ones;
    settings.board.dpram = 0x21000;
    power_up ();
    scan_port_init ();
    EXPECT_EQ (word (0x08200), 0x10201000u) << "RBASE and TBASE: the low 16 bits";
    EXPECT_EQ (word (0x21020), 0x20000000u) << "a receive descriptor";
    scan_set_slot_code (0x9F);
    EXPECT_EQ (word (0x10D50), 0xFFFFFF9Fu);
    scan_strobe_low ();
    scan_set_slot_code (0xE0);
    EXPECT_EQ (word (0x10D50), 0xFFFFFF60u);
    may_stop = true; // no such command as the last one
    for (uint32_t opcode : {0, 3, 15, 0x10}) {
        scan_cp_command (opcode);
    }
    EXPECT_EQ (log->commands,
               (std::vector<uint32_t>{0x08C10000, 0x08C10000, 0x08C10000, 0x08C10010}));
}

constexpr uint32_t TIMEOUT = 110000; // microseconds

class transfer : public board_test {
  protected:
    uint8_t rx[5000];

    void SetUp () override
    {
        settings.card (3).answers (0x33, {11, 12, 13}).echoes (0x93);
    }
    // The log begins after the set-up.
    void start ()
    {
        power_up ();
        scan_port_init ();
        log->lines.clear ();
        log->commands.clear ();
        memset (rx, 0xEE, sizeof (rx));
    }
    int32_t ask (int slot, int32_t rxlen = 16)
    {
        return scan_port_transfer (slot, 0x33, 0, nullptr, rxlen, rx);
    }
    uint64_t microseconds () const
    {
        return chassis->now () * 1000000 / chassis->brgclk ();
    }
    bool rx_untouched () const
    {
        return std::count (rx, rx + sizeof (rx), 0xEE) == sizeof (rx);
    }
};

TEST_F (transfer, does_every_access_in_order_and_the_poll_when_it_must_wait)
{
    start ();
    const uint8_t tx[] = {1, 2};
    EXPECT_EQ (scan_port_transfer (3, 0x193, 2, tx, 16, rx), 2);
    expect_file ("scanp/transfer.txt", in_rows (log->lines));
    EXPECT_EQ (microseconds (), 10000u);
    EXPECT_EQ (bytes_t (scan_port_state.tx_buf, scan_port_state.tx_buf + 5),
               (bytes_t{0x93, 0x93, 1, 2, 0}));
}

TEST_F (transfer, selects_each_slot_by_its_code_and_rate)
{
    const int codes[32] = {31, 19, 18, 17, 16, 15, 14, 13, 12, 11, 10, 9,  8,  7,  6,  5,
                           4,  3,  2,  1,  0,  -1, -1, 22, 23, -1, -1, 26, 27, 28, 29, -1};
    for (int slot = 0; slot < 32; slot++) {
        settings.card (slot).answers (0x33, {static_cast<uint8_t> (slot)});
    }
    start ();
    for (int slot = 0; slot < 32; slot++) {
        log->lines.clear ();
        if (codes[slot] < 0) {
            EXPECT_EQ (ask (slot), -2);
            EXPECT_TRUE (log->lines.empty ()) << slot;
            continue;
        }
        EXPECT_EQ (ask (slot), 1) << slot;
        EXPECT_EQ (rx[0], slot);
        EXPECT_EQ (word (0x10D50) & 0xFF, 0x80u | codes[slot]);
        EXPECT_EQ (word (0x119FC), slot == 23 || slot == 24 ? 0x00010030u : 0x00010008u);
    }
}

TEST_F (transfer, refuses_without_touching_anything)
{
    start ();
    for (uint32_t slot : {32u, 33u, 0x80000003u, 0xFFFFFFFFu, 21u}) {
        EXPECT_EQ (scan_port_transfer (slot, 0x33, 5000, rx, 5000, rx), -2) << "slots come first";
    }
    EXPECT_EQ (scan_port_transfer (3, 0x33, 4095, rx, 0, rx), -4);
    EXPECT_EQ (scan_port_transfer (3, 0x33, 0, rx, 4097, rx), -4);
    EXPECT_TRUE (log->lines.empty ());
    EXPECT_TRUE (rx_untouched ());
}

TEST_F (transfer, carries_the_largest_request_with_its_closing_zero)
{
    for (uint32_t address : {0x01F40000u, 0x01F40ABCu, 0xEFFFD001u}) {
        settings.board.buffer = address;
        start ();
        bytes_t tx (4094);
        std::iota (tx.begin (), tx.end (), 3);
        memset (const_cast<uint8_t *> (scan_port_state.rx_buf), 0xFF, 4096);
        EXPECT_EQ (scan_port_transfer (3, 0x93, 4094, tx.data (), 4096, rx), 4094);
        EXPECT_EQ (bytes_t (rx, rx + 4094), tx);
        EXPECT_EQ (rx[4094], 0xFF) << "what the buffer held before";
    }
}

TEST_F (transfer, copies_as_many_bytes_as_were_wanted_whatever_came)
{
    settings.card (4).answers (0x33, bytes_t (4097, 0x44));
    start ();
    memset (const_cast<uint8_t *> (scan_port_state.rx_buf), 0xAB, 4096);
    EXPECT_EQ (scan_port_transfer (3, 0x7FFFFF33, 0, nullptr, 5, rx), 3) << "the low eight bits";
    EXPECT_EQ (bytes_t (rx, rx + 6), (bytes_t{11, 12, 13, 0xAB, 0xAB, 0xEE}));
    EXPECT_EQ (ask (4, 4096), 4096) << "an answer longer than the buffer fills it";
    EXPECT_EQ (ask (3, 0), 3);
    EXPECT_EQ (scan_port_transfer (3, -0xCD, 0, nullptr, -1, rx), 3) << "...FF33";
    EXPECT_EQ (scan_port_transfer (3, 0x33, -1, nullptr, 0, rx), -3) << "sent, and not understood";
    rx[0] = rx[1] = 0xEE;
    EXPECT_EQ (ask (3, 1), 3);
    EXPECT_NE (rx[0], 0xEE);
    EXPECT_EQ (rx[1], 0xEE);
}

TEST_F (transfer, fails_while_a_second_daemon_starts_and_works_again_after_it)
{
    start ();
    log->on_command = [&] (uint32_t) {
        if (log->commands.size () == 2) {
            scan_port_init ();
        }
    };
    EXPECT_EQ (ask (3), -1);
    EXPECT_TRUE (rx_untouched ());
    EXPECT_EQ (ask (3), 3);
}

TEST_F (transfer, what_ends_within_the_eleventh_sleep_is_in_time)
{
    // Four characters out, one byte in its two addresses back: 93.3 microseconds besides the delay.
    for (auto [delay, result] : {std::pair<uint32_t, int32_t>{109906, 1}, {109907, -3}}) {
        settings.card (4) = card_t ().answers (0x33, {7}).after (delay);
        start ();
        EXPECT_EQ (ask (4), result);
        EXPECT_EQ (microseconds (), TIMEOUT);
    }
    settings.card (23).echoes (0x93);
    start ();
    bytes_t tx (1679);
    // 1650 slow characters last exactly 110 ms. The controller has cleared R 32 characters earlier:
    // sent in time, and only unanswered.
    EXPECT_EQ (scan_port_transfer (23, 0x93, 1678, tx.data (), 16, rx), -3);
    EXPECT_EQ (scan_port_transfer (23, 0x93, 1679, tx.data (), 16, rx), -10);
}
