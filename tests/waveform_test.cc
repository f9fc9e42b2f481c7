// The value change dump: what is on the wires when something goes wrong, and what a decoder of
// others makes of a whole batch.
#include "chassis/bus/waveform.h"
#include "tests/board.h"
#include "tests/expected.h"
#include "tests/system/daemon.h"

#include <signal.h>

namespace {

struct waveform_test : board_test {
    uint8_t rx[4096];

    void ask (uint32_t slot)
    {
        scan_port_transfer (slot, 0x33, 0, nullptr, 0, rx);
    }
    // Asks slot 3; in the midst of a bit, so many microseconds later, does something.
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
// holds the line low, twice; pins that move under a character; a character that the program cuts
// off; and an answer, late, that the next select cuts off.
TEST_F (waveform_test, shows_the_wires_as_they_are)
{
    settings.card (3).answers (0x33, {0x55});
    settings.card (4).fails (fault_t::framing).answers (0x33, {0x00, 0x80});
    settings.card (5).fails (fault_t::line_break, 1).answers (0x33, {0xFF, 0xFF});
    settings.card (6).fails (fault_t::line_low);
    settings.card (7).after (109930).answers (0x33, {0x00});
    shell_t shell;
    const std::string dump = shell.folder + "/dump";
    power_up ();
    waveform_t waveform (open (dump.c_str (), O_WRONLY | O_CREAT, 0600), settings.board.brgclk);
    chassis->observe (&waveform);
    scan_port_init ();
    for (uint32_t slot : {4, 5, 6, 6}) {
        ask (slot);
    }
    ask_and_disturb (20, [] { scan_set_slot_code (17), scan_set_slot_code (16); });
    ask_and_disturb (18, [this] { chassis->write (0x11A40, 4, 0x00028004); });
    ask (7);
    ask (3);
    expect_file ("expected/waveform.vcd", text_of (dump));
}

TEST_F (waveform_test, ends_with_a_word_when_the_disk_is_full)
{
    testing::internal::CaptureStderr ();
    waveform_t waveform (open ("/dev/full", O_WRONLY), settings.board.brgclk);
    waveform.settled (1);
    EXPECT_EQ (
        testing::internal::GetCapturedStderr (),
        "q5_chassis: the waveform ends here, it cannot be written: No space left on device\n");
}

// For each direction the characters of the trace, nine bits each, and those that the decoder reads.
const char *const compare = R"(
for way in 'tx to' 'rx from'; do
    set -- $RATE $way
    sed -n "s/.* $3 .*)  //p" trace | awk '{
        bars = 0
        for (i = 1; i <= NF; i++) if ($i == "|") bars++; else print "uart-1: " (bars != 1) $i
    }' >told
    sigrok-cli -i dump.vcd -I vcd:downsample=100 -A uart=$2-data:$2-warnings:$2-break \
        -P uart:data_bits=9:tx=TXD3:rx=RXD3:baudrate=$1 | diff -u told - && grep -c : told
done)";

void run_on_chassis (const shell_t &shell, const std::string &options, const std::string &command)
{
    pid_t daemon =
        shell.start ("q5_chassis --fast --vcd dump.vcd " + options + " -- q5_scand", "d");
    ASSERT_TRUE (wait_until_listening (daemon));
    EXPECT_EQ (shell.run (command).status, 0);
    kill (-daemon, SIGINT);
    wait_for (daemon, 10000);
}

TEST (decoder_test, reads_every_frame_of_a_batch)
{
    struct {
        std::string rate; // bit/s
        const char *requests;
        const char *num_characters; // to the cards and from them
    } batches[] = {
        {"825000", "3 51\n12 147 --tx 00 01 7F 80 FF\n4 83\n15 51\n3 147\n", "25\n53\n"},
        {"165000", "23 51\n24 83\n24 51\n", "12\n57\n"},
    };
    for (const auto &[rate, requests, num_characters] : batches) {
        shell_t shell;
        shell.write ("requests", requests);
        run_on_chassis (shell, "--trace trace", "q5_scan batch requests");
        EXPECT_EQ (shell.run ("RATE=" + rate + compare).output, num_characters);
    }
}

TEST (picture_test, is_drawn_from_the_dump_of_a_transfer)
{
    shell_t shell;
    shell.write ("chassis.toml", "[[card]]\nslot = 3\ndelay = 20\n"
                                 "answer = [{ command = 51, types = 'b', fields = [42] }]\n");
    run_on_chassis (shell, "--file chassis.toml", "q5_scan run 3 51 --tx 07");
    expect_file ("../docs/transfer.svg", shell.run ("draw_transfer <dump.vcd").output);
}

} // namespace
