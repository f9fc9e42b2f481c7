// Limits of a chassis file, checked before the TOML parser sees it. The parser and the tree that it
// builds recurse as deep as the text nests; and the parser assumes ASCII outside of quotes and
// comments.
#pragma once

#include <stddef.h>
#include <string>

constexpr size_t max_file_size = 4 << 20; // bytes
constexpr int max_nesting = 16;           // brackets in brackets; parts of a key

// Throws chassis_file_error_t for a text outside the limits. `name` is what messages call the file.
void check_outline (const std::string &text, const std::string &name);
