// What the fuzz targets share: a property that must hold, one that every message has, and the
// reading of values out of an input.
#pragma once

#include <algorithm>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string>
#include <utility>
#include <vector>

using bytes_t = std::vector<uint8_t>;

[[noreturn]] inline void report_broken (const char *file, int line, const char *property,
                                        const std::string &shown)
{
    fprintf (stderr, "%s:%d: does not hold: %s\n%s\n", file, line, property, shown.c_str ());
    abort ();
}

// Ends the run with the property's text, and what else may help, unless it holds.
#define REQUIRE(property) REQUIRE_SHOWING (property, std::string ())
#define REQUIRE_SHOWING(property, shown)                                                           \
    do {                                                                                           \
        if (!(property)) {                                                                         \
            report_broken (__FILE__, __LINE__, #property, shown);                                  \
        }                                                                                          \
    } while (0)

// What a message and a line of output are, whatever the input: one line, no control characters.
inline bool is_one_line (const std::string &line)
{
    return std::none_of (line.begin (), line.end (),
                         [] (unsigned char c) { return c < 0x20 || c == 0x7F; });
}

// Output of whole lines: the last one ends too.
inline bool is_lines (const std::string &text)
{
    for (size_t at = 0, end; at < text.size (); at = end + 1) {
        end = text.find ('\n', at);
        if (end == std::string::npos || !is_one_line (text.substr (at, end - at))) {
            return false;
        }
    }
    return true;
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
            INT32_MIN, INT32_MIN + 1, -0x70000000, -0x6FFFFFFF, -65536,     -4096,
            -256,      -10,           -4,          -3,          -2,         -1,
            255,       256,           257,         2047,        2048,       4093,
            4094,      4095,          4096,        4097,        4098,       32767,
            32768,     65535,         65536,       0x10000001,  0x7FFFFFF0, INT32_MAX - 1,
            INT32_MAX};
        uint8_t first = byte ();
        if (first < 0x80) {
            return first;
        }
        if (first < 0xC0) {
            return edges[(first - 0x80) % (sizeof (edges) / sizeof (edges[0]))];
        }
        uint32_t value = 0;
        for (int i = 0; i < 4; i++) {
            value = value << 8 | byte ();
        }
        return static_cast<int32_t> (value);
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
