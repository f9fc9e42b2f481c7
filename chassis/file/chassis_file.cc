#include "chassis/file/chassis_file.h"

#include "chassis/bus/slots.h"
#include "chassis/file/file_limits.h"
#include "chassis/file/toml_section.h"
#include "chassis/file/typed_message.h"
#include "scanp/mpc8260.h"
#include "scanp/scanp_driver.h"

#include <algorithm>
#include <errno.h>
#include <memory>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

static constexpr int64_t minute = 60000000; // microseconds
static constexpr int64_t max_answer = MAX_CARD_DATA;
static constexpr size_t max_answers = 4 << 20; // bytes of all answers of a chassis
static constexpr int64_t uint32_top = UINT32_MAX;
static const char *const slots = "a slot from 0 to 30 other than 21, 22, 25 and 26";

static const keys_t top_keys = {"board", "card"};
static const keys_t board_keys = {"brgclk", "device", "cts3", "buffer", "dpram", "cpcr", "memory"};
static const keys_t card_keys = {"slot",     "delay", "gap",      "address",
                                 "bit_rate", "fault", "fault_at", "answer"};
static const keys_t answer_keys = {"command", "hex",   "text",    "types", "fields",  "echo",
                                   "repeat",  "delay", "address", "fault", "fault_at"};

static const choices_t<board_t::fill_t> fills = {{"zeros", board_t::fill_t::zeros},
                                                 {"ones", board_t::fill_t::ones},
                                                 {"noise", board_t::fill_t::noise},
                                                 {"noise 2", board_t::fill_t::noise2},
                                                 {"noise 3", board_t::fill_t::noise3}};

static const choices_t<fault_t> faults = {{"none", fault_t::none},
                                          {"silent", fault_t::silent},
                                          {"late", fault_t::late},
                                          {"break", fault_t::line_break},
                                          {"framing", fault_t::framing},
                                          {"overrun", fault_t::overrun},
                                          {"noise", fault_t::noise},
                                          {"wrong address", fault_t::wrong_address},
                                          {"missing address", fault_t::missing_address},
                                          {"missing end", fault_t::missing_end},
                                          {"line low", fault_t::line_low},
                                          {"endless transmitter", fault_t::endless_transmitter}};

const char *fault_name (fault_t fault)
{
    auto choice = std::find_if (faults.begin (), faults.end (),
                                [&] (const auto &c) { return c.second == fault; });
    return choice->first;
}

static void read_board (const section_t &section, board_t &board)
{
    section.number ("brgclk", 100000, 1000000000, board.brgclk);
    section.boolean ("device", board.device);
    section.boolean ("cts3", board.cts3);
    section.number ("buffer", 0, uint32_top, board.buffer);
    section.number ("dpram", 0, uint32_top, board.dpram);
    section.number ("cpcr", INT32_MIN, INT32_MAX, board.cpcr);
    section.choice ("memory", fills, board.fill);
    constexpr int64_t immr_end = int64_t{IMMR_BASE} + IMMR_SIZE;
    if (int64_t{board.buffer} + SCAN_BUFFERS_SIZE > IMMR_BASE && board.buffer < immr_end) {
        section.fail ("buffer", "found two buffers of 4096 bytes in the internal memory map, "
                                "expected them outside 0xF0000000 to 0xF003FFFF");
    }
}

static std::vector<uint8_t> typed_message (const section_t &section)
{
    const std::string types = section.text ("types");
    const toml::array *fields = section.array ("fields", "an array with a value for each letter");
    size_t count = fields ? fields->size () : 0;
    std::vector<uint8_t> message = message_head (types);
    if (count != types.size ()) {
        section.fail (fields ? "fields" : "types",
                      "found " + std::to_string (count) + " fields for " +
                          std::to_string (types.size ()) + " letters, expected one for each");
    }
    for (size_t i = 0; i < count; i++) {
        const toml::node &node = *fields->get (i);
        try {
            if (const auto *number = node.as_integer ()) {
                append_field (message, types[i], number->get ());
            } else if (const auto *text = node.as_string ()) {
                append_field (message, types[i], text->get ());
            } else {
                throw message_error_t (found (node) + ", expected a whole number or a text");
            }
        } catch (const message_error_t &error) {
            section.fail_at (node, "fields", error.what ());
        }
    }
    return message;
}

// The given one of hex, text and types; empty: none, the answer is only an echo.
static std::string answer_form (const section_t &section, bool echo)
{
    if (section.has ("fields") && !section.has ("types")) {
        section.fail ("fields", "found without types, expected both or none");
    }
    std::string form;
    for (const char *key : {"hex", "text", "types"}) {
        if (section.has (key) && !form.empty ()) {
            section.fail (key, "found beside " + form + ", expected only one of them");
        }
        form = section.has (key) ? key : form;
    }
    if (form.empty () && !echo) {
        section.fail_whole ("", "found no content, expected hex (\"\" for an empty answer), text, "
                                "types with fields, or echo = true");
    }
    return form;
}

static std::vector<uint8_t> answer_bytes (const section_t &section, const std::string &form)
{
    if (form == "text") {
        const std::string text = section.text ("text");
        return std::vector<uint8_t> (text.begin (), text.end ());
    }
    try {
        return form == "types" ? typed_message (section) : bytes_from_hex (section.text ("hex"));
    } catch (const message_error_t &error) {
        section.fail (form, error.what ());
    }
}

// `left`: bytes that all answers may still have.
static void repeat_bytes (const section_t &section, const std::string &form,
                          std::vector<uint8_t> &bytes, size_t &left)
{
    size_t times = 1;
    section.number ("repeat", 1, max_answer, times);
    const std::vector<uint8_t> once = bytes;
    uint64_t size = uint64_t{once.size ()} * times;
    const char *key = times > 1 ? "repeat" : form.c_str ();
    if (size > max_answer) {
        section.fail (key, "found " + std::to_string (size) + " bytes in all, expected at most " +
                               std::to_string (max_answer));
    }
    if (size > left) {
        section.fail (key, "found more than " + std::to_string (max_answers) +
                               " bytes in all answers of the chassis, expected at most that");
    }
    left -= size;
    for (size_t i = 1; i < times; i++) {
        bytes.insert (bytes.end (), once.begin (), once.end ());
    }
}

static void read_answer (const section_t &section, card_t &card, size_t &left)
{
    int command = -1;
    if (!section.number ("command", 0, 255, command)) {
        section.fail_whole ("command", "missing, expected " + whole_number (0, 255));
    }
    if (card.answer.count (command)) {
        section.fail ("command", "found " + std::to_string (command) +
                                     " a second time, expected one answer for each command");
    }
    answer_t answer;
    section.boolean ("echo", answer.echo);
    const std::string form = answer_form (section, answer.echo);
    if (!form.empty ()) {
        answer.bytes = answer_bytes (section, form);
    }
    repeat_bytes (section, form, answer.bytes, left);
    section.number ("delay", 0, minute, answer.delay);
    section.number ("address", 0, 255, answer.address);
    section.number ("fault_at", 0, max_answer - 1, answer.fault_at);
    section.choice ("fault", faults, answer.fault);
    if (answer.fault == fault_t::line_low || answer.fault == fault_t::endless_transmitter) {
        section.fail ("fault", "found \"" + std::string (fault_name (*answer.fault)) +
                                   "\", expected it on the card: it begins before any command");
    }
    card.answer[command] = answer;
}

static void read_card (const section_t &section, chassis_settings_t &settings, size_t &left)
{
    int slot = -1;
    if (!section.number ("slot", 0, 30, slot, slots)) {
        section.fail_whole ("slot", std::string ("missing, expected ") + slots);
    }
    if (!slot_exists (slot)) {
        section.fail ("slot", "found " + std::to_string (slot) + ", expected " + slots);
    }
    if (settings.cards.count (slot)) {
        section.fail ("slot", "found " + std::to_string (slot) +
                                  " a second time, expected one card for each slot");
    }
    card_t &card = settings.card (slot);
    section.number ("delay", 0, minute, card.delay);
    section.number ("gap", 0, minute, card.gap);
    section.number ("address", 0, 255, card.address);
    section.number ("bit_rate", 100, 100000000, card.bit_rate);
    section.number ("fault_at", 0, max_answer - 1, card.fault_at);
    section.choice ("fault", faults, card.fault);
    for (const section_t &answer : section.sections ("answer", answer_keys)) {
        read_answer (answer, card, left);
    }
}

static toml::table parse_toml (const std::string &text, const std::string &name)
{
    try {
        return toml::parse (text, name);
    } catch (const toml::parse_error &error) {
        throw chassis_file_error_t (name + ":" + std::to_string (error.source ().begin.line) +
                                    ": TOML: " + std::string (error.description ()));
    }
}

// Only where the board passes CTS3 on can a card hold up the transmitter.
static bool holds_up_transmitter (const std::map<int, card_t> &cards)
{
    return std::any_of (cards.begin (), cards.end (), [] (const auto &card) {
        return card.second.fault == fault_t::endless_transmitter;
    });
}

chassis_settings_t parse_chassis (const std::string &text, const std::string &name)
{
    check_outline (text, name);
    const toml::table root = parse_toml (text, name);
    const section_t file (root, "", name, top_keys);
    chassis_settings_t settings;
    auto board = file.section ("board", board_keys);
    if (board) {
        read_board (*board, settings.board);
    }
    size_t left = max_answers;
    for (const section_t &card : file.sections ("card", card_keys)) {
        read_card (card, settings, left);
    }
    if (!board || !board->has ("cts3")) {
        settings.board.cts3 = holds_up_transmitter (settings.cards);
    }
    return settings;
}

std::string read_chassis_text (const std::string &path)
{
    struct stat status;
    if (stat (path.c_str (), &status) == 0 && !S_ISREG (status.st_mode)) {
        throw chassis_file_error_t (path + ": not a regular file, expected a chassis file");
    }
    std::unique_ptr<FILE, int (*) (FILE *)> file (fopen (path.c_str (), "re"), fclose);
    if (!file) {
        throw chassis_file_error_t (path + ": cannot be read: " + strerror (errno));
    }
    std::string text;
    char chunk[4096];
    while (size_t length = fread (chunk, 1, sizeof (chunk), file.get ())) {
        text.append (chunk, length);
        if (text.size () > max_file_size) {
            throw chassis_file_error_t (path + ": longer than " + std::to_string (max_file_size) +
                                        " bytes, expected a chassis file");
        }
    }
    if (ferror (file.get ())) {
        throw chassis_file_error_t (path + ": cannot be read: " + strerror (errno));
    }
    return text;
}

chassis_settings_t load_chassis_file (const std::string &path)
{
    return parse_chassis (read_chassis_text (path), path);
}

chassis_settings_t builtin_chassis ()
{
    return parse_chassis (builtin_chassis_text (), "built-in chassis");
}
