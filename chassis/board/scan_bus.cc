#include "chassis/board/scan_bus.h"

#include "chassis/board/pins.h"

#include <algorithm>

constexpr uint64_t million = 1000000;

scan_bus_t::scan_bus_t (board_memory_t &memory, const chassis_settings_t &settings,
                        remarks_t &remarks, chassis_observer_t &observer)
    : selection (memory, settings, remarks), memory_ (memory), settings_ (settings),
      remarks_ (remarks), observer_ (observer), scc_ (memory, remarks),
      transmitter_ (memory, scc_, remarks), receiver_ (memory, scc_, remarks)
{
    follow_pins ();
}

void scan_bus_t::initialise ()
{
    receiver_.initialise ();
    transmitter_.initialise ();
}

constexpr const char *own_state =
    "the controller's own: writing it stops this side until the next INIT RX AND TX PARAMETERS";

void scan_bus_t::lose_receiver_state ()
{
    if (receiver_.works ()) {
        remarks_.note ("RSTATE", memory_.read32 (SCC3_PARAM (RSTATE)), 4, own_state);
        receiver_.lose_state ();
    }
}

void scan_bus_t::lose_transmitter_state ()
{
    if (transmitter_.works ()) {
        remarks_.note ("TSTATE", memory_.read32 (SCC3_PARAM (TSTATE)), 4, own_state);
        transmitter_.lose_state ();
    }
}

void scan_bus_t::follow_registers ()
{
    follow_pins ();
    follow_controller ();
    run_until (now_);
}

// A newly selected card hears nothing of a character that has begun.
void scan_bus_t::follow_pins ()
{
    const bus_pins_t before = selection.pins ();
    uint64_t listens_from = transmitter_.current () ? now_ + 1 : now_;
    if (std::optional<line_character_t> cut = selection.follow_pins (now_, listens_from)) {
        deliver_to_receiver (*cut);
    }
    if (!(selection.pins () == before)) {
        observer_.pins (now_, selection.pins ());
    }
}

void scan_bus_t::follow_controller ()
{
    scc_.follow_registers ();
    receiver_.follow_registers (now_);
    if (!scc_.transmits () || !transmitter_.works ()) {
        std::optional<line_character_t> lost = transmitter_.stop (now_);
        if (lost && lost->start < now_) {
            deliver_to_card (*lost);
        }
    }
}

void scan_bus_t::advance (uint64_t microseconds)
{
    uint64_t hz = settings_.board.brgclk;
    uint64_t fraction = microseconds % million * hz + remainder_;
    remainder_ = fraction % million;
    follow_controller ();
    run_until (now_ + microseconds / million * hz + fraction / million);
}

void scan_bus_t::run_until (uint64_t end)
{
    while (!remarks_.refused ()) {
        transmitter_.run (selection.transmitter_is_held (), now_);
        uint64_t next = next_event ();
        if (next > end) {
            break;
        }
        now_ = std::max (now_, next);
        finish_what_ends ();
    }
    now_ = end;
    report_settled ();
}

const std::optional<line_character_t> &scan_bus_t::incoming () const
{
    static const std::optional<line_character_t> nothing;
    return selection.card () ? selection.card ()->current () : nothing;
}

// A character that the card has begun ends the idle time.
uint64_t scan_bus_t::idle_deadline () const
{
    uint64_t deadline = receiver_.idle_deadline ();
    bool ends = incoming () && incoming ()->start < deadline;
    return ends ? NEVER : deadline;
}

uint64_t scan_bus_t::next_event () const
{
    uint64_t arrival = incoming () ? incoming ()->end : NEVER;
    return std::min ({arrival, idle_deadline (), transmitter_.next_event (now_)});
}

void scan_bus_t::finish_what_ends ()
{
    if (incoming () && incoming ()->end <= now_) {
        deliver_to_receiver (selection.card ()->finish ());
    } else if (transmitter_.current () && transmitter_.current ()->end <= now_) {
        deliver_to_card (transmitter_.finish ());
    } else if (idle_deadline () <= now_) {
        receiver_.idle_elapsed ();
    }
}

void scan_bus_t::deliver_to_card (line_character_t character)
{
    if (!txd3_is_connected (memory_)) {
        return;
    }
    character.slot = selection.pins ().slot;
    if (selection.card ()) {
        character.fault = selection.card ()->hear (character);
    }
    observer_.character (character);
}

void scan_bus_t::deliver_to_receiver (const line_character_t &character)
{
    last_incoming_ = character.end;
    observer_.character (character);
    receiver_.receive (character);
}

bool scan_bus_t::receive_line () const
{
    bool low_bit = incoming () && incoming ()->start <= now_ && !incoming ()->level_at (now_);
    return !selection.pins ().rx_held_low && !low_bit;
}

bool scan_bus_t::receive_line_is_idle () const
{
    bool in_character = incoming () && incoming ()->start <= now_;
    uint64_t character = BITS_PER_CHARACTER * scc_.receive_bit ();
    return receive_line () && !in_character && now_ - last_incoming_ >= character;
}

// A character is reported at its end: its beginning is not settled before.
void scan_bus_t::report_settled ()
{
    uint64_t tick = now_;
    if (transmitter_.current ()) {
        tick = std::min (tick, transmitter_.current ()->start);
    }
    if (incoming ()) {
        tick = std::min (tick, incoming ()->start);
    }
    observer_.settled (tick);
}
