// SCC3's receiver: makes of the characters on RXD3 buffers in the ring of receive descriptors.
#pragma once

#include "chassis/board/scc_ring.h"
#include "chassis/board/scc_setup.h"

#include <optional>

class scc_receiver_t {
  public:
    explicit scc_receiver_t (board_memory_t &memory)
        : ring_{memory, SCC3_PARAM (RBASE), SCC3_PARAM (RBPTR)}
    {}
    // CP commands. Initialising an enabled receiver stops it until it is done properly.
    void initialise (bool enabled);
    void enter_hunt ();

    // To be told after each change of a register: an enabled receiver begins in hunt and takes no
    // character that began before.
    void enable (bool enabled, uint64_t now);
    // A character at its end.
    void receive (const line_character_t &character, const scc_setup_t &setup);
    // When idle time closes the open buffer; may be NEVER.
    uint64_t idle_deadline (const scc_setup_t &setup) const;
    void idle_elapsed ();

  private:
    // The buffer being filled; its descriptor is written when it is closed.
    struct buffer_t {
        uint16_t status; // to be
        uint32_t pointer;
        uint16_t length;
    };
    scc_ring_t ring_;
    bool works_ = false; // initialised, and no bus error since
    bool hunting_ = true;
    bool enabled_ = false;
    uint64_t enabled_since_ = 0;
    uint64_t last_end_ = 0; // of the last character stored
    std::optional<buffer_t> buffer_;

    bool open (uint16_t flags);
    void store (uint8_t value, uint16_t flags = 0);
    void close (uint16_t flags);
    void fail (uint16_t flag);
    void take_address (uint8_t value, bool automatic);
    void take_data (uint8_t value);
    void take_bad (const line_character_t &character);
    bool control_table_ends () const;
    bool is_rejected (uint8_t value, bool &closes);
};
