// One emulated chassis: the controller board with its memory, pins and SCC3, the cards in the
// slots, and its time. Nothing happens in it but what a call does: time moves only in `advance`, so
// a run is repeatable to the bit. To be used by one thread at a time.
//
// What the program does that the model does not know, or that is not the program's to do, stops the
// board: its observers get the line, and from then on only its memory and clock work.
#pragma once

#include "chassis/board/board_memory.h"
#include "chassis/board/register_map.h"
#include "chassis/board/remarks.h"
#include "chassis/board/scan_bus.h"
#include "chassis/bus/observer.h"
#include "chassis/bus/settings.h"
#include "chassis/trap/access_trap.h"

#include <functional>
#include <optional>

class chassis_t final : public register_file_t {
  public:
    // Throws std::invalid_argument for a BRGCLK of 0 Hz, std::system_error without memory.
    explicit chassis_t (chassis_settings_t settings);
    // Unmaps the views that `map` returned.
    ~chassis_t ();
    chassis_t (const chassis_t &) = delete;
    chassis_t &operator= (const chassis_t &) = delete;

    // Pulls and plugs cards; takes effect at the next select.
    void set_cards (std::map<int, card_t> cards);
    // Called before a slot is selected: at each falling edge of the strobe, and when the code
    // changes under the low strobe. May be empty.
    std::function<void ()> before_select;
    // Adds an observer, which must outlive the chassis.
    void observe (chassis_observer_t *observer);

    // Lets time pass: what the program asked to sleep.
    void advance (uint64_t microseconds);
    // Time since power-up, in ticks of BRGCLK, and their rate.
    uint64_t now () const
    {
        return bus_.now ();
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
    // `uncached`: /dev/mem was opened with O_SYNC; the buffers stop the board without it. Accesses
    // to the internal memory map through the view arrive at `front`: usually this chassis's own
    // `read` and `write`; a test may put something before them.
    register_file_t *front = this;
    void *map (void *where, size_t length, int protection, int flags, uint64_t phys, bool uncached);
    board_memory_t &memory ()
    {
        return memory_;
    }

  private:
    chassis_settings_t settings_;
    board_memory_t memory_;
    observers_t observers_;
    remarks_t remarks_;
    scan_bus_t bus_;

    void command (uint32_t word);
    void check_owners (const met_registers_t &met, uint32_t offset, int width, uint32_t value);
    void show_line (const known_register_t &shown);
};
