#include "chassis/launch/chassis_summary.h"

#include "chassis/bus/slots.h"
#include "chassis/file/chassis_file.h"

#include <algorithm>
#include <iomanip>

// The daemon starts a transfer and looks for the answer eleven times, every 10 ms.
static constexpr uint64_t last_poll = 110000; // microseconds
static constexpr uint64_t full_buffer = 4096; // bytes, with which the controller ends an answer
static constexpr uint64_t character = 11;     // bits

// Whether the answer to a request without data arrives later than the daemon waits for it.
static bool is_too_late (int slot, const card_t &card, const answer_t &answer, uint32_t brgclk)
{
    fault_t fault = answer.fault.value_or (card.fault);
    uint64_t slot_rate = brgclk / divider_of_slot (slot);
    uint64_t rate = card.bit_rate ? card.bit_rate : slot_rate;
    uint64_t delay = fault == fault_t::late ? 200000 : answer.delay.value_or (card.delay);
    uint64_t sent = std::min<uint64_t> (answer.bytes.size () + 2, full_buffer + 1);
    uint64_t request = 4 * character * 1000000 / slot_rate;
    return request + delay + sent * character * 1000000 / rate + (sent - 1) * card.gap > last_poll;
}

static std::string answer_text (int command, const answer_t &answer, bool too_late)
{
    std::string text = std::to_string (command) + " (" + std::to_string (answer.bytes.size ()) +
                       (answer.echo ? " + echo" : "");
    if (answer.fault) {
        text += std::string (", ") + fault_name (*answer.fault);
    }
    return text + (too_late ? ", too late)" : ")");
}

static void print_board (std::ostream &out, const board_t &board)
{
    out << "board: BRGCLK " << board.brgclk << " Hz, slots at " << board.brgclk / USUAL_DIVIDER
        << " bit/s, slots 23 and 24 at " << board.brgclk / SLOW_DIVIDER << " bit/s"
        << (board.device ? "" : ", no device") << "\n";
}

void print_summary (std::ostream &out, const chassis_settings_t &settings)
{
    print_board (out, settings.board);
    if (settings.cards.empty ()) {
        out << "no cards: every slot is empty; add [[card]] sections, as q5_chassis --example "
               "has\n";
        return;
    }
    bool some_too_late = false, some_unsent = false, some_unheld = false;
    out << "slot  delay us  fault                commands (bytes of the answer)\n";
    for (const auto &[slot, card] : settings.cards) {
        std::string commands;
        for (const auto &[command, answer] : card.answer) {
            bool too_late = is_too_late (slot, card, answer, settings.board.brgclk);
            some_too_late |= too_late;
            some_unsent |= command == 1 || command == 2;
            commands += (commands.empty () ? "" : ", ") + answer_text (command, answer, too_late);
        }
        some_unheld |= card.fault == fault_t::endless_transmitter && !settings.board.cts3;
        out << std::right << std::setw (4) << slot << std::setw (10) << card.delay << "  "
            << std::left << std::setw (21)
            << (card.fault == fault_t::none ? "-" : fault_name (card.fault))
            << (commands.empty () ? "-" : commands) << "\n";
    }
    if (some_too_late) {
        out << "too late: the daemon waits 110 ms for an answer, and gets none (-3)\n";
    }
    if (some_unheld) {
        out << "endless transmitter: holds up nothing with cts3 = false, the card answers as any "
               "other\n";
    }
    if (some_unsent) {
        out << "commands 1 and 2: the daemon claims and releases the bus with them, and never "
               "sends them to a card\n";
    }
}
