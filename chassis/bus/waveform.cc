#include "chassis/bus/waveform.h"

#include "chassis/bus/one_line.h"

#include <algorithm>
#include <errno.h>
#include <signal.h>
#include <string.h>
#include <unistd.h>

constexpr uint64_t nanoseconds_a_second = 1000000000;
constexpr uint64_t switched_on = 1000000;
constexpr uint16_t all_wires = 0x7FF;
constexpr char names[] = "0123456strc"; // of the wires, in the lines of the dump

static std::string head ()
{
    std::string text = "$version q5_chassis $end\n"
                       "$timescale 1 ns $end\n"
                       "$scope module scan_bus $end\n";
    for (int bit = 6; bit >= 0; bit--) {
        std::string number = std::to_string (bit);
        text += "$var wire 1 " + number + " slot_code [" + number + "] $end\n";
    }
    return text + "$var wire 1 s strobe $end\n"
                  "$var wire 1 t TXD3 $end\n"
                  "$var wire 1 r RXD3 $end\n"
                  "$var wire 1 c CTS3 $end\n"
                  "$upscope $end\n"
                  "$enddefinitions $end\n"
                  "#0\n"
                  "$dumpvars\n";
}

waveform_t::waveform_t (int fd, uint32_t brgclk) : fd_ (fd), brgclk_ (brgclk), text_ (head ())
{
    put_wires (all_wires);
    text_ += "$end\n";
    write_out ();
}

// Each rounded by itself, so that errors do not add up.
uint64_t waveform_t::nanoseconds (uint64_t tick) const
{
    return switched_on + tick / brgclk_ * nanoseconds_a_second +
           tick % brgclk_ * nanoseconds_a_second / brgclk_;
}

void waveform_t::character (const line_character_t &character)
{
    uint16_t wire = character.from_card ? RXD3 : TXD3;
    for (int i = 0; i < character.num_levels; i++) {
        uint64_t tick = character.start + character.bit.lasts (static_cast<uint64_t> (i));
        if (tick < character.end) {
            uint16_t level = character.levels >> i & 1 ? wire : 0;
            coming_.push_back ({nanoseconds (tick), wire, level, true});
        }
    }
    coming_.push_back ({nanoseconds (character.end), wire, wire, true});
}

void waveform_t::pins (uint64_t tick, const bus_pins_t &pins)
{
    uint64_t stamp = std::max (nanoseconds (tick), next_pins_);
    next_pins_ = stamp + 1;
    auto levels = static_cast<uint16_t> (pins.code | (pins.strobe_low ? 0 : STROBE) |
                                         (pins.tx_held_up ? CTS3 : 0));
    coming_.push_back ({stamp, STROBE | SLOT_CODE | CTS3, levels, false});
    if (pins.rx_held_low != held_low_) {
        held_low_ = pins.rx_held_low;
        uint16_t level = held_low_ ? 0 : RXD3;
        coming_.push_back ({stamp, RXD3, level, false});
    }
}

// A character that ends just now may be followed by the next without a pause.
void waveform_t::settled (uint64_t tick)
{
    uint64_t now = nanoseconds (tick), next = nanoseconds (tick + 1);
    auto is_final = [=] (const change_t &c) { return c.stamp < (c.of_character ? now : next); };
    auto is_earlier = [] (const change_t &a, const change_t &b) { return a.stamp < b.stamp; };
    std::stable_sort (coming_.begin (), coming_.end (), is_earlier);
    auto rest = std::stable_partition (coming_.begin (), coming_.end (), is_final);
    std::for_each (coming_.begin (), rest, [this] (const change_t &c) { put (c); });
    coming_.erase (coming_.begin (), rest);
    put_levels ();
    stamp_ = now;
    put_stamp (); // so far the dump is sound
    write_out ();
}

void waveform_t::put (const change_t &change)
{
    if (change.stamp != stamp_) {
        put_levels ();
        stamp_ = change.stamp;
    }
    levels_ = static_cast<uint16_t> ((levels_ & ~change.wires) | change.levels);
}

void waveform_t::put_levels ()
{
    if (levels_ != shown_levels_) {
        put_stamp ();
        put_wires (levels_ ^ shown_levels_);
        shown_levels_ = levels_;
    }
}

// A frame that begins in the tick of its select comes after it.
void waveform_t::put_stamp ()
{
    if (stamp_ > shown_stamp_) {
        shown_stamp_ = stamp_;
        text_ += "#" + std::to_string (stamp_) + "\n";
    }
}

void waveform_t::put_wires (uint16_t wires)
{
    for (int bit = 0; names[bit] != '\0'; bit++) {
        if (wires >> bit & 1) {
            text_ += {levels_ >> bit & 1 ? '1' : '0', names[bit], '\n'};
        }
    }
}

// Blocks signals, so that the dump never ends in the middle of a line.
static bool write_whole (int fd, const std::string &text)
{
    sigset_t all, before;
    sigfillset (&all);
    pthread_sigmask (SIG_SETMASK, &all, &before);
    size_t written = 0;
    ssize_t size = 1;
    while (written < text.size () && size > 0) {
        size = write (fd, text.data () + written, text.size () - written);
        written += size > 0 ? static_cast<size_t> (size) : 0;
    }
    pthread_sigmask (SIG_SETMASK, &before, nullptr);
    return written == text.size ();
}

void waveform_t::write_out ()
{
    if (fd_ >= 0 && !text_.empty () && !write_whole (fd_, text_)) {
        complain (std::string ("the waveform ends here, it cannot be written: ") +
                  strerror (errno));
        (void)!ftruncate (fd_, size_); // a file: without half a line
        fd_ = -1;
    }
    size_ += static_cast<off_t> (text_.size ());
    text_.clear ();
}
