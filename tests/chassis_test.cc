// The emulated board and chassis under the device layer. Registers and words are literals, so that
// a wrong name in the register map cannot hide on both sides.
#include "chassis/bus/trace.h"
#include "tests/board.h"

#include <errno.h>
#include <sstream>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/mman.h>

namespace {

constexpr int good = 3;
constexpr uint32_t whole_command = 0x08C10000;

class chassis_test : public board_test {
  protected:
    uint8_t rx[4096];

    void SetUp () override
    {
        settings.board.fill = board_t::fill_t::noise;
        settings.card (3).answers (0x33, {0x01, 'b', 0x2A});
    }
    void start ()
    {
        for (int i = 0; i < 4 && scan_port_state.scanp_fd > 0; i++) {
            close (scan_port_state.scanp_fd + i); // what the last set-up left open
        }
        power_up ();
        scan_port_init ();
    }
    // "11A48:8000": bits of a register, as many digits as it has.
    void flip (const std::string &text)
    {
        size_t colon = text.find (':');
        uint32_t offset = std::stoul (text, nullptr, 16);
        int width = (text.size () - colon - 1) / 2;
        uint32_t bits = std::stoul (text.substr (colon + 1), nullptr, 16);
        chassis->write (offset, width, chassis->memory ().read (offset, width) ^ bits);
    }
    // Sends 1, 2 to slot 3; at the driver's command the bits flip.
    int32_t ask (const std::string &bits = "", int32_t txlen = 2)
    {
        log->on_command = [=, done = bits.empty ()] (uint32_t) mutable {
            if (!done) {
                flip (bits);
            }
            done = true;
        };
        const uint8_t tx[] = {1, 2};
        return scan_port_transfer (3, 0x33, txlen, tx, sizeof (rx), rx);
    }
    int32_t play (const std::string &bits = "")
    {
        start ();
        return ask (bits);
    }
    // Does something in the midst of a transfer, so many microseconds after its start.
    int32_t play (uint64_t when, const std::function<void ()> &what)
    {
        start ();
        log->on_access = [=, done = false] (const access_t &a) mutable {
            if (!done && !a.is_write && a.offset == 0x1010) {
                done = true;
                chassis->advance (when);
                what ();
            }
        };
        return ask ();
    }
    uint32_t half (uint32_t offset)
    {
        return chassis->memory ().read16 (offset);
    }
};

TEST_F (chassis_test, a_wrong_bit_anywhere_makes_the_bus_fail)
{
    const std::vector<std::pair<int32_t, const char *>> table = {
        {-10,
         "119FC:00010000 119FC:00020000 119FC:00004000 119FC:00002000 119FC:00040000"}, // BRGC4
        {-3, "119FC:00000002 119FC:00000001"},
        {-10, "11B08:00000100 11B08:00008000 11B08:00004000"}, // CMXSCR
        {-3, "11B08:00000800"},
        {-10,
         "11A40:00000001 11A40:00000010 11A40:00100000 11A44:00000001 11A54:0001"}, // GSMR, SCCM
        {-3, "11A40:00010000 11A40:00004000 11A40:00000020 11A44:00000020"},
        {-10, "11A48:8000 11A48:0200"}, // PSMR, DSR
        {-3, "11A48:4000 11A48:1000 11A48:0400 11A48:0C00 11A48:0100 11A48:0080 11A48:0040"},
        {-3, "11A48:0010 11A48:0001 11A4E:0100"},
        {-4, "11A48:0800"},                                            // addresses matched by hand
        {-3, "10D24:00800000 10D28:00020000 10D20:00020000"},          // port B
        {-3, "10D47:80 10D4B:01 10D4F:10 10D43:40 10D53:80 10D53:20"}, // port C
        {-3, "10D67:80 10D6B:80 10D6F:80 10D63:80"},                   // TXD3
        {-3, "10D67:40 10D6B:40 10D6F:40 10D63:40"},                   // RXD3
        {-10, "8202:0004 8202:0080 8205:08"},                          // parameters
        {-3, "8200:0004 8200:0008 8204:08 8206:1000 8248:0001 8248:0100 824E:2133 8260:8000"},
        {good, "824A:00FF 8210:FFFF 8220:FFFF"},
        {2, "8206:1002 8250:8062 8250:C062"},
        {-10, "1000:8000 1000:0100 1002:0001 100C:80000000"}, // descriptors
        {-3, "1000:0400 1010:0400 1012:0002 1024:80000000"},
        {-1, "1020:8000 1020:0020"},
    };
    for (const auto &[result, flips] : table) {
        std::istringstream text (flips);
        for (std::string bits; text >> bits;) {
            EXPECT_EQ (play (bits), result) << bits;
        }
    }
}

TEST_F (chassis_test, commands_only_work_when_whole_and_in_time)
{
    const std::vector<std::pair<uint32_t, int32_t>> while_enabled = {
        {whole_command, -10}, {0x08C10001, -3},   {0x08C10002, -10},  {0x08C10003, good},
        {0x08C10004, -10},    {0x08C00000, good}, {0x88C10000, good}, {0x04C10000, good},
        {0x08810000, good},   {0x08C10010, good}};
    for (const auto &[word, result] : while_enabled) {
        EXPECT_EQ (
            play (0, [&, word = word] { chassis->driver_request (SCANP_DO_CPCR_COMMAND, word); }),
            result)
            << word;
    }
    // The first descriptor is done, the second under way.
    EXPECT_EQ (play (20, [&] { chassis->write (0x11A40, 4, 0x28004); }), -10);
    EXPECT_EQ (half (0x8220), 0x1008u);
    EXPECT_EQ (ask (), good) << "the command put the pointer back";
    start ();
    for (const char *bits : {"1004:01F40000", "1002:0001", "1000:8000", "11A40:00000030"}) {
        flip (bits);
    }
    chassis->advance (1000);
    EXPECT_EQ (half (0x1000), 0xA000u) << "no command at all";
    settings.board.dpram = 0x1004;
    EXPECT_EQ (play (), -10) << "descriptors stand at multiples of 8";
}

TEST_F (chassis_test, the_controller_reports_and_counts_what_it_received)
{
    struct row_t {
        fault_t fault;
        uint32_t at, status, length, counter; // the offset of the one that counts 1
    };
    for (const row_t &row :
         {row_t{fault_t::none, 0, 0x2480, 3, 0}, row_t{fault_t::line_break, 1, 0x24A0, 1, 0x8244},
          row_t{fault_t::framing, 0, 0x2490, 1, 0x8240},
          row_t{fault_t::framing, 99, 0x2490, 3, 0x8240}, row_t{fault_t::overrun, 2, 0x2482, 2, 0},
          row_t{fault_t::noise, 1, 0x2480, 3, 0x8242}}) {
        settings.card (3).fails (row.fault, row.at);
        play ();
        EXPECT_EQ (half (0x1020), row.status);
        EXPECT_EQ (half (0x1022), row.length);
        for (uint32_t counter : {0x823Eu, 0x8240u, 0x8242u, 0x8244u}) {
            EXPECT_EQ (half (counter), counter == row.counter) << row.status;
        }
    }
    settings.card (3).fails (fault_t::none).from (0xA5);
    EXPECT_EQ (play (), -4);
    EXPECT_EQ (play ("824A:0100"), -3);
    settings.card (3).from (0x5A);
    EXPECT_EQ (play ("1020:1000"), good);
    EXPECT_EQ (half (0x11A50), 0x0001u) << "the event asked for";
    chassis->write (0x11A50, 2, 0x0006);
    EXPECT_EQ (half (0x11A50), 0x0001u);
    chassis->write (0x11A50, 2, 0x0001);
    EXPECT_EQ (half (0x11A50), 0u);
    play ("1020:8000");
    chassis->advance (1000);
    EXPECT_EQ (half (0x11A50), 0x0004u) << "no buffer";
    EXPECT_EQ (play (187,
                     [&] {
                         chassis->write (0x11A40, 4, 0x28014);
                         chassis->write (0x11A40, 4, 0x28034);
                     }),
               -3)
        << "enabled in the midst of the address";
    settings.card (3).fails (fault_t::missing_end);
    EXPECT_EQ (play ("8238:0003"), good) << "closed by idle time";
}

TEST_F (chassis_test, the_receive_line_is_low_in_a_start_bit)
{
    settings.card (3).after (200000);
    EXPECT_EQ (play (), -3); // at 110 ms; the answer begins at 200.080
    chassis->advance (90079);
    EXPECT_EQ (chassis->read (0x10D73, 1) & 0x40, 0x40u);
    chassis->advance (2);
    EXPECT_EQ (chassis->read (0x10D73, 1) & 0x40, 0u);
}

TEST_F (chassis_test, loses_no_tick)
{
    settings.board.brgclk = 66666667;
    power_up ();
    for (int i = 0; i < 300000; i++) {
        chassis->advance (10);
    }
    EXPECT_EQ (chassis->now (), 200000001u);
}

TEST_F (chassis_test, a_card_understands_its_own_bit_rate)
{
    for (auto [bit_rate, result] :
         {std::pair<uint32_t, int32_t>{849000, good}, {851000, -3}, {801000, good}, {799000, -3}}) {
        settings.card (3).bit_rate = bit_rate;
        EXPECT_EQ (play (), result) << bit_rate;
    }
    settings.card (3).bit_rate = 165000;
    EXPECT_EQ (play ("119FC:00000038"), good) << "divider 25";
    EXPECT_EQ (play ("119FC:0000003A"), -3) << "divider 26";
}

TEST_F (chassis_test, a_card_listens_and_answers_only_while_it_is_selected)
{
    auto release = [&] { chassis->write (0x10D50, 4, 0x80 | 17); };
    auto select = [&] { chassis->write (0x10D50, 4, 17); };
    settings.card (3).after (1000);
    for (uint64_t when : {5, 50, 90}) { // in the opening, in the frame, before the answer
        EXPECT_EQ (play (when, [&] { release (), select (); }), -3) << when;
    }
    EXPECT_EQ (play (1110, release), -1) << "torn off in a character";
    EXPECT_EQ (play (0, [&] { flip ("10D50:00000001"), select (); }), -3)
        << "the code changed under the strobe";
    settings.cards.clear ();
    start ();
    int selects = 0;
    chassis->before_select = [&] {
        selects++;
        chassis->set_cards ({{3, card_t ().answers (0x33, {9})}});
    };
    EXPECT_EQ (ask (), 1) << "plugged just before";
    EXPECT_EQ (selects, 1);
}

TEST_F (chassis_test, only_a_whole_request_is_answered)
{
    start ();
    EXPECT_EQ (ask ("", 0), good);
    EXPECT_EQ (ask ("100A:0003", 0), -3) << "one character instead of two";
    for (uint32_t wrong : {0x01F40001, 0x01F40004}) { // the second command, the closing address
        EXPECT_EQ (play (0, [=] { *chassis->memory ().physical (wrong) ^= 1; }), -3) << wrong;
    }
}

TEST_F (chassis_test, a_trace_tells_what_happened)
{
    char *text = nullptr;
    size_t size = 0;
    FILE *file = open_memstream (&text, &size);
    trace_t trace (file, settings.board.brgclk);
    settings.card (3).answer[0x33].bytes.assign (40, 0xEE);
    settings.card (4).fails (fault_t::framing, 1).answers (0x33, {1, 2, 3});
    start ();
    chassis->observe (&trace);
    ask ();
    scan_port_transfer (4, 0x33, 0, nullptr, 0, rx);
    ask ("119FC:00000038");
    scan_strobe_high ();
    fclose (file);
    EXPECT_STREQ (
        text,
        "0.000000  to   slot  3 (code 17)  33 | 33 33 01 02 | 00\n"
        "0.000180  from slot  3 (code 17)  5A | EE EE EE EE EE EE EE EE EE EE EE EE EE EE EE "
        "EE ... 16 more ... EE EE EE EE EE EE EE EE | 00\n"
        "0.010000  to   slot  4 (code 16)  33 | 33 33 | 00\n"
        "0.010153  from slot  4 (code 16)  5A | 01 02 03 | 00  framing error at data byte 1\n"
        "0.020000  to   slot  3 (code 17)  33 | 33 33 01 02 | 00  not understood by the card: "
        "wrong bit rate at address\n");
    free (text);
}

class door_test : public chassis_test {
  protected:
    uint8_t *view;
    void SetUp () override
    {
        power_up ();
        view = const_cast<uint8_t *> (scanp_map_phys_mem (0xF0000000, 0x40000, 0));
    }
    template <typename word_t> volatile word_t &at (uint32_t offset)
    {
        return *reinterpret_cast<volatile word_t *> (view + offset);
    }
};

TEST_F (door_test, each_access_arrives_once_at_its_width)
{
    at<uint32_t> (0x1000) = htobe32 (0x81828384);
    at<uint16_t> (0x1004) = htobe16 (0x8586);
    at<uint8_t> (0x1006) = 0x87;
    EXPECT_EQ (at<uint32_t> (0x1000), htobe32 (0x81828384));
    EXPECT_EQ (at<uint16_t> (0x1004), htobe16 (0x8586));
    EXPECT_EQ (at<int8_t> (0x1006), -0x79);
    EXPECT_EQ (log->lines,
               (std::vector<std::string>{"w32 01000 81828384", "w16 01004 8586", "w8 01006 87",
                                         "r32 01000 81828384", "r16 01004 8586", "r8 01006 87"}));
}

#ifdef __x86_64__
TEST_F (door_test, names_the_instruction_that_it_does_not_know)
{
    auto swap = [&] { asm volatile("xchgl %%eax, 0x1030(%%rdx)" : : "d"(view) : "eax", "memory"); };
    EXPECT_DEATH (swap (), "0x01030.*87 82 30");
}
#endif

TEST_F (door_test, what_is_no_device_passes_through)
{
    int fd = scanp_open ();
    EXPECT_TRUE (ioctl (fd, _IO ('s', 4)) == -1 && errno == ENOTTY);
    close (fd);
    EXPECT_EQ (open ("/dev/null", O_RDWR), fd) << "the lowest number, and another file";
    EXPECT_EQ (ioctl (fd, _IO ('s', 2)), -1);
    usleep (1000);
    door_attach (nullptr);
    usleep (1);
    EXPECT_EQ (chassis->now (), 66000u);
}

TEST_F (door_test, a_fault_of_the_programs_own_still_kills_it)
{
    void *closed = mmap (nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    EXPECT_DEATH (*static_cast<volatile uint8_t *> (closed) = 1, "");
    chassis->memory ().write (0, 4, 0xFFFFFFFF);
    auto not_abort = [] (int status) { return WTERMSIG (status) != SIGABRT; };
    EXPECT_EXIT (reinterpret_cast<void (*) ()> (view) (), not_abort, "") << "a jump is no access";
    auto map_without_descriptors = [] {
        for (int fd = 3; fd < 1024; fd++) {
            close (fd);
        }
        scanp_map_phys_mem (0xF0000000, 0x40000, 0);
    };
    EXPECT_EXIT (map_without_descriptors (), testing::ExitedWithCode (2), "closed a descriptor");
    door_attach (nullptr);
    chassis.reset ();
    EXPECT_DEATH (at<uint8_t> (0x8204) = 1, "") << "the view went with the board";
}

} // namespace
