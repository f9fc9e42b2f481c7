// How bytes, texts and tables are shown to a person.
#pragma once

#include <stdint.h>
#include <string>
#include <vector>

using bytes_t = std::vector<uint8_t>;

// Two digits a byte, without blanks and with one between bytes.
std::string hex_digits (const uint8_t *bytes, size_t size);
std::string hex (const bytes_t &bytes);

// The text with everything that is not printable as \n, \t or \xNN, so that no input reaches the
// terminal as a control character. Printable is ASCII, and in a locale whose encoding is UTF-8 also
// the UTF-8 of characters other than controls, separators of lines and marks of direction.
std::string printable (const std::string &text);

// The same in double quotes, with a \ before each double quote and \ of the text.
std::string in_quotes (const std::string &text);

// The characters of the bytes, a "." for each that is not printable ASCII.
std::string characters (const uint8_t *bytes, size_t size);

// Lines of 16 bytes, hex beside characters, each after its offset, from `offset` on.
std::string hex_lines (const bytes_t &bytes, size_t offset = 0, const char *indent = "    ");

// Columns that a printable text takes on the screen.
size_t width_of (const std::string &text);

// The first `limit` columns; a longer text ends in how many more there are. 0: no limit.
std::string shortened (const std::string &text, size_t limit);

// At most `width` columns; a longer text ends in "...". 0: no limit.
std::string cut (const std::string &text, size_t width);

using row_t = std::vector<std::string>;

// Columns two blanks apart, each as wide as its widest cell so far. For a table that is shown row
// by row, rows that are known to come may widen it first.
class table_t {
  public:
    void widen (const row_t &row);
    // From now on a line takes at most `width` columns of the screen, 0: any number. Columns of the
    // table are left out for that, in the order given; then lines are cut.
    void fit (size_t width, const std::vector<size_t> &order);
    std::string line (const row_t &row); // without the newline

  private:
    std::vector<size_t> widths;
    std::vector<size_t> hidden;
    size_t most = 0;

    bool is_hidden (size_t column) const;
    size_t width () const;
};

// A whole table; the first row is the heading.
std::vector<std::string> table_lines (const std::vector<row_t> &rows);
