#include "chassis/board/scc_receiver.h"

void scc_receiver_t::initialise ()
{
    ring_.rewind ();
    works_ = true;
    interrupted_ = false;
}

void scc_receiver_t::lose_state ()
{
    works_ = false;
    buffer_.reset ();
}

void scc_receiver_t::follow_registers (uint64_t now)
{
    if (scc_.receives () == enabled_) {
        return;
    }
    enabled_ = scc_.receives ();
    enabled_since_ = now;
    hunting_ = true;
    interrupted_ = interrupted_ || buffer_;
    buffer_.reset ();
    if (enabled_ && interrupted_) {
        scc_.refuse_to_resume ("the receiver");
    }
}

static bool is_broken (line_fault_t fault)
{
    return fault != line_fault_t::none && fault != line_fault_t::noise;
}

void scc_receiver_t::receive (const line_character_t &character)
{
    if (!works_ || !enabled_ || character.start < enabled_since_) {
        return;
    }
    line_character_t heard = character;
    if (!is_broken (heard.fault) && !bit_time_t{scc_.receive_bit (), 1}.reads (heard.bit)) {
        heard.fault = line_fault_t::framing;
    }
    if (heard.fault == line_fault_t::noise) {
        ring_.memory.increment16 (SCC3_PARAM (NOSEC));
    }
    if (is_broken (heard.fault)) {
        take_bad (heard);
    } else if (heard.address) {
        take_address (heard.value);
    } else if (!hunting_) {
        take_data (heard);
    }
}

// An error closes the buffer; the receiver waits for the next address.
void scc_receiver_t::take_bad (const line_character_t &character)
{
    switch (character.fault) {
    case line_fault_t::line_break:
        ring_.memory.increment16 (SCC3_PARAM (BRKEC));
        scc_.raise (SCCE_BRKS);
        close (BD_RX_BR);
        break;
    case line_fault_t::overrun:
        store (character, BD_RX_OV);
        break;
    default:
        ring_.memory.increment16 (SCC3_PARAM (FRMEC));
        store (character, BD_RX_FR);
    }
    close (0);
    hunting_ = true;
}

void scc_receiver_t::take_address (uint8_t value)
{
    close (0);
    bool first = ring_.memory.read16 (SCC3_PARAM (UADDR1)) == value;
    bool second = ring_.memory.read16 (SCC3_PARAM (UADDR2)) == value;
    hunting_ = !(first || second) || !open (first ? BD_RX_A | BD_RX_AM : BD_RX_A);
}

void scc_receiver_t::take_data (const line_character_t &character)
{
    if (buffer_ || open (0)) {
        store (character);
    }
}

// Returns false when the descriptor is not free: the characters are lost.
bool scc_receiver_t::open (uint16_t flags)
{
    uint16_t status = ring_.memory.read16 (ring_.status ());
    constexpr uint16_t continuous = 0x0200;
    if (!(status & BD_RX_E)) {
        scc_.raise (SCCE_BSY);
        return false;
    }
    if (!ring_.is_aligned ()) {
        remarks_.refuse ("RBPTR", ring_.live (), 2, "descriptors are aligned to 8 bytes");
    } else if (status & continuous) {
        remarks_.refuse ("a receive descriptor's status", status, 2, "CM is not modelled");
    } else {
        uint16_t kept = status & ~(BD_RX_E | BD_RX_A | BD_RX_AM); // old errors too
        buffer_ = {static_cast<uint16_t> (kept | flags), ring_.memory.read32 (ring_.buffer ()), 0};
    }
    return buffer_.has_value ();
}

void scc_receiver_t::store (const line_character_t &character, uint16_t flags)
{
    if (!buffer_) {
        return;
    }
    uint16_t limit = ring_.memory.read16 (SCC3_PARAM (MRBLR));
    uint8_t *byte = ring_.memory.physical (buffer_->pointer + buffer_->length);
    if (byte == nullptr || limit == 0) {
        limit == 0
            ? remarks_.refuse ("MRBLR", 0, 2, "a buffer takes nothing")
            : remarks_.refuse ("a receive buffer's address", buffer_->pointer + buffer_->length, 4,
                               "the board has no memory there");
        buffer_.reset ();
        return;
    }
    *byte = character.value;
    last_end_ = character.end;
    buffer_->length++;
    buffer_->status |= flags;
    if (buffer_->length >= limit) {
        close (0);
    }
}

void scc_receiver_t::close (uint16_t flags)
{
    if (!buffer_) {
        return;
    }
    uint16_t status = buffer_->status | flags;
    ring_.memory.write16 (ring_.length (), buffer_->length);
    ring_.memory.write16 (ring_.status (), status);
    buffer_.reset ();
    if (status & BD_RX_I) {
        scc_.raise (SCCE_RX);
    }
    ring_.advance (status & BD_RX_W);
}

uint64_t scc_receiver_t::idle_deadline () const
{
    uint64_t characters = ring_.memory.read16 (SCC3_PARAM (MAX_IDL));
    if (characters == 0 || !buffer_ || buffer_->length == 0) {
        return NEVER;
    }
    return last_end_ + characters * BITS_PER_CHARACTER * scc_.receive_bit ();
}

void scc_receiver_t::idle_elapsed ()
{
    close (BD_RX_ID);
}
