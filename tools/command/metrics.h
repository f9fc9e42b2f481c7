// What several chassis say, as text in the exposition format of Prometheus.
#pragma once

#include "tools/parse/types.h"
#include "tools/session.h"

#include <map>
#include <stdint.h>
#include <string>
#include <vector>

struct metrics_options_t {
    std::vector<std::string> hosts; // HOST or HOST:PORT; none: that of the settings
    std::vector<int32_t> slots;
    card_types_t types = {};
    std::map<std::string, std::vector<int32_t>> slots_of = {}; // of the hosts with other slots
};

// Fetches the typed messages of all hosts at once, each within the settings' limit, ten seconds
// unless they have one. A host that fails is down in the text, not a failure of the command. Throws
// failure_t for a host that cannot be one.
report_t metrics (const globals_t &globals, const metrics_options_t &options);
