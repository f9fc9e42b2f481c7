// One emulated chassis: the controller board with its memory, pins and SCC3, the cards behind the
// slots, and its time. Nothing happens in it but what a call does: time moves only in `advance`, so
// a run is repeatable to the bit. To be used by one thread at a time.
//
// What the program does that the model does not know stops the board: its observers get the line,
// and from then on it is memory and time alone.
#pragma once

#include "chassis/board/board_memory.h"
#include "chassis/board/remarks.h"
#include "chassis/board/scc3.h"
#include "chassis/board/scc_receiver.h"
#include "chassis/board/scc_transmitter.h"
#include "chassis/bus/observer.h"
#include "chassis/bus/settings.h"
#include "chassis/bus/slot_card.h"
#include "chassis/trap/access_trap.h"

#include <functional>
#include <optional>

class chassis_t final : public register_file_t {
  public:
    // Throws std::invalid_argument for a BRGCLK of 0 Hz, std::system_error without memory.
    explicit chassis_t (chassis_settings_t settings);
    // Takes away the views that `map` gave.
    ~chassis_t ();
    chassis_t (const chassis_t &) = delete;
    chassis_t &operator= (const chassis_t &) = delete;

    // Pulls and plugs cards; takes effect at the next select.
    void set_cards (std::map<int, card_t> cards);
    // Called before a slot is selected: at each falling edge of the strobe, and when the code
    // changes under the low strobe. May be empty.
    std::function<void ()> before_select;
    // Adds a watcher, which must outlive the chassis.
    void observe (chassis_observer_t *observer);

    // Lets time pass: what the program asked to sleep.
    void advance (uint64_t microseconds);
    // Time since power-up, in ticks of BRGCLK, and their rate.
    uint64_t now () const
    {
        return now_;
    }
    uint32_t brgclk () const
    {
        return settings_.board.brgclk;
    }

    // The driver of /dev/scanp: whether it is there, and the answer to one of its requests (see
    // scanp_driver.h); nothing for any other request.
    bool has_device () const
    {
        return settings_.board.device;
    }
    std::optional<int32_t> driver_request (unsigned long request, uint32_t argument);

    // One access of the program to the internal memory map, in big-endian words of 1, 2, 4 bytes.
    uint32_t read (uint32_t offset, int width) override;
    void write (uint32_t offset, int width, uint32_t value) override;

    // A view of physical memory for the program, as mmap of /dev/mem gives it; see board_memory_t.
    // Accesses to the internal memory map through it arrive at `front`: as a rule this chassis's
    // own `read` and `write`; a test may put something before them.
    register_file_t *front = this;
    void *map (void *where, size_t length, int protection, int flags, uint64_t phys);
    board_memory_t &memory ()
    {
        return memory_;
    }

  private:
    chassis_settings_t settings_;
    board_memory_t memory_;
    remarks_t remarks_;
    scc3_t scc_;
    scc_transmitter_t transmitter_;
    scc_receiver_t receiver_;
    std::vector<chassis_observer_t *> observers_;
    uint64_t now_ = 0;       // ticks
    uint64_t remainder_ = 0; // of a tick, in millionths
    bus_pins_t pins_{0, false, -1, false, false};
    std::optional<slot_card_t> card_; // the selected one

    void command (uint32_t word);
    void begin_access (const access_t &access);
    void store (uint32_t offset, int width, uint32_t value);
    void lose_state (uint32_t offset, int width);
    void show_receive_line ();
    bool receive_line () const;

    void follow_pins ();
    void select (int slot);
    void follow_controller ();
    void run_until (uint64_t end);
    bool transmitter_is_held () const;
    uint64_t idle_deadline () const;
    uint64_t next_event () const;
    void finish_what_ends ();
    void deliver_to_card (line_character_t character);
    void deliver_to_receiver (const line_character_t &character);
    void tell (const line_character_t &character);
    void tell_settled ();
};
