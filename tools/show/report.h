// What a command of q5_scan reports, and the exit status.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

using json_t = nlohmann::ordered_json;

// Exit statuses; the manual page lists them.
constexpr int status_ok = 0;            // every request succeeded
constexpr int status_failed = 1;        // a request failed, or an image contains no build identity
constexpr int status_usage = 2;         // wrong usage, or an input file that cannot be used
constexpr int status_no_connection = 3; // no connection, or one that ended in the middle
constexpr int status_dropped = 4;       // the daemon dropped the batch without a reply
constexpr int status_interrupted = 130; // Ctrl-C, as a shell reports it

// Why a command failed. Thrown, or carried by a report with the part that was done.
struct failure_t {
    int status;
    std::string what;   // what went wrong, and where
    std::string advice; // what to do about it
};

[[noreturn]] void usage_failure (const std::string &what, const std::string &advice);

// The outcome of a command, once for a person and once for a program.
struct report_t {
    std::string text; // complete lines
    json_t json = json_t::object ();
    int status = status_ok;
    std::optional<failure_t> failure;
    std::string note;     // what a person should also know; one line
    bool printed = false; // the command wrote its output itself, as it went
};

report_t report_of (const failure_t &failure);

// The "error" of JSON.
json_t json_of (const failure_t &failure);

// The command that reports, and what it talks to.
struct origin_t {
    std::string command;
    json_t place = json_t::object (); // host and port; empty without a daemon
};

// Now, in UTC: 2026-01-31T12:34:56.789Z.
std::string time_text ();

// The one object of --json: command, ok, exit_status and time first, then the place, then what the
// command reports, then the error, if any. One line of ASCII; bytes that are not UTF-8 become
// replacement characters.
std::string json_line (const origin_t &origin, const report_t &report);

// Writes the report to standard output, and note and failure to standard error unless `as_json`.
// Returns the exit status. A reader that has closed the pipe is not an error; a full disk is.
int print (const origin_t &origin, const report_t &report, bool as_json);
