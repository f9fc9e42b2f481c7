#include "chassis/board/chassis.h"

#include "chassis/board/pins.h"
#include "chassis/board/register_map.h"
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
    : settings_ (checked (std::move (settings))), memory_ (settings_.board),
      remarks_ ([this] (const std::string &line, bool refused) {
          for (chassis_observer_t *observer : observers_) {
              observer->remark (now_, line, refused);
          }
      }),
      scc_ (memory_, remarks_), transmitter_ (memory_, scc_, remarks_),
      receiver_ (memory_, scc_, remarks_)
{
    set_cts3 (memory_, settings_.board.cts3);
    follow_pins ();
}

chassis_t::~chassis_t ()
{
    remove_views (*front);
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

// Of the commands for SCC3 one is known.
static const char *command_problem (uint32_t word)
{
    static const char *const by_opcode[] = {nullptr,
                                            "INIT RX PARAMETERS is not known here",
                                            "INIT TX PARAMETERS is not known here",
                                            "ENTER HUNT MODE is not known here",
                                            "STOP TRANSMIT is not known here",
                                            "GRACEFUL STOP TRANSMIT is not known here",
                                            "RESTART TRANSMIT is not known here"};
    uint32_t opcode = word & CPCR_OPCODE;
    bool is_known = (word & ~CPCR_OPCODE) == (CPCR_PAGE_SBC_SCC3 | CPCR_FLG);
    return is_known && opcode < std::size (by_opcode) ? by_opcode[opcode]
                                                      : "no command that the board knows";
}

void chassis_t::command (uint32_t word)
{
    for (chassis_observer_t *observer : observers_) {
        observer->command (word);
    }
    remarks_.begins_command (word);
    if (settings_.board.cpcr != 0 || remarks_.refused ()) {
        return;
    }
    if (const char *problem = command_problem (word)) {
        remarks_.refuse ("CPCR", word, 4, problem);
    } else if (scc_.is_enabled ()) {
        remarks_.refuse ("GSMR_L3", memory_.read32 (GSMR_L3), 4,
                         "parameters are initialised with ENR and ENT clear");
    } else {
        receiver_.initialise ();
        transmitter_.initialise ();
    }
}

// Accesses

void chassis_t::begin_access (const access_t &access)
{
    for (chassis_observer_t *observer : observers_) {
        observer->access (access);
    }
    remarks_.begins (access);
    if (const char *problem = access_problem (access.offset, access.width)) {
        remarks_.refuse (access.is_write ? "the word written" : "the word read", access.value,
                         access.width, problem);
    }
}

static const char *name_at (uint32_t offset)
{
    const known_register_t *found = find_register (offset);
    return found == nullptr ? "" : found->name;
}

uint32_t chassis_t::read (uint32_t offset, int width)
{
    if (offset >= PDATD && offset < PDATD + 4) {
        show_receive_line ();
    }
    uint32_t value = memory_.read (offset, width);
    begin_access ({offset, width, value, false, name_at (offset)});
    return value;
}

void chassis_t::write (uint32_t offset, int width, uint32_t value)
{
    begin_access ({offset, width, value, true, name_at (offset)});
    store (offset, width, value);
    if (remarks_.refused ()) {
        return;
    }
    lose_state (offset, width);
    follow_pins ();
    follow_controller ();
    run_until (now_);
}

void chassis_t::store (uint32_t offset, int width, uint32_t value)
{
    if (offset == SCCE3) {
        scc_.clear_events (static_cast<uint16_t> (value));
    } else {
        memory_.write (offset, width, value);
    }
}

// RSTATE and TSTATE belong to the controller once it is initialised.
void chassis_t::lose_state (uint32_t offset, int width)
{
    auto meets = [=] (uint32_t state) {
        return offset < state + 4 && offset + static_cast<uint32_t> (width) > state;
    };
    constexpr const char *why =
        "the controller's own: it stands still until it is initialised anew";
    if (meets (SCC3_PARAM (RSTATE)) && receiver_.works ()) {
        remarks_.note ("RSTATE", memory_.read32 (SCC3_PARAM (RSTATE)), 4, why);
        receiver_.lose_state ();
    }
    if (meets (SCC3_PARAM (TSTATE)) && transmitter_.works ()) {
        remarks_.note ("TSTATE", memory_.read32 (SCC3_PARAM (TSTATE)), 4, why);
        transmitter_.lose_state ();
    }
}

bool chassis_t::receive_line () const
{
    if (!card_) {
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
        add_view ({static_cast<uint8_t *> (view), length, offset, protection, front, internal});
    }
    return view;
}

// Pins and slots

// The code selects as long as the strobe is low.
void chassis_t::follow_pins ()
{
    bool drive = select_pins_drive (memory_);
    uint32_t pdat = memory_.read32 (PDATC);
    uint8_t code = drive ? pdat & PC25_PC31 : pins_.code;
    bool low = drive && !(pdat & PC24);
    bool moves = low && (!pins_.strobe_low || code != pins_.code);
    if (moves && before_select) {
        before_select ();
    }
    int slot = low ? slot_of_code (code) : -1;
    if (moves || slot != pins_.slot) {
        select (slot);
    }
    bus_pins_t now{code, low, slot, card_ && card_->holds_line_low (), transmitter_is_held ()};
    if (now == pins_) {
        return;
    }
    pins_ = now;
    for (chassis_observer_t *observer : observers_) {
        observer->pins (now_, pins_);
    }
}

// Ends whatever the card so far selected was about. The new one hears nothing of a character that
// has begun.
void chassis_t::select (int slot)
{
    if (card_ && card_->current () && card_->current ()->start < now_) {
        line_character_t cut = *card_->current ();
        cut.end = now_;
        cut.fault = line_fault_t::cut;
        deliver_to_receiver (cut);
    }
    card_.reset ();
    auto found = settings_.cards.find (slot);
    if (found != settings_.cards.end ()) {
        card_.emplace (slot, found->second, settings_.board.brgclk,
                       transmitter_.current () ? now_ + 1 : now_);
    }
}

// The bus

void chassis_t::follow_controller ()
{
    scc_.follow_registers ();
    receiver_.follow_registers (now_);
    if (!scc_.transmits () || !transmitter_.works ()) {
        std::optional<line_character_t> lost = transmitter_.stop (now_);
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
    remarks_.begins_to_wait ();
    follow_controller ();
    run_until (now_ + microseconds / million * hz + fraction / million);
}

void chassis_t::run_until (uint64_t end)
{
    while (!remarks_.refused ()) {
        transmitter_.run (transmitter_is_held (), now_);
        uint64_t next = next_event ();
        if (next > end) {
            break;
        }
        now_ = std::max (now_, next);
        finish_what_ends ();
    }
    now_ = end;
    tell_settled ();
}

bool chassis_t::transmitter_is_held () const
{
    return card_ && card_->holds_up_transmitter () && cts3_is_connected (memory_);
}

// A character that the card has begun ends the idle time.
uint64_t chassis_t::idle_deadline () const
{
    uint64_t deadline = receiver_.idle_deadline ();
    bool ends = card_ && card_->current () && card_->current ()->start < deadline;
    return ends ? NEVER : deadline;
}

uint64_t chassis_t::next_event () const
{
    uint64_t incoming = card_ && card_->current () ? card_->current ()->end : NEVER;
    return std::min ({incoming, idle_deadline (), transmitter_.next_event (now_)});
}

void chassis_t::finish_what_ends ()
{
    if (card_ && card_->current () && card_->current ()->end <= now_) {
        deliver_to_receiver (card_->finish ());
    } else if (transmitter_.current () && transmitter_.current ()->end <= now_) {
        deliver_to_card (transmitter_.finish ());
    } else if (idle_deadline () <= now_) {
        receiver_.idle_elapsed ();
    }
}

void chassis_t::deliver_to_card (line_character_t character)
{
    if (!txd3_is_connected (memory_)) {
        return;
    }
    character.slot = pins_.slot;
    if (card_) {
        character.fault = card_->hear (character);
    }
    tell (character);
}

void chassis_t::deliver_to_receiver (const line_character_t &character)
{
    tell (character);
    receiver_.receive (character);
}
