// Files, read and written whole.
#pragma once

#include <stddef.h>
#include <string>

// A file, a pipe or a device; "-" is standard input. Throws failure_t, with status_usage, when it
// cannot be read, is a directory, is empty, or has more than `most` bytes.
std::string read_file (const std::string &path, size_t most);

// What messages call it.
std::string shown_name (const std::string &path);

// Throws failure_t unless a file can be written there; "-", which is standard output, can.
void check_writable (const std::string &path);

// Writes a temporary file beside it and renames that when it is complete: others see the old
// contents or the new ones. A device or a pipe is written directly. Throws failure_t, and then
// leaves no file.
void write_file (const std::string &path, const std::string &text);
