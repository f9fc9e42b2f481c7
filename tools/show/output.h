// How bytes, texts and tables are shown to a person.
#pragma once

#include <stdint.h>
#include <string>
#include <vector>

using bytes_t = std::vector<uint8_t>;

bool is_printable (uint8_t c); // as ASCII

// Two digits a byte, without blanks and with one between bytes.
std::string hex_digits (const bytes_t &bytes);
std::string hex (const bytes_t &bytes);

// The text with everything that is not printable as \n, \t or \xNN, so that no input reaches the
// terminal as a control character. Printable is ASCII, and in a locale whose encoding is UTF-8 also
// the UTF-8 of characters other than controls, separators of lines and marks of direction.
std::string printable (const std::string &text);

// The same in double quotes, with a \ before each double quote and \ of the text.
std::string in_quotes (const std::string &text);

// The characters of the bytes, a "." for each that is not printable ASCII.
std::string characters (const bytes_t &bytes);

constexpr size_t bytes_a_line = 16;

// Lines of that size: offset, hex and characters.
std::string hex_lines (const bytes_t &bytes);

// Columns that a printable text takes on the screen.
size_t width_of (const std::string &text);

// The first `limit` columns; a longer text ends in how many more there are. 0: no limit.
std::string shortened (const std::string &text, size_t limit);

// At most `width` columns; a longer text ends in "...". 0: no limit.
std::string cut (const std::string &text, size_t width);

using row_t = std::vector<std::string>;

// A table as lines, its columns two blanks apart; the first row is the heading. On a screen with
// `width` columns, 0: any number, those of the table in `least_first` are left out as needed, and
// then lines are cut.
std::vector<std::string> table_lines (const std::vector<row_t> &rows, size_t width = 0,
                                      const std::vector<size_t> &least_first = {});

// Each line with its end.
std::string joined (const std::vector<std::string> &lines);
