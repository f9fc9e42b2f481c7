// What a chassis file may be before the TOML parser sees it. The parser, and the tree that it
// builds, go as deep into the stack as the text nests.
#pragma once

#include <stddef.h>
#include <string>

constexpr size_t max_file_size = 4 << 20; // bytes
constexpr int max_nesting = 16;           // brackets in brackets; parts of a key

// Throws chassis_file_error_t for a text that nests deeper. `name` stands for the file.
void check_nesting (const std::string &text, const std::string &name);
