// A batch as text: one request a line.
//
//   SLOT COMMAND [--tx HEX] [--rx N]
//   send SLOT FIRST SECOND [BYTES]
//   claim
//   release
//
// Numbers are decimal or 0x; HEX and BYTES may contain blanks and be quoted. --tx=HEX is --tx HEX.
// A line may end in a # comment; lines without a request are skipped.
#pragma once

#include "tools/session.h"

#include <istream>
#include <string>
#include <vector>

// Throws failure_t with `name` and the line for the first thing that is wrong: also for more
// requests or transmit bytes than one batch may carry, and for a batch without a request.
std::vector<q5_scan_request_t> read_batch (std::istream &text, const std::string &name);
