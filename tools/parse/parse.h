// Numbers and bytes as a person types them.
#pragma once

#include "tools/show/output.h"

#include <chrono>
#include <stdint.h>
#include <string>
#include <vector>

// The parts between commas of all texts.
std::vector<std::string> split (const std::vector<std::string> &texts);

// Each throws failure_t, with status_usage, for anything but what it names; `name` is what the
// message calls the value.

// A decimal or 0x number from `least` to `most`; either form may have a minus.
int32_t parse_number (const std::string &name, const std::string &text, int64_t least,
                      int64_t most);
int32_t parse_slot (const std::string &text);                          // 0 to 31
int32_t parse_word (const std::string &name, const std::string &text); // any signed 32-bit value

// The slots that the texts name, each once and in order: 3, 3-7, or several with commas between.
// All slots for no text.
std::vector<int32_t> parse_slots (const std::vector<std::string> &texts);

// Commands of the cards, 3 to 255, with commas between; each once, in this order.
std::vector<int32_t> parse_commands (const std::string &text);

// A number from 0 to 255. Next to bytes in hex, several plain digits could be read either
// way: it is refused.
uint8_t parse_plain_byte (const std::string &name, const std::string &text);

// Seconds from 0 to `most`; a decimal fraction is allowed.
std::chrono::milliseconds parse_seconds (const std::string &name, const std::string &text,
                                         int32_t most);

// Two hex digits a byte, with or without blanks between bytes; a group of digits may begin with 0x.
bytes_t parse_bytes (const std::string &name, const std::vector<std::string> &texts, size_t most);
