// Firmware images from files: what they are, when they were built, what is in them.
#pragma once

#include "tools/show/report.h"

#include <string>

// Each throws failure_t for a file that cannot be used, and for an image without the identity that
// is needed.
report_t identity (const std::string &path);
report_t newer (const std::string &first, const std::string &second);

// Writes the whole file to standard output as it goes: lines of hex and characters, or one JSON
// object with the bytes in hex.
report_t dump (const std::string &path, bool as_json);
