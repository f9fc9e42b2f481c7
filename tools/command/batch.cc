#include "tools/command/batch.h"

#include "tools/command/command.h"
#include "tools/parse/files.h"
#include "tools/parse/parse.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <set>
#include <sstream>

using words_t = std::vector<std::string>;

static bool is_option (const std::string &word)
{
    return word.rfind ("--", 0) == 0;
}

static words_t words_of (const std::string &line)
{
    std::istringstream stream (line);
    words_t words;
    for (std::string word; stream >> word;) {
        size_t end = is_option (word) ? word.find ('=') : word.npos;
        words.push_back (word.substr (0, end));
        if (end < word.size () - 1) {
            words.push_back (word.substr (end + 1));
        }
    }
    return words;
}

// Quotation marks around the whole, as a shell would want them, do not count.
static std::string unquoted (const std::string &text)
{
    char first = text.empty () ? '\0' : text.front ();
    bool is_quoted = text.size () > 1 && (first == '"' || first == '\'') && text.back () == first;
    return is_quoted ? text.substr (1, text.size () - 2) : text;
}

// The words from `at` to the next option, which `at` then points to.
static std::string joined_words (const words_t &words, size_t *at)
{
    std::string text;
    for (; *at < words.size () && !is_option (words[*at]); ++*at) {
        text += (text.empty () ? "" : " ") + words[*at];
    }
    return text;
}

[[noreturn]] static void line_failure (const std::string &what)
{
    usage_failure (what, "A line is: SLOT COMMAND [--tx HEX] [--rx N], or send SLOT FIRST SECOND "
                         "[BYTES], or claim, or release.");
}

static q5_scan_request_t bus_request (const words_t &words)
{
    if (words.size () < 2 || is_option (words[1])) {
        parse_slot (words[0]);
        line_failure ("the slot is not followed by a command");
    }
    q5_scan_request_t request;
    request.slot = parse_slot (words[0]);
    request.command = parse_word ("command", words[1]);
    request.rxlen = usual_rxlen (request.command);
    std::set<std::string> given;
    for (size_t at = 2; at < words.size ();) {
        std::string option = words[at++];
        std::string value = joined_words (words, &at);
        if (value.empty ()) {
            line_failure (is_option (option) ? option + " has no value"
                                             : "'" + option + "' is not expected here");
        }
        if (!given.insert (option).second) {
            line_failure (option + " is given twice");
        }
        if (option == "--tx") {
            request.tx = parse_bytes ("--tx", {unquoted (value)}, Q5_SCAN_MAX_TX);
        } else if (option == "--rx") {
            request.rxlen = parse_number ("--rx", unquoted (value), 0, Q5_SCAN_MAX_RX);
        } else {
            line_failure ("'" + option + "' is not expected here");
        }
    }
    return request;
}

static q5_scan_request_t send_request (const words_t &words)
{
    if (words.size () < 4) {
        line_failure ("send needs SLOT, FIRST and SECOND");
    }
    size_t at = 4;
    std::string bytes = joined_words (words, &at);
    if (at < words.size ()) {
        line_failure ("'" + words[at] + "' is not expected here");
    }
    return q5_scan_short_request (parse_slot (words[1]), parse_plain_byte ("FIRST", words[2]),
                                  parse_plain_byte ("SECOND", words[3]),
                                  parse_bytes ("BYTES", {unquoted (bytes)}, Q5_SCAN_MAX_SHORT));
}

static q5_scan_request_t request_of (const words_t &words)
{
    if (words[0] == "send") {
        return send_request (words);
    }
    if (words[0] != "claim" && words[0] != "release") {
        return bus_request (words);
    }
    if (words.size () > 1) {
        line_failure ("'" + words[1] + "' is not expected after " + words[0]);
    }
    return words[0] == "claim" ? q5_scan_claim_request () : q5_scan_release_request ();
}

static void append (std::vector<q5_scan_request_t> &requests, size_t *tx_count,
                    q5_scan_request_t request)
{
    if (requests.size () == MAX_REQUESTS) {
        usage_failure ("more than 100 requests", "Split the batch into two.");
    }
    *tx_count += request.tx.size ();
    if (*tx_count > Q5_SCAN_MAX_TX) {
        usage_failure ("the requests up to this line transmit " + std::to_string (*tx_count) +
                           " bytes",
                       "At most 4094 fit into one batch: split it into two.");
    }
    requests.push_back (std::move (request));
}

std::vector<q5_scan_request_t> read_batch (std::istream &text, const std::string &name)
{
    std::vector<q5_scan_request_t> requests;
    size_t tx_count = 0;
    read_lines (text, name, [&] (const std::string &line) {
        append (requests, &tx_count, request_of (words_of (line)));
    });
    if (requests.empty ()) {
        usage_failure (name + " holds no request", "Give one request a line: SLOT COMMAND.");
    }
    return requests;
}

static std::vector<q5_scan_request_t> read_batch_file (const std::string &path)
{
    std::istringstream text (read_file (path, most_lines));
    return read_batch (text, shown_name (path));
}

void add_batch (command_line_t &line)
{
    auto file = std::make_shared<std::string> ("-");
    CLI::App &command = add_command (line, "batch", "run many requests in one batch, one a line",
                                     [&globals = line.globals, file] () {
                                         return run_requests (globals, read_batch_file (*file));
                                     });
    command.add_option ("FILE", *file,
                        "SLOT COMMAND [--tx HEX] [--rx N] a line; - or none: standard input");
}
