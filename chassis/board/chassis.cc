#include "chassis/board/chassis.h"

#include "chassis/board/pins.h"
#include "chassis/bus/slots.h"
#include "scanp/scanp_driver.h"

#include <algorithm>
#include <errno.h>
#include <stdexcept>
#include <sys/mman.h>

constexpr uint64_t million = 1000000;

static chassis_settings_t checked (chassis_settings_t settings)
{
    if (settings.board.brgclk == 0) {
        throw std::invalid_argument ("board.brgclk is 0 Hz: the board needs a clock");
    }
    return settings;
}

chassis_t::chassis_t (chassis_settings_t settings)
    : settings_ (checked (std::move (settings))), memory_ (settings_.board), transmitter_ (memory_),
      receiver_ (memory_)
{
    follow_pins ();
}

chassis_t::~chassis_t ()
{
    remove_views (*this);
}

void chassis_t::set_cards (std::map<int, card_t> cards)
{
    settings_.cards = std::move (cards);
}

void chassis_t::observe (chassis_observer_t *observer)
{
    observers_.push_back (observer);
    observer->pins (now_, pins_);
}

void chassis_t::tell (const line_character_t &character)
{
    for (chassis_observer_t *observer : observers_) {
        observer->character (character);
    }
}

// A character is told of at its end: what began it is not settled before.
void chassis_t::tell_settled ()
{
    uint64_t tick = now_;
    if (transmitter_.current ()) {
        tick = std::min (tick, transmitter_.current ()->start);
    }
    if (card_ && card_->current ()) {
        tick = std::min (tick, card_->current ()->start);
    }
    for (chassis_observer_t *observer : observers_) {
        observer->settled (tick);
    }
}

// The driver

std::optional<int32_t> chassis_t::driver_request (unsigned long request, uint32_t argument)
{
    const board_t &board = settings_.board;
    switch (request) {
    case SCANP_GET_PHYS_MEM:
        return static_cast<int32_t> (board.buffer);
    case SCANP_GET_DPMEM_OFFSET:
        return static_cast<int32_t> (board.dpram);
    case SCANP_DO_CPCR_COMMAND:
        command (argument);
        return static_cast<int32_t> (board.cpcr);
    default:
        return std::nullopt;
    }
}

// Only a whole, well-formed command for SCC3 reaches it.
void chassis_t::command (uint32_t word)
{
    for (chassis_observer_t *observer : observers_) {
        observer->command (word);
    }
    if (settings_.board.cpcr == 0 && (word & ~CPCR_OPCODE) == (CPCR_PAGE_SBC_SCC3 | CPCR_FLG)) {
        carry_out (word & CPCR_OPCODE);
        run_until (now_);
    }
}

void chassis_t::carry_out (uint32_t opcode)
{
    uint32_t gsmr = memory_.read32 (GSMR_L3);
    if (opcode == CPCR_INIT_RX_AND_TX || opcode == CPCR_INIT_RX) {
        receiver_.initialise (gsmr & GSMR_L_ENR);
    }
    if (opcode == CPCR_INIT_RX_AND_TX || opcode == CPCR_INIT_TX) {
        transmitter_.initialise (gsmr & GSMR_L_ENT);
    }
    if (opcode == CPCR_ENTER_HUNT_MODE) {
        receiver_.enter_hunt ();
    }
    if (opcode == CPCR_STOP_TX) {
        transmitter_.stop ();
    }
    if (opcode == CPCR_RESTART_TX) {
        transmitter_.restart ();
    }
}

// Accesses

uint32_t chassis_t::read (uint32_t offset, int width)
{
    show_receive_line ();
    uint32_t value = memory_.read (offset, width);
    for (chassis_observer_t *observer : observers_) {
        observer->access ({offset, width, value, false});
    }
    return value;
}

void chassis_t::write (uint32_t offset, int width, uint32_t value)
{
    for (chassis_observer_t *observer : observers_) {
        observer->access ({offset, width, value, true});
    }
    store (offset, width, value);
    follow_pins ();
    follow_controller ();
    run_until (now_);
}

// A one written to SCCE3 clears the event.
void chassis_t::store (uint32_t offset, int width, uint32_t value)
{
    uint16_t events = memory_.read16 (SCCE3);
    memory_.write (offset, width, value);
    if (offset + static_cast<uint32_t> (width) <= SCCE3 || offset >= SCCE3 + 2) {
        return;
    }
    uint16_t written = memory_.read16 (SCCE3);
    if (width == 1) {
        written &= offset == SCCE3 ? 0xFF00 : 0x00FF;
    }
    memory_.write16 (SCCE3, events & ~written);
}

bool chassis_t::receive_line () const
{
    if (!card_ || !line_drivers_are_on (memory_)) {
        return true;
    }
    const std::optional<line_character_t> &current = card_->current ();
    bool low_bit = current && current->start <= now_ && !current->level_at (now_);
    return !card_->holds_line_low () && !low_bit;
}

void chassis_t::show_receive_line ()
{
    if (rxd3_reads_latch (memory_)) {
        return;
    }
    uint32_t pdat = memory_.read32 (PDATD);
    memory_.write (PDATD, 4, receive_line () ? pdat | PD25_RXD3 : pdat & ~PD25_RXD3);
}

void *chassis_t::map (void *where, size_t length, int protection, int flags, uint64_t phys)
{
    void *view = memory_.map (where, length, protection, flags, phys);
    if (view != MAP_FAILED) {
        bool internal = board_memory_t::is_internal (phys, length);
        uint32_t offset = static_cast<uint32_t> (phys - IMMR_BASE); // of no meaning elsewhere
        add_view ({static_cast<uint8_t *> (view), length, offset, protection, this, internal});
    }
    return view;
}

// Pins and slots

// The falling strobe takes the code; a code that changes under the low strobe selects nothing.
void chassis_t::follow_pins ()
{
    bool drive = select_pins_drive (memory_);
    uint32_t pdat = memory_.read32 (PDATC);
    uint8_t code = drive ? pdat & PC25_PC31 : pins_.code;
    bool low = drive && !(pdat & PC24);
    bool falls = low && !pins_.strobe_low;
    if (falls && before_select) {
        before_select ();
    }
    int held = low && code == pins_.code ? pins_.slot : -1;
    int slot = falls ? slot_of_code (code) : held;
    if (falls || slot != pins_.slot) {
        select (slot);
    }
    bus_pins_t pins{code, low, slot, card_ && card_->holds_line_low ()};
    if (pins == pins_) {
        return;
    }
    pins_ = pins;
    for (chassis_observer_t *observer : observers_) {
        observer->pins (now_, pins_);
    }
}

// Ends whatever the card so far selected was about.
void chassis_t::select (int slot)
{
    if (card_ && card_->current () && card_->current ()->start < now_) {
        line_character_t cut = *card_->current ();
        cut.end = now_;
        cut.fault = line_fault_t::cut;
        deliver_to_receiver (cut, decode_scc_setup (memory_));
    }
    card_.reset ();
    auto found = settings_.cards.find (slot);
    if (found != settings_.cards.end ()) {
        card_.emplace (slot, found->second, settings_.board.brgclk, now_);
    }
}

// The bus

void chassis_t::follow_controller ()
{
    scc_setup_t setup = decode_scc_setup (memory_);
    receiver_.enable (setup.receives, now_);
    if (!setup.transmits) {
        std::optional<line_character_t> lost = transmitter_.abort (now_);
        if (lost && lost->start < now_) {
            deliver_to_card (*lost);
        }
    }
}

void chassis_t::advance (uint64_t microseconds)
{
    uint64_t hz = settings_.board.brgclk;
    uint64_t fraction = microseconds % million * hz + remainder_;
    remainder_ = fraction % million;
    run_until (now_ + microseconds / million * hz + fraction / million);
}

void chassis_t::run_until (uint64_t end)
{
    for (;;) {
        scc_setup_t setup = decode_scc_setup (memory_);
        transmitter_.begin (setup, card_ && card_->holds_up_transmitter (), now_);
        uint64_t next = next_event (setup);
        if (next > end) {
            break;
        }
        now_ = std::max (now_, next);
        finish_what_ends (setup);
    }
    now_ = end;
    tell_settled ();
}

// A character that the card has begun ends the idle time.
uint64_t chassis_t::next_event (const scc_setup_t &setup) const
{
    uint64_t next = receiver_.idle_deadline (setup);
    if (card_ && card_->current ()) {
        const line_character_t &incoming = *card_->current ();
        next = incoming.start < next ? incoming.end : next;
    }
    if (transmitter_.current () && setup.tx_divider != 0) {
        next = std::min (next, transmitter_.current ()->end);
    }
    return next;
}

void chassis_t::finish_what_ends (const scc_setup_t &setup)
{
    if (card_ && card_->current () && card_->current ()->end <= now_) {
        deliver_to_receiver (card_->finish (), setup);
    } else if (transmitter_.current () && transmitter_.current ()->end <= now_ &&
               setup.tx_divider != 0) {
        deliver_to_card (transmitter_.finish (setup));
    } else if (receiver_.idle_deadline (setup) <= now_) {
        receiver_.idle_elapsed ();
    }
}

void chassis_t::deliver_to_card (line_character_t character)
{
    if (!txd3_is_connected (memory_) || !line_drivers_are_on (memory_)) {
        return;
    }
    character.slot = pins_.slot;
    if (card_) {
        character.fault = card_->hear (character);
    }
    tell (character);
}

void chassis_t::deliver_to_receiver (const line_character_t &character, const scc_setup_t &setup)
{
    if (!line_drivers_are_on (memory_)) {
        return;
    }
    tell (character);
    if (rxd3_is_connected (memory_)) {
        receiver_.receive (character, setup);
    }
}
