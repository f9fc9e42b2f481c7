// SCC3's receiver: stores the characters on RXD3 in the buffers of the ring of receive descriptors.
#pragma once

#include "chassis/board/scc3.h"
#include "chassis/board/scc_ring.h"

#include <optional>

class scc_receiver_t {
  public:
    scc_receiver_t (board_memory_t &memory, scc3_t &scc, remarks_t &remarks)
        : scc_ (scc), remarks_ (remarks), ring_{memory, SCC3_PARAM (RBASE), SCC3_PARAM (RBPTR)}
    {}
    // INIT RX PARAMETERS; and RSTATE overwritten, which stops the receiver until the next one.
    void initialise ();
    void lose_state ();
    bool works () const
    {
        return works_;
    }

    // To be called after each change of a register: an enabled receiver begins in hunt and takes no
    // character that began before.
    void follow_registers (uint64_t now);
    // A character at its end.
    void receive (const line_character_t &character);
    // When idle time closes the open buffer; may be NEVER.
    uint64_t idle_deadline () const;
    void idle_elapsed ();

  private:
    // The buffer being filled; its descriptor is written when it is closed.
    struct buffer_t {
        uint16_t status; // to be
        uint32_t pointer;
        uint16_t length;
    };
    scc3_t &scc_;
    remarks_t &remarks_;
    scc_ring_t ring_;
    bool works_ = false;       // initialised
    bool interrupted_ = false; // stopped inside a buffer since then
    bool hunting_ = true;
    bool enabled_ = false;
    uint64_t enabled_since_ = 0;
    uint64_t last_end_ = 0; // of the last character stored
    std::optional<buffer_t> buffer_;

    bool open (uint16_t flags);
    void store (const line_character_t &character, uint16_t flags = 0);
    void close (uint16_t flags);
    void take_address (uint8_t value);
    void take_data (const line_character_t &character);
    void take_bad (const line_character_t &character);
};
