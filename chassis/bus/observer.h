// Callbacks for observers of a chassis.
#pragma once

#include "chassis/bus/line.h"

#include <string>
#include <vector>

// One access of the program to the internal memory map.
struct access_t {
    uint32_t offset;
    int width; // bytes: 1, 2, 4
    uint32_t value;
    bool is_write;
    const char *name = ""; // of the register, as the manual has it; empty: memory
};

// Override what you need. The calls come in the order of time, a character's when it ends: its
// start may precede the last change of the pins.
struct chassis_observer_t {
    virtual void character (const line_character_t &) {}
    virtual void pins (uint64_t /*tick*/, const bus_pins_t &) {}
    virtual void access (const access_t &) {}
    virtual void command (uint32_t /*word handed to the driver*/) {}
    // Everything on the lines before `tick`, and on the pins up to it, has been reported: no
    // character that began earlier is still on its way.
    virtual void settled (uint64_t /*tick*/) {}
    // A line about what the program does with the board, each said once. Refused: the board does
    // not know what would happen, or the program may not do it; the board is stopped from now on.
    virtual void remark (uint64_t /*tick*/, const std::string & /*line*/, bool /*refused*/) {}

  protected:
    ~chassis_observer_t () = default;
};

// The observers of one chassis, called in the order in which they were added.
class observers_t final : public chassis_observer_t {
  public:
    // Must outlive this.
    void add (chassis_observer_t *observer)
    {
        all_.push_back (observer);
    }
    void character (const line_character_t &character) override
    {
        for (chassis_observer_t *one : all_) {
            one->character (character);
        }
    }
    void pins (uint64_t tick, const bus_pins_t &pins) override
    {
        for (chassis_observer_t *one : all_) {
            one->pins (tick, pins);
        }
    }
    void access (const access_t &access) override
    {
        for (chassis_observer_t *one : all_) {
            one->access (access);
        }
    }
    void command (uint32_t word) override
    {
        for (chassis_observer_t *one : all_) {
            one->command (word);
        }
    }
    void settled (uint64_t tick) override
    {
        for (chassis_observer_t *one : all_) {
            one->settled (tick);
        }
    }
    void remark (uint64_t tick, const std::string &line, bool refused) override
    {
        for (chassis_observer_t *one : all_) {
            one->remark (tick, line, refused);
        }
    }

  private:
    std::vector<chassis_observer_t *> all_;
};
