#include "chassis/launch/chassis_summary.h"

#include "chassis/bus/slots.h"
#include "chassis/file/chassis_file.h"

#include <iomanip>

static std::string answer_text (int command, const answer_t &answer)
{
    std::string text = std::to_string (command) + " (" + std::to_string (answer.bytes.size ()) +
                       (answer.echo ? " + echo" : "");
    if (answer.fault) {
        text += std::string (", ") + fault_name (*answer.fault);
    }
    return text + ")";
}

static std::string commands_text (const card_t &card)
{
    std::string text;
    for (const auto &[command, answer] : card.answer) {
        text += (text.empty () ? "" : ", ") + answer_text (command, answer);
    }
    return text.empty () ? "-" : text;
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
        out << "no cards\n";
        return;
    }
    out << "slot  delay us  fault                commands (bytes of the answer)\n";
    for (const auto &[slot, card] : settings.cards) {
        out << std::right << std::setw (4) << slot << std::setw (10) << card.delay << "  "
            << std::left << std::setw (21)
            << (card.fault == fault_t::none ? "-" : fault_name (card.fault)) << commands_text (card)
            << "\n";
    }
}
