// SCC3 as its registers set it up. What each direction does is in scc_transmitter.h and
// scc_receiver.h.
#pragma once

#include "chassis/board/board_memory.h"
#include "chassis/board/remarks.h"
#include "chassis/bus/line.h"
#include "scanp/mpc8260.h"

class scc3_t {
  public:
    scc3_t (board_memory_t &memory, remarks_t &remarks) : memory_ (memory), remarks_ (remarks) {}

    // To be called when registers may have changed. Refuses what an enabled controller would do
    // that is not modelled, and notes what is left out.
    void follow_registers ();

    // Enabled, and with a clock and a pin.
    bool transmits () const
    {
        return transmits_;
    }
    bool receives () const
    {
        return receives_;
    }
    // By ENR or ENT alone; by default either.
    bool is_enabled (uint32_t bits = GSMR_L_ENR | GSMR_L_ENT) const;
    // BRGCLK ticks a bit; 0: no clock.
    uint64_t transmit_bit () const
    {
        return transmit_bit_;
    }
    uint64_t receive_bit () const
    {
        return receive_bit_;
    }
    // Characters that the transmit FIFO holds, the one on the line included.
    size_t fifo_depth () const
    {
        return fifo_depth_;
    }

    // A character as the transmitter puts it on the line at `start`.
    line_character_t frame (uint8_t value, bool address, uint64_t start) const;

    // Refuses what `part` would do: resume after a stop inside a buffer.
    void refuse_to_resume (const std::string &part);

    // Sets the bit of an event in SCCE3.
    void raise (uint16_t event);

  private:
    board_memory_t &memory_;
    remarks_t &remarks_;
    bool transmits_ = false;
    bool receives_ = false;
    uint64_t transmit_bit_ = 0;
    uint64_t receive_bit_ = 0;
    size_t fifo_depth_ = 0;

    void check_set_up ();
};
