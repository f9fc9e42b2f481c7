// What the fuzz targets share: a property that must hold, one that every message has, and the
// reading of values out of an input.
#pragma once

#include <algorithm>
#include <iostream>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string>
#include <utility>
#include <vector>

using bytes_t = std::vector<uint8_t>;

// Ends the run with the property's text, and what else may help, unless it holds.
#define REQUIRE(property) REQUIRE_SHOWING (property, "")
#define REQUIRE_SHOWING(property, shown)                                                           \
    if (!(property)) {                                                                             \
        std::cerr << __FILE__ << ":" << __LINE__ << ": not so: " #property "\n"                    \
                  << (shown) << "\n";                                                              \
        abort ();                                                                                  \
    }

// What a message and a line of output are, whatever the input: one line, no control characters, nor
// those of Unicode's second block.
inline bool is_one_line (const std::string &line, char allowed = ' ')
{
    uint8_t before = 0;
    return std::none_of (line.begin (), line.end (), [&] (uint8_t c) {
        bool is_second = std::exchange (before, c) == 0xC2 && (c & 0xE0) == 0x80;
        return is_second || ((c < 0x20 || c == 0x7F) && c != allowed);
    });
}

// Output of such lines, each with its end.
inline bool is_lines (const std::string &text)
{
    return is_one_line (text, '\n') && (text.empty () || text.back () == '\n');
}

// An input, read from its front; behind its end all is 0.
class input_t {
  public:
    input_t (const uint8_t *data, size_t size) : next (data), end (data + size) {}

    uint8_t byte ()
    {
        return next < end ? *next++ : 0;
    }
    // A word of at most 32 bits: below 0x80 the byte itself, then one of the values at which
    // something changes, then, from 0xC0, the next four bytes.
    int32_t word ()
    {
        static constexpr int32_t edges[] = {
            INT32_MIN, -0x70000000, -0x6FFFFFFF, -256, -1,   255,  256,        257,
            2047,      2048,        4094,        4095, 4096, 4097, 0x10000001, INT32_MAX};
        uint8_t first = byte ();
        if (first < 0x80) {
            return first;
        }
        if (first < 0xC0) {
            return edges[first % 16];
        }
        const uint32_t b[] = {byte (), byte (), byte (), byte ()};
        return static_cast<int32_t> (b[0] << 24 | b[1] << 16 | b[2] << 8 | b[3]);
    }
    bool at_end () const
    {
        return next == end;
    }
    bytes_t rest ()
    {
        return bytes_t (std::exchange (next, end), end);
    }

  private:
    const uint8_t *next;
    const uint8_t *end;
};

inline void append_word (bytes_t &bytes, int32_t value)
{
    for (int shift = 24; shift >= 0; shift -= 8) {
        bytes.push_back (static_cast<uint8_t> (static_cast<uint32_t> (value) >> shift));
    }
}
