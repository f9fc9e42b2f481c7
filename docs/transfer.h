// One transfer over the scan bus, found in a dump.
#pragma once

#include "docs/value_change_dump.h"

// A character on an asynchronous line: start bit, eight data bits, address bit, stop bit.
struct character_t {
    int64_t start; // nanoseconds
    int64_t end;   // of the stop bit
    uint8_t value;
    bool address;
};
constexpr int bits_per_character = 11;

struct transfer_t {
    std::map<std::string, wire_t> wires;
    int64_t bit;    // nanoseconds a bit
    int64_t select; // the strobe falls
    int64_t poll;   // it rises
    std::vector<character_t> request;
    std::vector<character_t> answer;

    int code_at (int64_t time) const;
};

// The first one in the dump. Throws std::runtime_error when there is none with an answer.
transfer_t first_transfer (std::istream &in);
