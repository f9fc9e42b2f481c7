#include "chassis/board/chassis.h"

#include "chassis/board/cp_command.h"
#include "chassis/board/pins.h"
#include "scanp/scanp_driver.h"

#include <stdexcept>
#include <sys/mman.h>

static chassis_settings_t checked (chassis_settings_t settings)
{
    if (settings.board.brgclk == 0) {
        throw std::invalid_argument ("board.brgclk is 0 Hz: the board needs a clock");
    }
    return settings;
}

// As the program finds it: after reset, and the boot firmware's set-up of PC11.
static void power_up (board_memory_t &memory, const board_t &board)
{
    reset_registers (memory);
    set_cts3 (memory, board.cts3);
}

chassis_t::chassis_t (chassis_settings_t settings)
    : settings_ (checked (std::move (settings))), memory_ (settings_.board),
      remarks_ ([this] (const std::string &line, bool refused) {
          observers_.remark (now (), line, refused);
      }),
      bus_ ((power_up (memory_, settings_.board), memory_), settings_, remarks_, observers_)
{
    bus_.selection.before_select = [this] {
        if (before_select) {
            before_select ();
        }
    };
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
    observers_.add (observer);
    observer->pins (now (), bus_.selection.pins ());
}

void chassis_t::advance (uint64_t microseconds)
{
    remarks_.begins_call ("while the program waits");
    bus_.advance (microseconds);
}

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

void chassis_t::command (uint32_t word)
{
    observers_.command (word);
    remarks_.begins_command (word);
    if (settings_.board.cpcr != 0 || remarks_.refused ()) {
        return;
    }
    if (const char *problem = cp_command_problem (word)) {
        remarks_.refuse ("CPCR", word, 4, problem);
    } else if (bus_.is_enabled ()) {
        remarks_.refuse ("GSMR_L3", memory_.read32 (GSMR_L3), 4,
                         "parameters are initialised with ENR and ENT clear");
    } else {
        bus_.initialise ();
    }
}

uint32_t chassis_t::read (uint32_t offset, int width)
{
    met_registers_t met = registers_at (offset, width);
    for (auto r = met.first; r < met.last; r++) {
        show_line (*r);
    }
    uint32_t value = memory_.read (offset, width);
    access_t access = {offset, width, value, false, met.name};
    observers_.access (access);
    remarks_.begins (access);
    if (!owners_at (met, offset, width, settings_.board.dpram).is_known) {
        remarks_.note ("the word read", value, width,
                       "no register that the board knows: what is read has no meaning");
    }
    return value;
}

void chassis_t::show_line (const known_register_t &shown)
{
    if (shown.on_read == effect_t::shows_receive_line && !rxd3_reads_latch (memory_)) {
        uint32_t pdat = memory_.read32 (PDATD);
        memory_.write (PDATD, 4, bus_.receive_line () ? pdat | PD25_RXD3 : pdat & ~PD25_RXD3);
    } else if (shown.on_read == effect_t::shows_idle_line) {
        memory_.write (SCCS3, 1, bus_.receive_line_is_idle () ? SCCS_ID : 0);
    }
}

void chassis_t::check_owners (const met_registers_t &met, uint32_t offset, int width,
                              uint32_t value)
{
    bit_owners_t owners = owners_at (met, offset, width, settings_.board.dpram);
    uint32_t whole = 0xFFFFFFFF >> (32 - 8 * width);
    uint32_t changed = (memory_.read (offset, width) ^ value) & whole & ~owners.ours;
    if (!owners.is_known) {
        remarks_.refuse ("the word written", value, width, "no register that the board knows");
    } else if (uint32_t foreign = changed & ~owners.reserved) {
        remarks_.refuse (owners.name, value, width,
                         "this changes bits " + hexadecimal (foreign, width) +
                             " of another driver");
    } else if (changed != 0) {
        remarks_.refuse (owners.name, value, width,
                         "this changes the reserved bits " + hexadecimal (changed, width));
    }
}

void chassis_t::write (uint32_t offset, int width, uint32_t value)
{
    met_registers_t met = registers_at (offset, width);
    access_t access = {offset, width, value, true, met.name};
    observers_.access (access);
    remarks_.begins (access);
    check_owners (met, offset, width, value);
    bool clears = met.first < met.last && met.first->on_write == effect_t::clears_events;
    memory_.write (offset, width, clears ? memory_.read (offset, width) & ~value : value);
    if (remarks_.refused ()) {
        return;
    }
    for (auto r = met.first; r < met.last; r++) {
        if (r->on_write == effect_t::stops_the_receiver) {
            bus_.lose_receiver_state ();
        } else if (r->on_write == effect_t::stops_the_transmitter) {
            bus_.lose_transmitter_state ();
        }
    }
    bus_.follow_registers ();
}

void *chassis_t::map (void *where, size_t length, int protection, int flags, uint64_t phys,
                      bool uncached)
{
    void *view = memory_.map (where, length, protection, flags, phys);
    if (view == MAP_FAILED) {
        return view;
    }
    bool internal = board_memory_t::is_internal (phys, length);
    uint32_t offset = static_cast<uint32_t> (phys - IMMR_BASE); // of no meaning elsewhere
    add_view ({static_cast<uint8_t *> (view), length, offset, protection, front, internal});
    if (!internal && !uncached) {
        remarks_.begins_call ("mmap of /dev/mem");
        remarks_.refuse ("the buffers' address", static_cast<uint32_t> (phys), 4,
                         "mapped without O_SYNC: the processor may read old bytes from its cache");
    }
    return view;
}
