// An emulated board and chassis under the device layer, set up, and observed: the invariants of
// what a chassis reports, whatever happens to it.
#pragma once

#include "chassis/board/chassis.h"
#include "chassis/launch/door.h"
#include "fuzz/fuzz.h"
#include "scanp/scan_port.h"
#include "scanp/scanp.h"

// Up to three cards.
inline std::map<int, card_t> read_cards (input_t &input)
{
    std::map<int, card_t> cards;
    for (int left = input.byte () % 4; left > 0; left--) {
        card_t &card = cards[input.byte () % 32];
        card.fails (fault_t (input.byte () % 12), input.word ());
        card.delay = std::clamp (input.word (), 0, 60000000);
        card.gap = std::clamp (input.word (), 0, 60000000);
        card.address = input.byte () ^ 0x5A;
        card.bit_rate = input.byte () * 10000;
        answer_t &answer = card.answer[input.byte ()];
        answer.bytes.assign (uint16_t (input.word ()), 7);
        answer.echo = input.byte () & 1;
    }
    return cards;
}

struct board_under_test_t final : chassis_observer_t {
    chassis_t chassis;
    size_t num_characters = 0;
    uint64_t reported = 0; // everything before this tick
    bool refused = false;
    const unsigned first_descriptor = dup (0); // of those that the device layer keeps open for ever

    explicit board_under_test_t (const chassis_settings_t &settings) : chassis (settings)
    {
        chassis.observe (this);
        door_attach (&chassis);
        door_set_fast (true);
        scan_port_state = {};
        scan_port_init ();
    }
    ~board_under_test_t ()
    {
        door_attach (nullptr);
        close_range (first_descriptor, first_descriptor + 9, 0);
    }
    void character (const line_character_t &c) override
    {
        num_characters++;
        REQUIRE (reported <= c.start && c.start <= c.end && c.end <= chassis.now ());
    }
    void settled (uint64_t tick) override
    {
        REQUIRE (std::exchange (reported, tick) <= tick && tick <= chassis.now ());
    }
    // "WHAT is VALUE: WHY (what the program is doing)", and nothing after a refusal.
    void remark (uint64_t, const std::string &line, bool stops) override
    {
        REQUIRE (!std::exchange (refused, stops));
        REQUIRE_SHOWING (is_one_line (line) && line.find (" is 0x") < line.find (": "), line);
    }
};
