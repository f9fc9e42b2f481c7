// Numbers and bytes as a person types them.
#pragma once

#include "tools/output.h"

#include <stdint.h>
#include <string>

// Each throws failure_t, with status_usage, for anything else than it names; `name` is what the
// message calls the value.

// A decimal or 0x number from `least` to `most`; a minus may stand before either form.
int32_t parse_number (const std::string &name, const std::string &text, int64_t least,
                      int64_t most);
int32_t parse_slot (const std::string &text);                          // 0 to 31
int32_t parse_word (const std::string &name, const std::string &text); // any signed 32-bit value

// Two hex digits a byte, with or without blanks between bytes; a group of digits may begin with 0x.
// No text is no bytes.
bytes_t parse_bytes (const std::string &name, const std::string &text, size_t most);
