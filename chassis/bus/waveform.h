// Writes the lines and pins of the bus as a value change dump (IEEE 1364), for a waveform viewer or
// the decoders of a logic analyser: slot_code (PC25 to PC31), strobe (PC24), TXD3, RXD3
// and CTS3, in nanoseconds since the chassis was switched on.
//
// The program changes pins in no emulated time. Such changes are shown a nanosecond apart, so that
// their order can be seen.
#pragma once

#include "chassis/bus/observer.h"

#include <string>
#include <sys/types.h>
#include <vector>

class waveform_t final : public chassis_observer_t {
  public:
    // Writes to the descriptor, which it does not own and which nothing else writes to. `brgclk`:
    // Hz. Whole lines are written at a time, up to a time stamp before which nothing more will
    // change: the file is a valid dump whenever the program ends. When the file cannot take more
    // the dump ends, with a line on standard error.
    waveform_t (int fd, uint32_t brgclk);

    void character (const line_character_t &character) override;
    void pins (uint64_t tick, const bus_pins_t &pins) override;
    void settled (uint64_t tick) override;

  private:
    // The wires, as bits: the low byte of port C's data register, then the lines.
    static constexpr uint16_t SLOT_CODE = 0x07F;
    static constexpr uint16_t STROBE = 0x080;
    static constexpr uint16_t TXD3 = 0x100;
    static constexpr uint16_t RXD3 = 0x200;
    static constexpr uint16_t CTS3 = 0x400; // high: the selected card holds up the transmitter

    struct change_t {
        uint64_t stamp; // nanoseconds
        uint16_t wires; // those that are set
        uint16_t levels;
        bool of_character; // else of the pins
    };
    int fd_;
    uint32_t brgclk_;
    std::vector<change_t> coming_; // not yet written
    uint64_t next_pins_ = 0;       // the earliest stamp for the next change of the pins
    bool held_low_ = false;

    uint16_t levels_ = STROBE | TXD3 | RXD3; // at `stamp_`
    uint16_t shown_levels_ = levels_;        // what the dump says so far
    uint64_t stamp_ = 0;
    uint64_t shown_stamp_ = 0;
    std::string text_; // to be written
    off_t size_ = 0;   // of what is written

    uint64_t nanoseconds (uint64_t tick) const;
    void put (const change_t &change);
    void put_levels ();
    void put_stamp ();
    void put_wires (uint16_t wires);
    void write_out ();
};
