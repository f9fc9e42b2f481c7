// What several chassis say, as text in the exposition format of Prometheus.
#pragma once

#include "tools/parse/names.h"
#include "tools/session.h"

#include <istream>
#include <map>
#include <stdint.h>
#include <string>
#include <vector>

struct metrics_options_t {
    std::vector<std::string> hosts; // HOST or HOST:PORT; none: that of the settings
    std::vector<int32_t> slots;
    names_t names;
    std::map<std::string, std::vector<int32_t>> slots_of = {}; // of the hosts with other slots
};

// Reads lines of HOST[:PORT] LIST, LIST being slots; a # begins a comment. Adds the hosts to those
// of `options`. Throws failure_t with `file` and the line for the first thing that is wrong.
void read_slots (std::istream &text, const std::string &file, const globals_t &globals,
                 metrics_options_t &options);

// Fetches the typed messages of all hosts at once, each within the settings' limit, ten seconds
// unless they have one. A host that fails is down in the text, not a failure of the command. Throws
// failure_t for a host that cannot be one.
report_t metrics (const globals_t &globals, const metrics_options_t &options);
