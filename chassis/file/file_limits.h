// What a chassis file may be before the TOML parser sees it. The parser, and the tree that it
// builds, go as deep into the stack as the text nests. It relies on ASCII outside of quotes and
// comments.
#pragma once

#include <stddef.h>
#include <string>

constexpr size_t max_file_size = 4 << 20; // bytes
constexpr int max_nesting = 16;           // brackets in brackets; parts of a key

// Throws chassis_file_error_t for any other text. `name` stands for the file.
void check_outline (const std::string &text, const std::string &name);
