// The emulated board and chassis under the device layer; what the board makes of other daemons is
// in daemons_test.cc. Registers and words are literals, so that a wrong name in the register map
// cannot hide on both sides.
#include "chassis/bus/trace.h"
#include "tests/board.h"
#include "tests/expected.h"

#include <numeric>
#include <sys/ioctl.h>
#include <sys/mman.h>

namespace {

class chassis_test : public board_test {
  protected:
    uint8_t rx[4096];

    void SetUp () override
    {
        settings.board.fill = board_t::fill_t::noise;
    }
    int32_t ask (uint32_t slot, int32_t txlen = 2)
    {
        bytes_t tx (4094);
        std::iota (tx.begin (), tx.end (), 1);
        return scan_port_transfer (slot, 0x93, txlen, tx.data (), sizeof (rx), rx);
    }
};

TEST_F (chassis_test, a_descriptor_that_was_not_ready_is_looked_at_every_64_bits)
{
    power_up ();
    scan_port_init ();
    chassis->driver_request (SCANP_DO_CPCR_COMMAND, 0x08C10000);
    chassis->write (0x119FC, 4, 0x10008);
    chassis->write (0x11A40, 4, 0x28034);
    chassis->advance (100);
    chassis->write (0x1004, 4, 0x01F40000);
    chassis->write (0x1002, 2, 1);
    chassis->write (0x1000, 2, 0xA400);
    chassis->advance (55);
    EXPECT_EQ (chassis->memory ().read16 (0x1000), 0xA400u);
    chassis->advance (1); // the second look is at 155.2 microseconds
    EXPECT_EQ (chassis->memory ().read16 (0x1000), 0x2400u);
}

TEST_F (chassis_test, the_receive_line_is_low_in_a_start_bit_and_idle_after_a_character)
{
    settings.card (3).echoes (0x93).after (200000);
    power_up ();
    scan_port_init ();
    EXPECT_EQ (ask (3), -3); // at 110 ms; the answer begins at 200.080
    const std::vector<std::tuple<uint32_t, uint32_t, uint32_t>> steps = {
        {90079, 0x40, 1}, {2, 0, 0}, {53, 0x40, 0}, {13, 0x40, 1}};
    for (auto [time, level, idle] : steps) {
        chassis->advance (time);
        EXPECT_EQ (chassis->read (0x10D70, 4) & 0x40, level) << time;
        EXPECT_EQ (chassis->read (0x11A57, 1), idle) << "SCCS3: idle for a character " << time;
    }
}

TEST_F (chassis_test, the_controller_leaves_how_an_answer_ended)
{
    struct end_t {
        fault_t fault;
        uint32_t at, descriptor, frmec_nosec, brkec, scce;
    };
    for (auto [fault, at, descriptor, frmec_nosec, brkec, scce] :
         {end_t{fault_t::line_break, 0, 0x24A00000, 0, 0x10000, 0x20},
          {fault_t::line_break, 1, 0x24A00001, 0, 0x10000, 0x20},
          {fault_t::framing, 99, 0x24900002, 0x10000, 0, 0},
          {fault_t::overrun, 1, 0x24820002, 0, 0, 0},
          {fault_t::noise, 1, 0x24800002, 1, 0, 0},
          {fault_t::endless_transmitter, 0, 0x24800002, 0, 0, 0},
          {fault_t::none, 0, 0x25800001, 0, 0, 4}}) {
        settings.cards = {{3, card_t ().echoes (0x93).pauses (50).fails (fault, at)}};
        power_up ();
        scan_port_init ();
        log->on_command = [this, idle = fault == fault_t::none ? 3 : 0] (uint32_t) {
            chassis->write (0x8238, 2, idle); // MAX_IDL: a pause ends the answer
        };
        ask (3);
        EXPECT_EQ (word (0x1020), descriptor);
        EXPECT_EQ (word (0x8240), frmec_nosec);
        EXPECT_EQ (word (0x8244) & 0xFFFF0000, brkec);
        EXPECT_EQ (word (0x11A50) >> 16, scce);
        EXPECT_EQ (log->remarks.size (), fault == fault_t::endless_transmitter) << "CTS3: no pin";
    }
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

TEST_F (chassis_test, cards_are_plugged_just_before_a_select)
{
    power_up ();
    scan_port_init ();
    int selects = 0;
    chassis->before_select = [&] {
        selects++;
        chassis->set_cards ({{3, card_t ().answers (0x93, {9})}});
    };
    EXPECT_EQ (ask (3), 1);
    chassis->write (0x10D53, 1, 0x11); // a byte of PDATC is enough
    chassis->write (0x10D53, 1, 0x10);
    EXPECT_EQ (selects, 3) << "a code that changes under the low strobe selects";
}

TEST (trace_file, marks_the_gap_that_a_full_disk_left)
{
    constexpr long begin = 1000; // so that the message fits into its file
    FILE *file = tmpfile ();
    fseek (file, begin, SEEK_SET);
    trace_file_t trace (file, 1000);
    auto put = [&] (std::initializer_list<const char *> lines) {
        for (const char *line : lines) {
            trace.put (1500, line);
        }
    };
    EXPECT_EQ (errors_of_full_disk (begin + 15,
                                    [&] {
                                        put ({"1", "2", "3"});
                                    }),
               "q5_chassis: the trace has a gap, it cannot be written: File too large\n");
    put ({"4", "5"});
    char text[100] = "";
    (void)!pread (fileno (file), text, sizeof (text) - 1, begin);
    fclose (file);
    EXPECT_STREQ (text, "1.500000  1\n1.5\n... 2 lines are missing here\n1.500000  4\n"
                        "1.500000  5\n");
}

TEST_F (chassis_test, a_trace_tells_what_happened)
{
    may_stop = true;
    char *text = nullptr;
    size_t size = 0;
    FILE *file = open_memstream (&text, &size);
    trace_t trace (file, settings.board.brgclk);
    settings.card (3).answers (0x93, bytes_t (40, 0xEE));
    settings.card (4).fails (fault_t::framing, 1).answers (0x93, {1, 2, 3});
    settings.card (5).fails (fault_t::line_low);
    power_up ();
    chassis->memory ().write (0x10D50, 4, 0x11); // the strobe is low before the set-up
    chassis->observe (&trace);
    scan_port_init ();
    for (uint32_t slot : {3, 4, 5, 6}) {
        ask (slot);
    }
    log->on_command = [&] (uint32_t) {
        chassis->write (0x119FC, 4, 0x10030);
        chassis->write (0x11A4E, 2, 0x7E00);
    };
    ask (3);
    chassis->write (0x11A54, 2, 1);
    EXPECT_EQ (ask (3), -10) << "nothing moves any more";
    line_character_t character = {};
    for (int i = 0; i < 8; i++) { // of all its faults the first few are reported
        character.fault = i % 2 == 0 ? line_fault_t::framing : line_fault_t::noise;
        trace.character (character);
    }
    bus_pins_t pins = {16, true, 4, true, true};
    for (bool strobe_low : {true, false, true}) { // what lasts is reported once
        pins.strobe_low = strobe_low;
        trace.pins (1000, pins);
    }
    fclose (file);
    expect_file ("chassis/trace.txt", text);
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
};

#ifdef __x86_64__
TEST_F (door_test, names_the_instruction_that_it_does_not_know)
{
    auto set = [&] { asm volatile("lock orl $1, 0x1030(%%rdx)" : : "d"(view) : "memory"); };
    EXPECT_DEATH (set (), "0x01030.*F0 83 8A 30");
}
#endif

TEST_F (door_test, a_fault_of_the_programs_own_still_kills_it)
{
    void *closed = mmap (nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    auto killed = [] (int status) { // or, by a sanitizer's own handler, ended with 1
        return WIFSIGNALED (status) ? WTERMSIG (status) == SIGSEGV : WEXITSTATUS (status) == 1;
    };
    EXPECT_EXIT (*static_cast<volatile uint8_t *> (closed) = 1, killed, "");
    EXPECT_EXIT (raise (SIGSEGV), killed, "") << "sent by somebody";
    chassis->memory ().write (0, 4, 0xFFFFFFFF);
    EXPECT_EXIT (reinterpret_cast<void (*) ()> (view) (), killed, "") << "a jump is not an access";
    auto map_without_descriptors = [] {
        for (int fd = 3; fd < 1024; fd++) {
            close (fd);
        }
        scanp_map_phys_mem (0xF0000000, 0x40000, 0);
    };
    EXPECT_EXIT (map_without_descriptors (), testing::ExitedWithCode (2), "closed a descriptor");
    door_attach (nullptr);
    chassis.reset ();
    EXPECT_EXIT (*static_cast<volatile uint8_t *> (view + 0x8204) = 1, killed, "")
        << "the view went with the board";
}

} // namespace
