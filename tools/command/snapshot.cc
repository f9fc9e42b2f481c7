#include "tools/command/snapshot.h"

#include "client/fetch.h"
#include "client/result.h"
#include "tools/command/command.h"
#include "tools/parse/files.h"
#include "tools/parse/parse.h"
#include "tools/show/answer_text.h"
#include "tools/show/progress.h"

#include <CLI/CLI.hpp>
#include <map>
#include <memory>

using requests_t = std::vector<q5_scan_request_t>;

requests_t take_snapshot (const q5_scan_settings_t &settings, const std::vector<int32_t> &slots,
                          const std::vector<int32_t> &commands)
{
    progress_t progress (slots.size () * commands.size ());
    requests_t replies;
    q5_scan_outcome_t outcome =
        q5_scan_fetch (settings, {slots, commands}, replies,
                       [&progress] (const q5_scan_request_t &) { progress.advance (); });
    if (!outcome.answered ()) {
        throw failure_of (outcome);
    }
    return replies;
}

static std::string answer_lines (const q5_scan_request_t &request)
{
    std::string lines =
        "\n[[card.answer]]\ncommand = " + std::to_string (request.command & 0xFF) + "\n";
    if (request.result >= 0) {
        return lines + content_of (request.rx, request.command == Q5_SCAN_GET_TYPED);
    }
    return lines + (request.result == Q5_SCAN_BAD_ADDRESS ? "hex = \"\"\naddress = 0xA5\n"
                                                          : "hex = \"00\"\nfault = \"framing\"\n");
}

// A fault of the card as a whole, which a chassis file cannot give to one answer alone.
static std::string card_fault (const requests_t &answers)
{
    const std::map<int32_t, const char *> faults = {{Q5_SCAN_NO_SLOT, "line low"},
                                                    {Q5_SCAN_NOT_SENT, "endless transmitter"}};
    for (const q5_scan_request_t &t : answers) {
        auto found = faults.find (t.result);
        if (found != faults.end ()) {
            return found->second;
        }
    }
    return "";
}

static std::string card_lines (int32_t slot, const requests_t &answers)
{
    std::string lines = "\n[[card]]\nslot = " + std::to_string (slot) + "\n";
    std::string fault = card_fault (answers);
    if (!fault.empty ()) {
        lines += "fault = \"" + fault + "\"\n";
    }
    for (const q5_scan_request_t &t : answers) {
        bool is_answer =
            t.result >= 0 || t.result == Q5_SCAN_LINE_ERROR || t.result == Q5_SCAN_BAD_ADDRESS;
        lines += is_answer ? answer_lines (t) : "";
    }
    return lines;
}

std::string chassis_file_of (const requests_t &taken)
{
    std::map<int32_t, requests_t> cards;
    for (const q5_scan_request_t &t : taken) {
        if (!q5_scan_is_empty (t)) {
            cards[t.slot].push_back (t);
        }
    }
    std::string text;
    for (const auto &[slot, answers] : cards) {
        text += card_lines (slot, answers);
    }
    return text;
}

struct snapshot_words_t {
    std::vector<std::string> slots;
    std::string commands = "51,73,83", file;
};

static report_t snapshot (const globals_t &globals, const snapshot_words_t &words)
{
    std::vector<int32_t> slots = parse_slots (words.slots);
    std::vector<int32_t> commands = parse_commands (words.commands);
    check_writable (words.file);
    interruptible_t session (globals);
    std::string cards = chassis_file_of (take_snapshot (session.settings, slots, commands));
    std::string text = "# What the cards of " + printable (globals.settings.host) + " port " +
                       std::to_string (globals.settings.port) + " answered, " + time_text () +
                       ".\n# To play it: q5_chassis --file FILE -- q5_scand\n" + cards;
    report_t report;
    if (words.file == "-") {
        report.text = text;
        report.json["chassis"] = text;
        return report;
    }
    write_file (words.file, text);
    report.json["file"] = words.file;
    return report;
}

void add_snapshot (command_line_t &line)
{
    auto words = std::make_shared<snapshot_words_t> ();
    CLI::App &command = add_command (
        line, "snapshot", "what the chassis answers now, as a chassis file for q5_chassis",
        [&globals = line.globals, words] () { return snapshot (globals, *words); });
    command.add_option ("SLOT", words->slots, "0 to 31, or 3-7,23; none: all slots");
    command
        .add_option ("-o,--output", words->file,
                     "where to write it, once it is complete; - is standard output")
        ->type_name ("FILE")
        ->required ();
    command
        .add_option ("--commands", words->commands,
                     "what to ask each card (default 51,73,83: message, identity, raw block)")
        ->type_name ("LIST");
}
