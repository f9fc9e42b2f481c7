// What the letters of a typed message mean, as a person types it, and fields as they are
// shown.
#pragma once

#include "client/message.h"
#include "tools/show/report.h"

#include <string>

// What q5_scan_parse_types reads. Throws failure_t.
q5_scan_types_t parse_types (const std::string &text);

// For a person; and for a program: a number, a text, or bytes in hex.
std::string text_of (const q5_scan_field_t &field);
json_t json_of (const q5_scan_field_t &field);
