// The commands of q5_scan as CLI11 knows them.
#pragma once

#include "tools/session.h"

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

// What the chosen command does, set by the parser; its name is in `name`.
struct choice_t {
    std::string name;
    std::function<report_t ()> work;
    bool uses_daemon = false;
};

// Adds every command to `app`. Parsing sets `choice`; `globals` is read when its work runs.
void add_bus_commands (CLI::App &app, const globals_t &globals, choice_t &choice);
void add_chassis_commands (CLI::App &app, const globals_t &globals, choice_t &choice);
void add_image_commands (CLI::App &app, const globals_t &globals, choice_t &choice);
