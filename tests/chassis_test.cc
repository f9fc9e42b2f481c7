// The emulated board and chassis by themselves. Registers and words are literals, so that a wrong
// name in the register map cannot hide on both sides.
#include "chassis/chassis.h"
#include "chassis/door.h"
#include "chassis/trace.h"

#include <endian.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <sstream>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

struct word_t {
    uint32_t offset;
    int width;
    uint32_t value;
};

const std::vector<word_t> set_up = {
    {0x10D24, 4, 0},      {0x10D28, 4, 0},      {0x10D20, 4, 0x00820000}, // port B
    {0x10D6C, 4, 0},      {0x10D68, 4, 0},      {0x10D60, 4, 0x80},       // port D
    {0x10D64, 4, 0xC0},                                                   //
    {0x10D44, 4, 0},      {0x10D4C, 4, 0},      {0x10D48, 4, 0},          // port C
    {0x10D40, 4, 0xFF},   {0x10D50, 4, 0x80},                             //
    {0x11B08, 4, 0x1B00}, {0x11A44, 4, 0x20},   {0x11A40, 4, 0x28004},    // clock route, SCC3
    {0x11A48, 2, 0xBC00}, {0x11A4E, 2, 0x7E7E},                           //
    {0x8202, 2, 0x1000},  {0x8200, 2, 0x1020},  {0x8204, 1, 0x10},        // parameter RAM
    {0x8205, 1, 0x10},    {0x8206, 2, 0x1000},  {0x8210, 2, 0x1020},      //
    {0x8220, 2, 0x1000},  {0x8238, 2, 0},       {0x823C, 2, 0},           //
    {0x823E, 2, 0},       {0x8240, 2, 0},       {0x8242, 2, 0},           //
    {0x8244, 2, 0},       {0x8248, 2, 0x5A},    {0x824A, 2, 0xA5},        //
    {0x824E, 2, 0},       {0x8250, 2, 0x8000},  {0x8260, 2, 0xC0FF},      //
    {0x11A50, 2, 0xFFFF}, {0x11A54, 2, 0},
};
struct flip_t {
    unsigned offset, bits;
};
constexpr uint32_t buffers = 0x01F40000;

struct board_test : testing::Test {
    chassis_settings_t settings;
    std::unique_ptr<chassis_t> board;
    flip_t flipped{0, 0};        // bits that every write to this register gets wrong
    uint32_t code = 17;          // slot 3
    uint32_t divider = 0x10008;  // BRGC4
    uint32_t rx_status = 0xA000; // of the receive descriptor
    uint32_t init = 0x08C10000;  // CP command; 0: none
    uint32_t where = buffers;    // where the descriptors point
    std::vector<uint8_t> data{1, 2};

    board_test ()
    {
        settings.board.fill = board_t::fill_t::noise;
        settings.card (3).answers (0x33, {0x01, 'b', 0x2A});
    }
    void write (uint32_t offset, int width, uint32_t value)
    {
        value ^= flipped.offset == offset ? flipped.bits : 0;
        board->write (offset, width, value);
    }
    void power_up ()
    {
        board = std::make_unique<chassis_t> (settings);
        for (const word_t &word : set_up) {
            write (word.offset, word.width, word.value);
        }
    }
    void descriptor (uint32_t at, uint32_t status, uint32_t length, uint32_t pointer)
    {
        write (at + 4, 4, pointer);
        write (at + 2, 2, length);
        write (at, 2, status);
    }
    void start ()
    {
        uint32_t count = static_cast<uint32_t> (data.size ()) + 2;
        write (0x11A40, 4, 0x28004);
        write (0x119FC, 4, divider);
        write (0x10D50, 4, 0x80 | code);
        write (0x10D50, 4, code);
        descriptor (0x1020, rx_status, 0, where + 4096);
        descriptor (0x1000, 0x8400, 1, where);
        descriptor (0x1008, 0x8000, count, where);
        descriptor (0x1010, 0xA400, 1, where + count);
        std::vector<uint8_t> frame{0x33, 0x33};
        frame.insert (frame.end (), data.begin (), data.end ());
        frame.push_back (0x00);
        memcpy (board->memory ().physical (settings.board.buffer), frame.data (), frame.size ());
        if (init) {
            board->driver_request (3, init);
        }
        write (0x11A40, 4, 0x28024);
        write (0x11A40, 4, 0x28034);
    }
    // "unsent", "silent", or the receive descriptor's status and the bytes received.
    std::string outcome ()
    {
        if (board->memory ().read16 (0x1010) & 0x8000) {
            return "unsent";
        }
        if (board->memory ().read16 (0x1020) & 0x8000) {
            return "silent";
        }
        char text[8];
        snprintf (text, sizeof (text), "%04X", board->memory ().read16 (0x1020));
        std::string result = text;
        for (uint32_t i = 0; i < board->memory ().read16 (0x1022) && i < 8; i++) {
            snprintf (text, sizeof (text), " %02X",
                      *board->memory ().physical (settings.board.buffer + 4096 + i));
            result += text;
        }
        return result;
    }
    std::string transfer ()
    {
        start ();
        board->advance (110000);
        return outcome ();
    }
    std::string play ()
    {
        power_up ();
        return transfer ();
    }
    uint32_t word (uint32_t offset)
    {
        return board->memory ().read16 (offset);
    }
};

constexpr const char *good = "2480 01 62 2A";

// Outcomes, and the registers with the bits that are wrong in every write to them.
TEST_F (board_test, a_wrong_bit_anywhere_makes_the_bus_fail)
{
    EXPECT_EQ (play (), good);
    const std::vector<std::pair<const char *, const char *>> table = {
        {"unsent", "119FC:10000 119FC:20000 119FC:4000 119FC:2000"}, // BRGC4
        {"silent", "119FC:2 119FC:1"},
        {"unsent", "11B08:100 11B08:8000 11B08:4000"}, // CMXSCR
        {"silent", "11B08:800"},
        {"unsent", "11A40:1 11A40:10 11A40:100000 11A44:1"}, // GSMR_L, GSMR_H
        {"silent", "11A40:10000 11A40:4000 11A40:20 11A44:20"},
        {"unsent", "11A48:8000 11A48:200"}, // PSMR, DSR
        {"silent", "11A48:4000 11A48:1000 11A48:400 11A48:C00 11A48:100 11A48:80 11A48:40"},
        {"silent", "11A48:10 11A4E:100"},
        {"2400 5A 01 62 2A", "11A48:800"},                                      // by hand
        {"silent", "10D24:800000 10D28:20000 10D20:20000"},                     // port B
        {"silent", "10D44:80 10D48:1 10D4C:10 10D40:40 10D50:80 10D50:20"},     // port C
        {"silent", "10D64:80 10D68:80 10D6C:80 10D60:80"},                      // TXD3
        {"silent", "10D64:40 10D68:40 10D6C:40 10D60:40"},                      // RXD3
        {"silent", "8200:4 8200:8 8204:8 8206:1000 8248:1 8248:100 824E:2133"}, // parameters
        {"unsent", "8202:4 8202:80 8205:8"},                                    //
        {good, "824A:FF"},                                                      //
        {"2480 01 62", "8206:1002 8250:8062"},                                  //
        {"2480 01 2A", "8250:C062"},                                            //
        {"unsent", "1000:8000 1002:1 100C:80000000"},                           // descriptors
        {"silent", "1000:400 1010:400 1024:80000000"},                          //
        {"2000", "1020:8000"},
    };
    for (const auto &[expected, flips] : table) {
        std::istringstream text (flips);
        for (std::string flip; text >> flip;) {
            ASSERT_EQ (sscanf (flip.c_str (), "%x:%x", &flipped.offset, &flipped.bits), 2);
            EXPECT_EQ (play (), expected) << flip;
        }
    }
}

TEST_F (board_test, commands_only_work_when_whole_and_in_time)
{
    for (uint32_t wrong : {0x00000000u, 0x08C00000u, 0x88C10000u, 0x04C10000u, 0x08810000u,
                           0x08C10001u, 0x08C10010u, 0x08C10003u}) {
        init = wrong;
        EXPECT_NE (play (), good) << std::hex << wrong;
    }
    init = 0x08C10000;
    EXPECT_EQ (play (), good);
    init = 0;
    EXPECT_EQ (transfer (), good) << "the pointers have wrapped by themselves";
    board->driver_request (3, 0x08C10000); // while enabled
    EXPECT_EQ (transfer (), "unsent");
    init = 0x08C10000;
    power_up ();
    start ();
    write (0x11A40, 4, 0x28024);
    board->driver_request (3, init); // while only the receiver is enabled
    write (0x11A40, 4, 0x28034);
    board->advance (110000);
    EXPECT_EQ (outcome (), "silent");
    settings.board.cpcr = 5;
    EXPECT_EQ (play (), "unsent");
    EXPECT_EQ (board->driver_request (3, init), 5);
}

TEST_F (board_test, initialising_puts_the_pointers_back)
{
    power_up ();
    start ();
    board->advance (20); // the first descriptor is done, the second under way
    write (0x11A40, 4, 0x28004);
    board->advance (1000);
    EXPECT_EQ (word (0x8220), 0x1008u);
    EXPECT_EQ (word (0x1000), 0x0400u);
    EXPECT_EQ (outcome (), "unsent");
    board->driver_request (3, 0x08C10000);
    EXPECT_EQ (word (0x8220), 0x1000u);
    EXPECT_EQ (word (0x8210), 0x1020u);
    EXPECT_EQ (transfer (), good);
}

TEST_F (board_test, a_card_fails_as_told)
{
    struct row_t {
        fault_t fault;
        uint32_t at;
        const char *outcome;
        uint32_t counter; // the offset of the one that counts 1
    };
    for (const row_t &row : std::vector<row_t>{
             {fault_t::none, 0, good, 0},
             {fault_t::silent, 0, "silent", 0},
             {fault_t::late, 0, "silent", 0},
             {fault_t::line_break, 1, "24A0 01", 0x8244},
             {fault_t::framing, 0, "2490 01", 0x8240},
             {fault_t::framing, 99, "2490 01 62 2A", 0x8240},
             {fault_t::overrun, 2, "2482 01 62", 0},
             {fault_t::noise, 1, good, 0x8242},
             {fault_t::wrong_address, 0, "silent", 0},
             {fault_t::missing_address, 0, "silent", 0},
             {fault_t::missing_end, 0, "silent", 0},
             {fault_t::line_low, 0, "silent", 0},
             {fault_t::endless_transmitter, 0, "unsent", 0},
         }) {
        settings.card (3).fails (row.fault, row.at);
        EXPECT_EQ (play (), row.outcome) << static_cast<int> (row.fault);
        for (uint32_t counter : {0x823Eu, 0x8240u, 0x8242u, 0x8244u}) {
            EXPECT_EQ (word (counter), counter == row.counter) << static_cast<int> (row.fault);
        }
        bool low = row.fault == fault_t::line_low;
        EXPECT_EQ (board->read (0x10D73, 1) & 0x40, low ? 0u : 0x40u);
        write (0x10D50, 4, 0x80);
        EXPECT_EQ (board->read (0x10D70, 4) & 0x40, 0x40u);
    }
    settings.card (3).fails (fault_t::late);
    play ();
    board->advance (91000);
    EXPECT_EQ (outcome (), good);
}

TEST_F (board_test, receives_what_the_manual_says)
{
    settings.card (3).from (0xA5);
    EXPECT_EQ (play (), "2400 01 62 2A") << "the second address";
    settings.card (3).from (0x5A).answer[0x33].bytes.clear ();
    EXPECT_EQ (play (), "2480") << "no data";
    settings.card (3).echoes (0x33);
    EXPECT_EQ (play (), "2480 01 02");
    power_up ();
    start ();
    board->advance (187); // in the address of the answer
    write (0x11A40, 4, 0x28014);
    write (0x11A40, 4, 0x28034);
    board->advance (110000);
    EXPECT_EQ (outcome (), "silent") << "enabled too late";
    rx_status = 0xB000;
    EXPECT_EQ (play (), "3480 01 02");
    EXPECT_EQ (word (0x11A50), 0x0001u);
    write (0x11A50, 2, 0x0006);
    EXPECT_EQ (word (0x11A50), 0x0001u);
    write (0x11A50, 2, 0x0001);
    EXPECT_EQ (word (0x11A50), 0u);
    rx_status = 0x2000;
    play ();
    EXPECT_EQ (word (0x11A50), 0x0004u) << "no buffer";
    rx_status = 0xA000;
    settings.card (3).fails (fault_t::missing_end);
    flipped = {0x8238, 3};
    EXPECT_EQ (play (), "2480 01 02") << "closed by idle time";
    flipped = {0, 0};
    settings.card (3).fails (fault_t::none).answer[0x33].bytes.assign (5000, 7);
    play ();
    EXPECT_EQ (word (0x1022), 4096u) << "the rest is lost";
}

TEST_F (board_test, time_is_exact)
{
    settings.card (3).after (100);
    power_up ();
    start ();
    board->advance (13);
    EXPECT_EQ (word (0x1000), 0x8400u);
    board->advance (1); // 11 bits of 80 ticks at 66 MHz: 13.333 us
    EXPECT_EQ (word (0x1000), 0x0400u);
    board->advance (65);
    EXPECT_EQ (outcome (), "unsent");
    board->advance (1); // six characters: 80 us
    EXPECT_EQ (outcome (), "silent");
    EXPECT_EQ (board->read (0x10D70, 4) & 0x40, 0x40u);
    board->advance (101); // in the start bit of the answer
    EXPECT_EQ (board->read (0x10D70, 4) & 0x40, 0u);
    board->advance (65);
    EXPECT_EQ (outcome (), "silent");
    board->advance (1); // 180 us and five characters
    EXPECT_EQ (outcome (), good);

    settings.board.brgclk = 66666667;
    chassis_t steps (settings), leap (settings);
    for (int i = 0; i < 300000; i++) {
        steps.advance (10);
    }
    leap.advance (3000000);
    EXPECT_EQ (steps.now (), 200000001u);
    EXPECT_EQ (leap.now (), 200000001u);
}

TEST_F (board_test, each_card_has_its_code_and_its_bit_rate)
{
    struct row_t {
        int slot;
        uint32_t code, divider, bit_rate;
        bool answers;
    };
    const std::vector<row_t> rows = {
        {0, 31, 0x10008, 0, true},      {1, 19, 0x10008, 0, true},       //
        {20, 0, 0x10008, 0, true},      {23, 22, 0x10030, 0, true},      //
        {24, 23, 0x10030, 0, true},     {27, 26, 0x10008, 0, true},      //
        {30, 29, 0x10008, 0, true},     {3, 16, 0x10008, 0, false},      //
        {31, 30, 0x10008, 0, false},    {3, 17 + 32, 0x10008, 0, false}, //
        {23, 22, 0x10008, 0, false},    {3, 17, 0x10030, 0, false},      //
        {3, 17, 0x10008, 858000, true}, {3, 17, 0x10008, 860000, false}, //
        {3, 17, 0x10008, 794000, true}, {3, 17, 0x10008, 792000, false},
    };
    for (const row_t &row : rows) {
        settings.cards.clear ();
        settings.card (row.slot).answers (0x33, {0x01, 'b', 0x2A}).bit_rate = row.bit_rate;
        code = row.code;
        divider = row.divider;
        EXPECT_EQ (play (), row.answers ? good : "silent") << row.slot << " " << row.bit_rate;
    }
}

TEST_F (board_test, a_card_listens_and_answers_only_while_it_is_selected)
{
    settings.card (3).after (1000);
    for (uint64_t when : {5, 50, 90}) { // in the opening, in the frame, before the answer
        power_up ();
        start ();
        board->advance (when);
        write (0x10D50, 4, 0x80 | code);
        write (0x10D50, 4, code);
        board->advance (100000);
        EXPECT_EQ (outcome (), "silent") << when;
    }
    power_up ();
    start ();
    board->advance (1080 + 30); // in the answer
    write (0x10D50, 4, 16);
    board->advance (100000);
    EXPECT_EQ (outcome ().substr (0, 4), "2490") << "torn off in a character";
    settings.cards.clear ();
    int selects = 0;
    power_up ();
    board->before_select = [&] {
        selects++;
        std::map<int, card_t> cards;
        cards[3].answers (0x33, {9});
        board->set_cards (cards);
    };
    EXPECT_EQ (transfer (), "2480 09") << "plugged just before";
    EXPECT_EQ (selects, 1);
}

TEST_F (board_test, only_a_whole_request_is_answered)
{
    data.clear ();
    EXPECT_EQ (play (), good);
    flipped = {0x100A, 3}; // one character instead of two
    EXPECT_EQ (play (), "silent");
    flipped = {0, 0};
    for (int wrong : {1, 2}) { // the second command, the closing address
        power_up ();
        start ();
        board->memory ().physical (buffers)[wrong] ^= 0x01;
        board->advance (110000);
        EXPECT_EQ (outcome (), "silent") << wrong;
    }
}

TEST_F (board_test, a_trace_tells_what_happened)
{
    char *text = nullptr;
    size_t size = 0;
    FILE *file = open_memstream (&text, &size);
    trace_t trace (file, settings.board.brgclk);
    settings.card (3).answer[0x33].bytes.assign (40, 0xEE);
    settings.card (4).fails (fault_t::framing, 1).answers (0x33, {1, 2, 3});
    power_up ();
    board->observe (&trace);
    transfer ();
    code = 16;
    transfer ();
    divider = 0x10030;
    transfer ();
    write (0x10D50, 4, 0x80);
    fclose (file);
    EXPECT_STREQ (
        text,
        "0.000000  to   slot  3 (code 17)  33 | 33 33 01 02 | 00\n"
        "0.000180  from slot  3 (code 17)  5A | EE EE EE EE EE EE EE EE EE EE EE EE EE EE EE "
        "EE ... 16 more ... EE EE EE EE EE EE EE EE | 00\n"
        "0.110000  to   slot  4 (code 16)  33 | 33 33 01 02 | 00\n"
        "0.110180  from slot  4 (code 16)  5A | 01 02 03 | 00  framing error at data byte 1\n"
        "0.220000  to   slot  4 (code 16)  33 | 33 33 01 02 | 00  not understood by the card: "
        "wrong bit rate at address\n");
    free (text);
}

// Everything that an observer is told, as one text.
struct recorder_t : chassis_observer_t {
    std::string text;
    void note (std::initializer_list<uint64_t> values)
    {
        for (uint64_t value : values) {
            text += std::to_string (value) + " ";
        }
    }
    void character (const line_character_t &c) override
    {
        note ({c.start, c.end, c.from_card, c.value, c.address, c.levels});
    }
    void pins (uint64_t tick, const bus_pins_t &pins) override
    {
        note ({tick, pins.code, pins.strobe_low});
    }
    void access (const access_t &a) override
    {
        note ({a.offset, static_cast<uint64_t> (a.width), a.value, a.is_write});
    }
};

TEST_F (board_test, runs_repeat_to_the_bit)
{
    std::string texts[2];
    for (std::string &text : texts) {
        recorder_t recorder;
        power_up ();
        board->observe (&recorder);
        transfer ();
        board->read (0x9000, 4);
        text = recorder.text;
    }
    EXPECT_GT (texts[0].size (), 500u);
    EXPECT_EQ (texts[0], texts[1]);
}

struct door_test : board_test {
    recorder_t recorder;

    void enter ()
    {
        power_up ();
        board->observe (&recorder);
        recorder.text.clear ();
        door_attach (board.get ());
        door_set_fast (true);
    }
    void TearDown () override
    {
        door_attach (nullptr);
    }
    static uint8_t *map (uint64_t phys, size_t length)
    {
        int fd = open ("/dev/mem", O_RDWR | O_SYNC | O_CLOEXEC);
        off_t offset = static_cast<off_t> (phys);
        void *view = mmap (nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED, fd, offset);
        close (fd);
        return view == MAP_FAILED ? nullptr : static_cast<uint8_t *> (view);
    }
};

template <typename word_t> volatile word_t *at (uint8_t *view, uint32_t offset)
{
    return reinterpret_cast<volatile word_t *> (view + offset);
}

TEST_F (door_test, each_access_arrives_once_at_its_width)
{
    enter ();
    uint8_t *view = map (0xF0000000, 0x40000);
    ASSERT_NE (view, nullptr);
    *at<uint32_t> (view, 0x1000) = htobe32 (0x81828384);
    *at<uint16_t> (view, 0x1004) = htobe16 (0x8586);
    *at<uint8_t> (view, 0x1006) = 0x87;
    EXPECT_EQ (recorder.text, "4096 4 2172814212 1 4100 2 34182 1 4102 1 135 1 ");
    recorder.text.clear ();
    uint32_t word = *at<uint32_t> (view, 0x1000);
    uint16_t half = *at<uint16_t> (view, 0x1004);
    uint8_t byte = *at<uint8_t> (view, 0x1006);
    EXPECT_EQ (recorder.text, "4096 4 2172814212 0 4100 2 34182 0 4102 1 135 0 ");
    EXPECT_EQ (be32toh (word), 0x81828384u);
    EXPECT_EQ (be16toh (half), 0x8586);
    EXPECT_EQ (byte, 0x87);
    int64_t wide = static_cast<int32_t> (*at<uint32_t> (view, 0x1000));
    int32_t extended = *at<int8_t> (view, 0x1000);
    int64_t half_extended = static_cast<int16_t> (*at<uint16_t> (view, 0x1004));
    EXPECT_EQ (wide, static_cast<int32_t> (htobe32 (0x81828384)));
    EXPECT_EQ (extended, static_cast<int8_t> (0x81));
    EXPECT_EQ (half_extended, static_cast<int16_t> (htobe16 (0x8586)));
    *at<uint32_t> (view, 0x1000) = 0;
    *at<uint32_t> (view, 0x1000) |= htobe32 (0x00F0);
    *at<uint32_t> (view, 0x1000) &= htobe32 (0x0030);
    *at<uint8_t> (view, 0x1003) ^= 0x01;
    EXPECT_EQ (board->memory ().read32 (0x1000), 0x31u);
}

#ifdef __x86_64__
// The instruction forms that compilers make of volatile accesses, one by one: what is left in
// memory, in the register, and the flags that the next branch looks at.
TEST_F (door_test, knows_the_processors_forms)
{
    enter ();
    uint8_t *view = map (0xF0000000, 0x40000);
    uint8_t *place = view + 0x1000;
    uint64_t result;
    bool carry, zero, sign;
#define RUN(code, in)                                                                              \
    result = (in);                                                                                 \
    asm volatile(code                                                                              \
                 : "+a"(result), "=@ccc"(carry), "=@ccz"(zero), "=@ccs"(sign)                      \
                 : "d"(place), "c"(0x1000ULL), "b"(view)                                           \
                 : "memory")
    board->memory ().write (0x1000, 4, 0x80000001);
    RUN ("movbe (%%rdx), %%eax", ~0ULL);
    EXPECT_EQ (result, 0x80000001u);
    RUN ("movw (%%rbx,%%rcx), %%ax", 0x1111111111111111);
    EXPECT_EQ (result, 0x1111111111110080u);
    RUN ("movb 0x3(%%rdx), %%ah", 0);
    EXPECT_EQ (result, 0x0100u);
    RUN ("movsbq (%%rdx), %%rax", 0);
    EXPECT_EQ (result, 0xFFFFFFFFFFFFFF80u);
    RUN ("cmpb $0x81, (%%rdx)", 0);
    EXPECT_TRUE (carry && !zero && sign);
    RUN ("testl %%eax, (%%rdx)", 0x80);
    EXPECT_TRUE (!carry && !zero && !sign);
    RUN ("subb 3(%%rdx), %%al", 1);
    EXPECT_TRUE (result == 0 && zero && !carry);
    RUN ("addl $-1, 0x10(%%rbx,%%rcx)", 0);
    RUN ("movl $0x04030201, (%%rdx)", 0);
    EXPECT_EQ (board->memory ().read32 (0x1000), 0x01020304u);
    RUN ("addw $0x7fff, 2(%%rdx); movb %%ah, (%%rdx)", 0xAB00);
    EXPECT_EQ (board->memory ().read32 (0x1000), 0xAB020284u);
    RUN ("movbe %%ax, (%%rdx)", 0x1234);
    EXPECT_EQ (board->memory ().read16 (0x1000), 0x1234u);
    EXPECT_DEATH (RUN ("xchgl %%eax, 0x30(%%rdx)", 0), "0x01030.*87 42 30");
#undef RUN
}
#endif

TEST_F (door_test, the_device_answers_and_the_rest_passes_through)
{
    settings.board.buffer = 0x80000123;
    settings.board.dpram = 0xFFFFFFFF;
    enter ();
    int fd = open ("/dev/scanp", O_RDWR);
    ASSERT_GE (fd, 0);
    EXPECT_EQ (door_last_flags (), O_RDWR);
    EXPECT_EQ (static_cast<uint32_t> (ioctl (fd, _IO ('s', 1))), 0x80000123u);
    EXPECT_EQ (ioctl (fd, _IO ('s', 2)), -1);
    EXPECT_EQ (ioctl (fd, _IO ('s', 3), 0x08C10000), 0);
    EXPECT_TRUE (ioctl (fd, _IO ('s', 4)) == -1 && errno == ENOTTY);
    close (fd);
    EXPECT_EQ (open ("/dev/null", O_RDWR), fd) << "the same number, another file";
    EXPECT_EQ (ioctl (fd, _IO ('s', 1)), -1);
    close (fd);
    uint64_t before = board->now ();
    usleep (1000);
    EXPECT_EQ (board->now () - before, 66000u);
    settings.board.device = false;
    enter ();
    EXPECT_TRUE (open ("/dev/scanp", O_RDWR) == -1 && errno == ENOENT);
    door_attach (nullptr);
    usleep (1);
    EXPECT_EQ (board->now (), 0u);
}

TEST_F (door_test, buffers_lie_anywhere)
{
    for (uint32_t buffer : {0x01F40000u, 0x00000001u, 0xE1FFF234u, 0xFFFFE000u}) {
        settings.board.buffer = where = buffer;
        enter ();
        uint32_t page = buffer & ~0xFFFu;
        size_t length = buffer & 0xFFF ? 0x3000 : 0x2000;
        uint8_t *view = map (page, length);
        ASSERT_NE (view, nullptr) << buffer;
        EXPECT_EQ (map (page + static_cast<uint64_t> (length) - 0x1000, 0x2000), nullptr);
        EXPECT_EQ (transfer (), good) << buffer;
        EXPECT_EQ (memcmp (view + (buffer - page) + 4096, "\x01\x62\x2A", 3), 0);
    }
    for (uint32_t nonsense : {0x00000000u, 0xFFFFFFFFu, 0xFFFFE001u}) {
        settings.board.buffer = nonsense;
        enter ();
        EXPECT_EQ (map (nonsense & ~0xFFFu, 0x1000), nullptr) << nonsense;
        EXPECT_EQ (errno, EPERM);
    }
}

TEST_F (door_test, a_fault_of_the_programs_own_still_kills_it)
{
    enter ();
    uint8_t *view = map (0xF0000000, 0x40000);
    EXPECT_EQ (*at<uint8_t> (view, 0x8204), 0x10);
    auto *closed = static_cast<volatile uint8_t *> (
        mmap (nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    EXPECT_DEATH (*closed = 1, "");
    EXPECT_DEATH (reinterpret_cast<void (*) ()> (view) (), "") << "a jump is no access";
    door_attach (nullptr);
    board.reset ();
    EXPECT_DEATH (*at<uint8_t> (view, 0x8204) = 1, "") << "the view went with the board";
}

} // namespace
