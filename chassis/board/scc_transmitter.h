// SCC3's transmitter: takes the buffers of the ring of transmit descriptors into its FIFO, ahead of
// the line, and puts their characters on TXD3.
#pragma once

#include "chassis/board/scc3.h"
#include "chassis/board/scc_ring.h"

#include <deque>
#include <optional>

class scc_transmitter_t {
  public:
    scc_transmitter_t (board_memory_t &memory, scc3_t &scc, remarks_t &remarks)
        : scc_ (scc), remarks_ (remarks), ring_{memory, SCC3_PARAM (TBASE), SCC3_PARAM (TBPTR)}
    {}
    // INIT TX PARAMETERS; and TSTATE overwritten, which stops the transmitter until the next one.
    void initialise ();
    void lose_state ()
    {
        works_ = false;
    }
    bool works () const
    {
        return works_;
    }

    // Fills the FIFO, and begins the next character unless one is being sent. `held`: CTS is
    // negated.
    void run (bool held, uint64_t now);
    // When it next acts by itself; may be NEVER.
    uint64_t next_event (uint64_t now) const;
    // The character being sent.
    const std::optional<line_character_t> &current () const
    {
        return current_;
    }
    // Takes the character off the line at its end.
    line_character_t finish ();
    // Loses what is in the FIFO, and cuts the character being sent.
    std::optional<line_character_t> stop (uint64_t now);

  private:
    // The buffer being taken, as its descriptor was when it was opened.
    struct buffer_t {
        uint16_t status;
        uint32_t pointer;
        uint32_t left; // characters
    };
    struct waiting_t {
        uint8_t value;
        bool address;
    };
    scc3_t &scc_;
    remarks_t &remarks_;
    scc_ring_t ring_;
    bool works_ = false;       // initialised
    bool interrupted_ = false; // stopped inside a buffer since then
    std::optional<buffer_t> buffer_;
    std::deque<waiting_t> fifo_;
    std::optional<line_character_t> current_;
    std::optional<uint64_t> looked_; // when it found the live descriptor not ready

    bool runs () const
    {
        return works_ && scc_.transmits ();
    }
    bool is_ready () const;
    uint64_t next_look (uint64_t now) const;
    void fill (uint64_t now);
    bool open_buffer (uint64_t now);
    bool take_byte ();
    void close_buffer ();
};
