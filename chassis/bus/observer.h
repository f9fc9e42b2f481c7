// Who may watch a chassis, and what he is shown.
#pragma once

#include "chassis/bus/line.h"

#include <string>

// One access of the program to the internal memory map.
struct access_t {
    uint32_t offset;
    int width; // bytes: 1, 2, 4
    uint32_t value;
    bool is_write;
    const char *name = ""; // of the register, as the manual has it; empty: memory
};

// Someone who watches a chassis; takes what he wants. The calls come in the order of time, a
// character's when it ends: its start may lie before the last change of the pins.
struct chassis_observer_t {
    virtual void character (const line_character_t &) {}
    virtual void pins (uint64_t /*tick*/, const bus_pins_t &) {}
    virtual void access (const access_t &) {}
    virtual void command (uint32_t /*word handed to the driver*/) {}
    // Everything on the lines before `tick`, and on the pins up to it, has been told: no character
    // that began earlier is still on its way.
    virtual void settled (uint64_t /*tick*/) {}
    // A line about what the program does with the board, each told once. Refused: the board does
    // not know what would happen and stands still from now on; it is the last line.
    virtual void remark (uint64_t /*tick*/, const std::string & /*line*/, bool /*refused*/) {}

  protected:
    ~chassis_observer_t () = default;
};
