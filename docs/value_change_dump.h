// A value change dump of one-bit wires, read for drawing.
#pragma once

#include <istream>
#include <map>
#include <stdint.h>
#include <string>
#include <vector>

struct change_t {
    int64_t time; // nanoseconds
    bool level;
};

// The changes of one wire, in the order of time; the first one is its level at the beginning.
struct wire_t {
    std::vector<change_t> changes;

    bool level_at (int64_t time) const;
    // The first change to the level at `time` or later; -1: none.
    int64_t next (bool level, int64_t time) const;
};

// By name, as in "slot_code[6]" and "TXD3". Throws std::runtime_error for what is no such dump.
std::map<std::string, wire_t> read_dump (std::istream &in);
