// What several chassis say, as text in the exposition format of Prometheus.
#pragma once

#include "tools/parse/names.h"
#include "tools/session.h"

#include <stdint.h>
#include <string>
#include <vector>

struct metrics_options_t {
    std::vector<std::string> hosts; // HOST or HOST:PORT; none: that of the settings
    std::vector<int32_t> slots;
    names_t names;
};

// Fetches the typed messages of all hosts, each in a thread and with a time-out of its own. A host
// that fails is down in the text, not a failure of the command. Throws failure_t for a host that
// cannot be one.
report_t metrics (const globals_t &globals, const metrics_options_t &options);
