#include "chassis/board/scc_transmitter.h"

#include <algorithm>

constexpr uint64_t bits_between_looks = 64;

void scc_transmitter_t::initialise ()
{
    ring_.rewind ();
    works_ = true;
    interrupted_ = false;
}

bool scc_transmitter_t::is_ready () const
{
    return ring_.memory.read16 (ring_.status ()) & BD_TX_R;
}

// A descriptor that was not ready is looked at again every 64 bit times.
uint64_t scc_transmitter_t::next_look (uint64_t now) const
{
    if (!looked_) {
        return now;
    }
    uint64_t period = bits_between_looks * scc_.transmit_bit ();
    uint64_t passed = (now - *looked_ + period - 1) / period;
    return *looked_ + std::max<uint64_t> (passed, 1) * period;
}

void scc_transmitter_t::run (bool held, uint64_t now)
{
    if (!runs ()) {
        return;
    }
    if (interrupted_) {
        scc_.refuse_to_resume ("the transmitter");
        return;
    }
    fill (now);
    if (!current_ && !fifo_.empty () && !held) {
        current_ = scc_.frame (fifo_.front ().value, fifo_.front ().address, now);
        fifo_.pop_front ();
    }
}

void scc_transmitter_t::fill (uint64_t now)
{
    while (fifo_.size () + (current_ ? 1 : 0) < scc_.fifo_depth () &&
           (buffer_ || open_buffer (now)) && take_byte ()) {
    }
}

bool scc_transmitter_t::open_buffer (uint64_t now)
{
    if (next_look (now) != now) {
        return false;
    }
    if (!is_ready ()) {
        looked_ = now;
        return false;
    }
    looked_.reset ();
    uint16_t status = ring_.memory.read16 (ring_.status ());
    uint16_t length = ring_.memory.read16 (ring_.length ());
    constexpr uint16_t known = BD_TX_R | BD_TX_W | BD_TX_I | BD_TX_A;
    if (!ring_.is_aligned ()) {
        remarks_.refuse ("TBPTR", ring_.live (), 2, "descriptors are aligned to 8 bytes");
    } else if (status & ~known) {
        remarks_.refuse ("a transmit descriptor's status", status, 2,
                         "only R, W, I and A are modelled");
    } else if (length == 0) {
        remarks_.refuse ("a transmit descriptor's length", length, 2, "nothing to send");
    } else {
        buffer_ = {status, ring_.memory.read32 (ring_.buffer ()), length};
    }
    return buffer_.has_value ();
}

bool scc_transmitter_t::take_byte ()
{
    const uint8_t *byte = ring_.memory.physical (buffer_->pointer);
    if (byte == nullptr) {
        remarks_.refuse ("a transmit buffer's address", buffer_->pointer, 4,
                         "the board has no memory there");
        buffer_.reset ();
        return false;
    }
    fifo_.push_back ({*byte, (buffer_->status & BD_TX_A) != 0});
    buffer_->pointer++;
    if (--buffer_->left == 0) {
        close_buffer ();
    }
    return true;
}

// As soon as the last character is in the FIFO.
void scc_transmitter_t::close_buffer ()
{
    uint16_t status = buffer_->status;
    buffer_.reset ();
    ring_.memory.write16 (ring_.status (), status & ~BD_TX_R);
    if (status & BD_TX_I) {
        scc_.raise (SCCE_TX);
    }
    ring_.advance (status & BD_TX_W);
}

uint64_t scc_transmitter_t::next_event (uint64_t now) const
{
    uint64_t next = current_ ? current_->end : NEVER;
    bool looks = runs () && !buffer_ && fifo_.size () + (current_ ? 1 : 0) < scc_.fifo_depth ();
    return looks && is_ready () ? std::min (next, next_look (now)) : next;
}

line_character_t scc_transmitter_t::finish ()
{
    line_character_t sent = *current_;
    current_.reset ();
    if (sent.bit.ticks != scc_.transmit_bit ()) {
        sent.fault = line_fault_t::cut; // the clock changed underneath
    }
    return sent;
}

std::optional<line_character_t> scc_transmitter_t::stop (uint64_t now)
{
    std::optional<line_character_t> lost = current_;
    interrupted_ = interrupted_ || current_ || buffer_ || !fifo_.empty ();
    current_.reset ();
    fifo_.clear ();
    buffer_.reset ();
    looked_.reset ();
    if (lost) {
        lost->end = now;
        lost->fault = line_fault_t::cut;
    }
    return lost;
}
