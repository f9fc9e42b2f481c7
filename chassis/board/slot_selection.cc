#include "chassis/board/slot_selection.h"

#include "chassis/board/pins.h"
#include "chassis/bus/slots.h"
#include "scanp/mpc8260.h"

std::optional<line_character_t> slot_selection_t::follow_pins (uint64_t now, uint64_t listens_from)
{
    bool drive = select_pins_drive (memory_);
    uint32_t pdat = memory_.read32 (PDATC);
    uint8_t code = drive ? pdat & PC25_PC31 : pins_.code;
    bool low = drive && !(pdat & PC24);
    bool moves = low && (!pins_.strobe_low || code != pins_.code);
    if (moves && before_select) {
        before_select ();
    }
    int slot = low ? slot_of_code (code) : -1;
    std::optional<line_character_t> cut;
    if (moves || slot != pins_.slot) {
        cut = unplug (now);
        plug (slot, listens_from);
    }
    pins_ = {code, low, slot, card_ && card_->holds_line_low (), transmitter_is_held ()};
    return cut;
}

std::optional<line_character_t> slot_selection_t::unplug (uint64_t now)
{
    std::optional<line_character_t> cut = card_ ? card_->current () : std::nullopt;
    card_.reset ();
    if (!cut || cut->start >= now) {
        return std::nullopt;
    }
    cut->end = now;
    cut->fault = line_fault_t::cut;
    return cut;
}

void slot_selection_t::plug (int slot, uint64_t listens_from)
{
    auto found = settings_.cards.find (slot);
    if (found == settings_.cards.end ()) {
        return;
    }
    card_.emplace (slot, found->second, settings_.board.brgclk, listens_from);
    if (card_->holds_up_transmitter () && !cts3_is_connected (memory_)) {
        remarks_.note ("PPARC", memory_.read32 (PPARC), 4,
                       "a card holds CTS3 negated, but PC11 is not CTS3: it holds up nothing");
    }
}

bool slot_selection_t::transmitter_is_held () const
{
    return card_ && card_->holds_up_transmitter () && cts3_is_connected (memory_);
}
