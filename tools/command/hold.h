// The bus for one command line: claimed before it, released after it.
#pragma once

#include "tools/session.h"

#include <string>
#include <vector>

// What a shell says of a command that it cannot run.
constexpr int status_not_executable = 126;
constexpr int status_not_found = 127;

// Claims the bus under a fresh id, runs the command with Q5_SCAN_ID, Q5_SCAN_HOST and Q5_SCAN_PORT
// in its environment, and releases the bus however the command ends. Signals that end a session go
// on to the command. The report's status is the command's own, 128 and the number of the signal
// when one ended it.
report_t hold (const globals_t &globals, const std::vector<std::string> &command);
