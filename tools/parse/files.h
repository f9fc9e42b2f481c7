// Files, read and written whole.
#pragma once

#include <functional>
#include <istream>
#include <stddef.h>
#include <string>

constexpr size_t most_lines = 1 << 20; // bytes of a file of lines

// A file, a pipe or a device; "-" is standard input. Throws failure_t, with status_usage, when it
// cannot be read, is a directory, is empty, or has more than `most` bytes.
std::string read_file (const std::string &path, size_t most);

// Calls `take` with each line that is not empty without its # comment. A failure_t of `take` gets
// the name of the file and the line before its text.
void read_lines (std::istream &text, const std::string &name,
                 const std::function<void (const std::string &)> &take);

// What messages call it.
std::string shown_name (const std::string &path);

// Throws failure_t unless a file can be written there; "-", which is standard output, can.
void check_writable (const std::string &path);

// Writes a temporary file in the same directory and renames that when it is complete: others see
// the old contents or the new ones. A device or a pipe is written directly. Throws failure_t, and
// then leaves no file.
void write_file (const std::string &path, const std::string &text);
