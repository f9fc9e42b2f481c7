#include "chassis/board/scc_receiver.h"

void scc_receiver_t::initialise (bool enabled)
{
    ring_.rewind ();
    buffer_.reset ();
    hunting_ = true;
    works_ = !enabled;
}

void scc_receiver_t::enter_hunt ()
{
    close (0);
    hunting_ = true;
}

void scc_receiver_t::enable (bool enabled, uint64_t now)
{
    if (enabled == enabled_) {
        return;
    }
    enabled_ = enabled;
    enabled_since_ = now;
    hunting_ = true;
    buffer_.reset ();
}

static bool is_broken (line_fault_t fault)
{
    return fault != line_fault_t::none && fault != line_fault_t::noise;
}

void scc_receiver_t::receive (const line_character_t &character, const scc_setup_t &setup)
{
    using multidrop_t = scc_setup_t::multidrop_t;
    if (!works_ || !setup.receives || setup.rx_divider == 0 || character.start < enabled_since_ ||
        ring_.memory.read (SCC3_PARAM (RFCR), 1) != FCR_BIG_ENDIAN || !control_table_ends ()) {
        return;
    }
    last_end_ = character.end;
    line_character_t heard = character;
    // Without an address bit of its own the receiver takes a data character's for a low stop bit.
    bool no_stop = setup.multidrop == multidrop_t::none && !heard.address;
    if (!is_broken (heard.fault) && (no_stop || !setup.reads (heard.bit))) {
        heard.fault = line_fault_t::framing;
    }
    if (heard.fault == line_fault_t::noise) {
        ring_.memory.increment16 (SCC3_PARAM (NOSEC));
    }
    if (is_broken (heard.fault)) {
        take_bad (heard);
    } else if (heard.address && setup.multidrop != multidrop_t::none) {
        take_address (heard.value, setup.multidrop == multidrop_t::automatic);
    } else if (!hunting_ || setup.multidrop != multidrop_t::automatic) {
        take_data (heard.value);
    }
}

void scc_receiver_t::take_bad (const line_character_t &character)
{
    switch (character.fault) {
    case line_fault_t::line_break:
        ring_.memory.increment16 (SCC3_PARAM (BRKEC));
        ring_.raise (SCCE_BRKS);
        fail (BD_RX_BR);
        break;
    case line_fault_t::overrun:
        fail (BD_RX_OV);
        break;
    default:
        ring_.memory.increment16 (SCC3_PARAM (FRMEC));
        store (character.value, BD_RX_FR);
        fail (0);
    }
}

void scc_receiver_t::fail (uint16_t flag)
{
    close (flag);
    hunting_ = true;
}

// In manual mode every address is taken, and stored.
void scc_receiver_t::take_address (uint8_t value, bool automatic)
{
    close (0);
    if (!automatic) {
        hunting_ = !open (BD_RX_A);
        store (value);
        return;
    }
    bool first = ring_.memory.read16 (SCC3_PARAM (UADDR1)) == value;
    bool second = ring_.memory.read16 (SCC3_PARAM (UADDR2)) == value;
    hunting_ = true;
    if (first || second) {
        hunting_ = !open (first ? BD_RX_A | BD_RX_AM : BD_RX_A);
    }
}

void scc_receiver_t::take_data (uint8_t value)
{
    bool closes = false;
    if (is_rejected (value, closes)) {
        return;
    }
    if (buffer_ || open (0)) {
        store (value);
    }
    if (closes) {
        close (0);
    }
}

// The two bits above RCCM's mask end the table of control characters behind its last entry.
bool scc_receiver_t::control_table_ends () const
{
    constexpr uint16_t end = CHARACTER_END | CHARACTER_REJECT;
    return (ring_.memory.read16 (SCC3_PARAM (RCCM)) & end) == end;
}

// The control characters: a match goes into the buffer and closes it, or is rejected.
bool scc_receiver_t::is_rejected (uint8_t value, bool &closes)
{
    uint16_t mask = ring_.memory.read16 (SCC3_PARAM (RCCM)) & 0xFF;
    for (uint32_t i = 0; i < 8; i++) {
        uint16_t entry = ring_.memory.read16 (SCC3_PARAM (CHARACTER) + 2 * i);
        if (entry & CHARACTER_END) {
            break;
        }
        if (((entry ^ value) & mask) == 0) {
            closes = !(entry & CHARACTER_REJECT);
            return !closes;
        }
    }
    return false;
}

// Returns false when the descriptor is not free: the characters are lost.
bool scc_receiver_t::open (uint16_t flags)
{
    uint16_t status = ring_.memory.read16 (ring_.status ());
    if (!(status & BD_RX_E)) {
        ring_.raise (SCCE_BSY);
        return false;
    }
    works_ = ring_.is_aligned ();
    if (works_) {
        uint16_t kept = status & ~(BD_RX_E | BD_RX_A | BD_RX_AM); // old errors too
        buffer_ = {static_cast<uint16_t> (kept | flags), ring_.memory.read32 (ring_.buffer ()), 0};
    }
    return works_;
}

void scc_receiver_t::store (uint8_t value, uint16_t flags)
{
    if (!buffer_) {
        return;
    }
    uint16_t limit = ring_.memory.read16 (SCC3_PARAM (MRBLR));
    uint8_t *byte = ring_.memory.physical (buffer_->pointer + buffer_->length);
    if (byte == nullptr || limit == 0) {
        works_ = false; // bus error
        buffer_.reset ();
        return;
    }
    *byte = value;
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
    ring_.memory.write16 (ring_.status (), status & BD_RX_CM ? status | BD_RX_E : status);
    buffer_.reset ();
    if (status & BD_RX_I) {
        ring_.raise (SCCE_RX);
    }
    ring_.advance (status & BD_RX_W);
}

uint64_t scc_receiver_t::idle_deadline (const scc_setup_t &setup) const
{
    uint64_t characters = ring_.memory.read16 (SCC3_PARAM (MAX_IDL));
    if (characters == 0 || !buffer_ || buffer_->length == 0 || setup.rx_divider == 0) {
        return NEVER;
    }
    return last_end_ + characters * BITS_PER_CHARACTER * setup.rx_divider;
}

void scc_receiver_t::idle_elapsed ()
{
    close (0);
}
