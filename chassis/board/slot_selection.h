// The slot that the pins of port C select, and its card.
#pragma once

#include "chassis/board/board_memory.h"
#include "chassis/board/remarks.h"
#include "chassis/bus/settings.h"
#include "chassis/bus/slot_card.h"

#include <functional>
#include <optional>

class slot_selection_t {
  public:
    // The settings must outlive it; their cards may change, which takes effect at the next select.
    slot_selection_t (const board_memory_t &memory, const chassis_settings_t &settings,
                      remarks_t &remarks)
        : memory_ (memory), settings_ (settings), remarks_ (remarks)
    {}
    // Called before a slot is selected: at each falling edge of the strobe, and when the code
    // changes under the low strobe. May be empty.
    std::function<void ()> before_select;

    // To be called at `now` when the pins may have changed. A newly selected card hears nothing of
    // characters that began before `listens_from`. Returns the character that the card selected
    // before was sending, now cut off.
    std::optional<line_character_t> follow_pins (uint64_t now, uint64_t listens_from);

    const bus_pins_t &pins () const
    {
        return pins_;
    }
    std::optional<slot_card_t> &card ()
    {
        return card_;
    }
    const std::optional<slot_card_t> &card () const
    {
        return card_;
    }
    // By the card, through CTS3.
    bool transmitter_is_held () const;

  private:
    const board_memory_t &memory_;
    const chassis_settings_t &settings_;
    remarks_t &remarks_;
    bus_pins_t pins_{0, false, -1, false, false};
    std::optional<slot_card_t> card_;

    std::optional<line_character_t> unplug (uint64_t now);
    void plug (int slot, uint64_t listens_from);
};
