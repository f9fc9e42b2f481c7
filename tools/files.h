// Input files, whole.
#pragma once

#include <memory>
#include <stddef.h>
#include <stdint.h>
#include <string>

struct file_bytes_t {
    std::unique_ptr<char[]> bytes;
    int32_t size = 0;
};

// Reads a file, a pipe or a device to its end; "-" is standard input. Throws failure_t, with
// status_usage, when it cannot be read, is a directory, is empty, or has more than `most` bytes.
file_bytes_t read_file (const std::string &path, size_t most);

// What messages call it.
std::string shown_name (const std::string &path);
