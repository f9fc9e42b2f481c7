#include "tools/command/command.h"
#include "tools/parse/parse.h"

#include <CLI/CLI.hpp>
#include <memory>

struct send_words_t {
    std::string slot, first, second;
    std::vector<std::string> bytes;
};

static q5_scan_request_t request_of (const send_words_t &words)
{
    return q5_scan_short_request (parse_slot (words.slot), parse_plain_byte ("FIRST", words.first),
                                  parse_plain_byte ("SECOND", words.second),
                                  parse_bytes ("BYTES", words.bytes, Q5_SCAN_MAX_SHORT));
}

void add_send (command_line_t &line)
{
    auto words = std::make_shared<send_words_t> ();
    CLI::App &command = add_command (line, "send", "send the short message (command 147) to a slot",
                                     [&globals = line.globals, words] () {
                                         return run_requests (globals, {request_of (*words)});
                                     });
    command.add_option ("SLOT", words->slot, "0 to 31")->required ();
    command
        .add_option ("FIRST", words->first,
                     "first byte, 0 to 255: one decimal digit, or hex such as 0x1f")
        ->required ();
    command.add_option ("SECOND", words->second, "second byte, likewise")->required ();
    command.add_option ("BYTES", words->bytes, "up to 27 more bytes, in hex");
}
