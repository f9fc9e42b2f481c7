// Prints what goes over the bus, one line a frame:
//
//     0.000000  to   slot  3 (code 17)  33 | 33 33 01 02 | 00
//     0.000240  from slot  3 (code 17)  5A | 01 62 2A | 00
//
//     0.010000  the code changes from 17 to 16 under the low strobe: slot 4
//     0.010000  stopped: SCCM3 is 0x0001: no interrupts here (write of 0x0001 to SCCM3)
//
// The time of the first character in seconds, the direction, the address character, the data, the
// closing address; what is missing is "--"; what went wrong follows in words.
#pragma once

#include "chassis/bus/observer.h"
#include "chassis/bus/trace_file.h"

#include <optional>
#include <stdio.h>
#include <string>
#include <vector>

class trace_t final : public chassis_observer_t {
  public:
    // Does not own the file. `brgclk`: Hz.
    trace_t (FILE *file, uint32_t brgclk) : file_ (file, brgclk) {}

    void character (const line_character_t &character) override;
    void pins (uint64_t tick, const bus_pins_t &pins) override;
    void remark (uint64_t tick, const std::string &line, bool refused) override;

  private:
    struct frame_t {
        uint64_t start;
        int slot;
        uint8_t code;
        std::optional<uint8_t> address;
        std::vector<uint8_t> data;
        std::optional<uint8_t> closing;
        std::vector<std::string> faults;
    };
    trace_file_t file_;
    bus_pins_t pins_{0, false, -1, false, false};
    std::optional<frame_t> frames_[2]; // to the card, from the card

    void add (frame_t &frame, const line_character_t &character);
    void finish (bool from_card);
    void print (const frame_t &frame, bool from_card);
};
