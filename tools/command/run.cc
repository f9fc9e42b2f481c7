#include "tools/command/command.h"
#include "tools/parse/files.h"
#include "tools/parse/parse.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <optional>

struct run_words_t {
    std::string slot, command;
    std::vector<std::string> tx;
    std::optional<std::string> rx;
    bool raw = false;
};

// Hex, or @FILE.
static bytes_t tx_of (const std::vector<std::string> &tx)
{
    if (tx.size () != 1 || tx[0][0] != '@') {
        return parse_bytes ("--tx", tx, Q5_SCAN_MAX_TX);
    }
    std::string file = read_file (tx[0].substr (1), Q5_SCAN_MAX_TX);
    return bytes_t (file.begin (), file.end ());
}

static q5_scan_request_t request_of (const run_words_t &words)
{
    q5_scan_request_t request;
    request.slot = parse_slot (words.slot);
    request.command = parse_word ("COMMAND", words.command);
    request.tx = tx_of (words.tx);
    request.rxlen = words.rx ? parse_number ("--rx", *words.rx, 0, Q5_SCAN_MAX_RX)
                             : usual_rxlen (request.command);
    return request;
}

static report_t run (const globals_t &globals, const run_words_t &words)
{
    q5_scan_request_t request = request_of (words);
    return words.raw ? run_raw (globals, request) : run_requests (globals, {request});
}

void add_run (command_line_t &line)
{
    auto words = std::make_shared<run_words_t> ();
    CLI::App &command =
        add_command (line, "run", "run one request",
                     [&globals = line.globals, words] () { return run (globals, *words); });
    command.add_option ("SLOT", words->slot, "0 to 31")->required ();
    command
        .add_option ("COMMAND", words->command,
                     "the card sees its low 8 bits; 1 claims, 2 releases")
        ->required ();
    command
        .add_option ("--tx", words->tx, "bytes to transmit, up to 4094: hex, or @FILE for a file's")
        ->type_name ("HEX...");
    command.add_option ("--rx", words->rx, "bytes wanted back, up to 4096 (the default)")
        ->type_name ("N");
    command.add_flag ("--raw", words->raw, "write the received bytes and nothing else");
}
