// What a command of q5_scan adds to the command line: its options, and the work that they select.
#pragma once

#include "tools/session.h"

#include <functional>
#include <string>

namespace CLI {
class App;
}

// The command line while it is put together and parsed.
struct command_line_t {
    CLI::App &app;
    const globals_t &globals; // complete once all words are parsed

    // The chosen command, set by the parser.
    std::string name = {};
    std::function<report_t ()> work = {};
    bool uses_daemon = false;
};

enum class needs_t {
    daemon,
    files
};

// Adds a command whose words the caller then adds; they must live as long as `work`.
CLI::App &add_command (command_line_t &line, const char *name, const char *description,
                       const std::function<report_t ()> &work, needs_t needs = needs_t::daemon);

void add_batch (command_line_t &line);
void add_claim (command_line_t &line); // and release
void add_doctor (command_line_t &line);
void add_fetch (command_line_t &line);
void add_hold (command_line_t &line);
void add_identity (command_line_t &line);
void add_inventory (command_line_t &line);
void add_metrics (command_line_t &line);
void add_run (command_line_t &line);
void add_send (command_line_t &line);
void add_snapshot (command_line_t &line);
void add_watch (command_line_t &line);
