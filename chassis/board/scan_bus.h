// The scan bus in time: SCC3 on one end, the card that the pins select on the other, and the events
// that carry characters between them. Time moves only in `advance`.
#pragma once

#include "chassis/board/scc_receiver.h"
#include "chassis/board/scc_transmitter.h"
#include "chassis/board/slot_selection.h"
#include "chassis/bus/observer.h"

class scan_bus_t {
  public:
    // All of these must outlive it.
    scan_bus_t (board_memory_t &memory, const chassis_settings_t &settings, remarks_t &remarks,
                chassis_observer_t &observer);

    slot_selection_t selection;

    // INIT RX AND TX PARAMETERS.
    void initialise ();
    bool is_enabled () const
    {
        return scc_.is_enabled ();
    }
    // RSTATE, TSTATE was overwritten.
    void lose_receiver_state ();
    void lose_transmitter_state ();
    // To be called after each write to a register: pins, clocks and controller may have changed.
    void follow_registers ();

    void advance (uint64_t microseconds);
    uint64_t now () const
    {
        return now_;
    }
    // The level of RXD3; whether it has been high for the time of a character.
    bool receive_line () const;
    bool receive_line_is_idle () const;

  private:
    board_memory_t &memory_;
    const chassis_settings_t &settings_;
    remarks_t &remarks_;
    chassis_observer_t &observer_;
    scc3_t scc_;
    scc_transmitter_t transmitter_;
    scc_receiver_t receiver_;
    uint64_t now_ = 0;           // ticks of BRGCLK
    uint64_t remainder_ = 0;     // of a tick, in millionths
    uint64_t last_incoming_ = 0; // end of the last character on RXD3

    const std::optional<line_character_t> &incoming () const;
    void follow_pins ();
    void follow_controller ();
    void run_until (uint64_t end);
    uint64_t idle_deadline () const;
    uint64_t next_event () const;
    void finish_what_ends ();
    void deliver_to_card (line_character_t character);
    void deliver_to_receiver (const line_character_t &character);
    void report_settled ();
};
