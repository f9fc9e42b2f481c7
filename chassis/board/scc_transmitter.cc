#include "chassis/board/scc_transmitter.h"

void scc_transmitter_t::initialise (bool enabled)
{
    ring_.rewind ();
    buffer_.reset ();
    stopped_ = false;
    works_ = !enabled;
}

void scc_transmitter_t::begin (const scc_setup_t &setup, bool held, uint64_t now)
{
    bool may_send = works_ && !stopped_ && setup.transmits && setup.flow_control && !setup.frozen &&
                    setup.tx_divider != 0 && !held;
    if (current_ || !may_send || ring_.memory.read (SCC3_PARAM (TFCR), 1) != FCR_BIG_ENDIAN) {
        return;
    }
    if (ring_.memory.read16 (SCC3_PARAM (TOSEQ)) & TOSEQ_REA) {
        begin_out_of_sequence (setup, now);
    } else if (buffer_ || open_buffer ()) {
        begin_next_of_buffer (setup, now);
    }
}

void scc_transmitter_t::begin_out_of_sequence (const scc_setup_t &setup, uint64_t now)
{
    uint16_t toseq = ring_.memory.read16 (SCC3_PARAM (TOSEQ));
    current_ = setup.frame (static_cast<uint8_t> (toseq), toseq & TOSEQ_A, false, now);
    out_of_sequence_ = true;
    ring_.memory.write16 (SCC3_PARAM (TOSEQ), toseq & ~TOSEQ_REA);
}

// A descriptor that is ready but has no characters or unknown bits, or stands at an odd place,
// stops the transmitter for good.
bool scc_transmitter_t::open_buffer ()
{
    uint16_t status = ring_.memory.read16 (ring_.status ());
    uint16_t length = ring_.memory.read16 (ring_.length ());
    if (!(status & BD_TX_R)) {
        return false;
    }
    constexpr uint16_t known = BD_TX_R | BD_TX_W | BD_TX_I | BD_TX_A | BD_TX_CM | BD_TX_NS;
    works_ = ring_.is_aligned () && length != 0 && (status & ~known) == 0;
    if (works_) {
        buffer_ = {status, ring_.memory.read32 (ring_.buffer ()), length};
    }
    return works_;
}

void scc_transmitter_t::begin_next_of_buffer (const scc_setup_t &setup, uint64_t now)
{
    const uint8_t *byte = ring_.memory.physical (buffer_->pointer);
    if (byte == nullptr) {
        works_ = false; // bus error
        return;
    }
    uint16_t status = buffer_->status;
    current_ = setup.frame (*byte, status & BD_TX_A, status & BD_TX_NS, now);
    out_of_sequence_ = false;
    buffer_->pointer++;
    buffer_->left--;
}

line_character_t scc_transmitter_t::finish (const scc_setup_t &setup)
{
    line_character_t sent = *current_;
    current_.reset ();
    if (sent.bit.ticks != setup.tx_divider) {
        sent.fault = line_fault_t::cut; // the clock changed underneath
    }
    if (!out_of_sequence_ && buffer_ && buffer_->left == 0) {
        close_buffer ();
    }
    return sent;
}

void scc_transmitter_t::close_buffer ()
{
    uint16_t status = buffer_->status;
    buffer_.reset ();
    if (!(status & BD_TX_CM)) {
        ring_.memory.write16 (ring_.status (), status & ~BD_TX_R);
    }
    if (status & BD_TX_I) {
        ring_.raise (SCCE_TX);
    }
    ring_.advance (status & BD_TX_W);
}

std::optional<line_character_t> scc_transmitter_t::abort (uint64_t now)
{
    std::optional<line_character_t> lost = current_;
    current_.reset ();
    if (buffer_ && buffer_->left == 0) {
        buffer_.reset (); // its last character is lost; the descriptor stays ready
    }
    if (lost) {
        lost->end = now;
        lost->fault = line_fault_t::cut;
    }
    return lost;
}
