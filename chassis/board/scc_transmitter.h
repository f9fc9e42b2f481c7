// SCC3's transmitter: walks the ring of transmit descriptors and puts their characters on TXD3.
#pragma once

#include "chassis/board/scc_ring.h"
#include "chassis/board/scc_setup.h"

#include <optional>

class scc_transmitter_t {
  public:
    explicit scc_transmitter_t (board_memory_t &memory)
        : ring_{memory, SCC3_PARAM (TBASE), SCC3_PARAM (TBPTR)}
    {}
    // CP commands. Initialising an enabled transmitter stops it until it is done properly.
    void initialise (bool enabled);
    void stop ()
    {
        stopped_ = true;
    }
    void restart ()
    {
        stopped_ = false;
    }

    // Begins the next character at `now`, unless one is on its way or nothing is to be sent.
    // `held`: CTS is not given.
    void begin (const scc_setup_t &setup, bool held, uint64_t now);
    // The character on its way, if the transmitter has a clock.
    const std::optional<line_character_t> &current () const
    {
        return current_;
    }
    // Takes the character off the line at its end, and does the book-keeping of its buffer.
    line_character_t finish (const scc_setup_t &setup);
    // Breaks off the character on its way.
    std::optional<line_character_t> abort (uint64_t now);

  private:
    // The buffer being sent, latched from its descriptor.
    struct buffer_t {
        uint16_t status;
        uint32_t pointer;
        uint32_t left; // characters
    };
    scc_ring_t ring_;
    bool works_ = false; // initialised, and no bus error since
    bool stopped_ = false;
    bool out_of_sequence_ = false; // the character on its way comes from TOSEQ
    std::optional<buffer_t> buffer_;
    std::optional<line_character_t> current_;

    bool open_buffer ();
    void close_buffer ();
    void begin_out_of_sequence (const scc_setup_t &setup, uint64_t now);
    void begin_next_of_buffer (const scc_setup_t &setup, uint64_t now);
};
