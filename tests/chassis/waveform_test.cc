// The value change dump: what is on the wires when something goes wrong. What a decoder of others
// reads from it is in transcripts/waveform_native.txt.
#include "chassis/bus/waveform.h"
#include "tests/board.h"
#include "tests/expected.h"
#include "tests/shell.h"

#include <sstream>

namespace {

struct waveform_test : board_test {
    uint8_t rx[4096];

    void ask (uint32_t slot)
    {
        scan_port_transfer (slot, 0x33, 0, nullptr, 0, rx);
    }
    // In the middle of a bit, `when` microseconds later.
    void ask_and_disturb (uint64_t when, std::function<void ()> what)
    {
        log->on_access = [=, done = false] (const access_t &a) mutable {
            if (!done && !a.is_write && a.offset == 0x1010) {
                done = true;
                chassis->advance (when);
                what ();
            }
        };
        ask (3);
    }
};

// Every wire at every moment, of: a low stop bit before the next start bit; a break; a card that
// holds the line low, in eight selects of one moment; pins that move under a character; a character
// that the program cuts off; an answer, late, that the next select cuts off; and a card that holds
// up the transmitter.
TEST_F (waveform_test, shows_the_wires_as_they_are)
{
    settings.card (3).answers (0x33, {0x55});
    settings.card (4).fails (fault_t::framing).answers (0x33, {0x00, 0x80});
    settings.card (5).fails (fault_t::line_break, 1).answers (0x33, {0xFF, 0xFF}).bit_rate = 810000;
    settings.card (6).fails (fault_t::line_low);
    settings.card (7).after (109930).answers (0x33, {0x00});
    settings.card (8).fails (fault_t::endless_transmitter);
    settings.board.cts3 = true;
    shell_t shell;
    const std::string dump = shell.folder + "/dump";
    power_up ();
    waveform_t waveform (open (dump.c_str (), O_WRONLY | O_CREAT, 0600), settings.board.brgclk);
    chassis->observe (&waveform);
    scan_port_init ();
    for (uint32_t slot : {4, 5, 6, 6, 6, 6, 6, 6, 6, 6}) {
        ask (slot);
    }
    ask_and_disturb (20, [] { scan_set_slot_code (17), scan_set_slot_code (16); });
    ask_and_disturb (18, [this] { chassis->write (0x11A40, 4, 0x00028004); });
    ask (7);
    ask (3);
    ask (8);
    scan_strobe_high ();
    std::istringstream text (text_of (dump));
    std::vector<std::string> lines;
    for (std::string line; std::getline (text, line);) {
        lines.push_back (line);
    }
    expect_file ("chassis/waveform.txt", in_rows (lines, " "));
}

TEST_F (waveform_test, ends_with_a_word_where_no_more_can_be_written)
{
    shell_t shell;
    const std::string dump = shell.folder + "/dump";
    waveform_t waveform (open (dump.c_str (), O_WRONLY | O_CREAT, 0600), settings.board.brgclk);
    const std::string sound = text_of (dump);
    auto settle = [&] {
        waveform.settled (1);
        waveform.settled (2);
    };
    EXPECT_EQ (errors_of_full_disk (sound.size () + 3, settle),
               "q5_chassis: the waveform ends here, it cannot be written: File too large\n");
    EXPECT_EQ (text_of (dump), sound);
}

} // namespace
