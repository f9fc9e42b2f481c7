// The card in the selected slot: hears the frames on TXD3 while it is selected, and answers on
// RXD3 as its settings say. It lives from select to deselect.
#pragma once

#include "chassis/bus/line.h"
#include "chassis/bus/settings.h"

#include <optional>

class slot_card_t {
  public:
    // A card on a board whose BRGCLK has `brgclk` Hz, selected at `now`.
    slot_card_t (int slot, const card_t &settings, uint32_t brgclk, uint64_t now);

    // A character on TXD3, at its end. Returns why it cannot be understood, `none` if it can.
    line_fault_t hear (const line_character_t &character);

    // The character that the card is sending or will send next.
    const std::optional<line_character_t> &current () const
    {
        return current_;
    }
    // Takes the current character off the line at its end and begins the next.
    line_character_t finish ();

    bool holds_line_low () const
    {
        return settings_.fault == fault_t::line_low;
    }
    bool holds_up_transmitter () const
    {
        return settings_.fault == fault_t::endless_transmitter;
    }

  private:
    struct outgoing_t {
        uint8_t value;
        bool address;
        line_fault_t fault;
    };
    int slot_;
    card_t settings_;
    uint32_t brgclk_;
    bit_time_t bit_;
    uint64_t selected_at_;

    // The frame being heard.
    bool open_ = false;
    bool spoiled_ = false;
    uint8_t command_ = 0;
    std::vector<uint8_t> data_;

    // The answer being sent.
    std::vector<outgoing_t> answer_;
    size_t next_ = 0;           // in answer_
    uint64_t answer_start_ = 0; // tick
    uint64_t sent_bits_ = 0;    // since then
    std::optional<line_character_t> current_;

    line_fault_t judge (const line_character_t &character) const;
    void take (const line_character_t &character);
    bool is_sending (uint64_t tick) const;
    bool is_request () const;
    void answer (uint64_t request_end);
    void compose (const answer_t &answer, fault_t fault);
    void strike (fault_t fault, uint32_t at);
    void go_on ();
};
