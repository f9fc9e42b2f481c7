#include "tools/show/output.h"

#include <algorithm>
#include <stdio.h>

constexpr size_t bytes_a_line = 16;

static bool is_printable (uint8_t c)
{
    return c >= 0x20 && c < 0x7F;
}

std::string hex_digits (const uint8_t *bytes, size_t size)
{
    static const char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve (2 * size);
    for (const uint8_t *p = bytes; p < bytes + size; p++) {
        text += digits[*p >> 4];
        text += digits[*p & 15];
    }
    return text;
}

std::string hex (const bytes_t &bytes)
{
    std::string text;
    for (uint8_t byte : bytes) {
        text += (text.empty () ? "" : " ") + hex_digits (&byte, 1);
    }
    return text;
}

std::string printable (const std::string &text)
{
    std::string shown;
    for (char c : text) {
        uint8_t byte = static_cast<uint8_t> (c);
        if (is_printable (byte)) {
            shown += c;
        } else if (c == '\n') {
            shown += "\\n";
        } else if (c == '\t') {
            shown += "\\t";
        } else {
            shown += "\\x" + hex_digits (&byte, 1);
        }
    }
    return shown;
}

std::string in_quotes (const std::string &text)
{
    std::string shown;
    for (char c : text) {
        shown += (c == '"' || c == '\\' ? "\\" : "") + printable (std::string (1, c));
    }
    return '"' + shown + '"';
}

std::string characters (const uint8_t *bytes, size_t size)
{
    std::string text (bytes, bytes + size);
    std::replace_if (
        text.begin (), text.end (), [] (char c) { return !is_printable (c); }, '.');
    return text;
}

// At least four digits.
static std::string offset_text (size_t offset)
{
    char text[20];
    snprintf (text, sizeof (text), "%04zx", offset);
    return text;
}

std::string hex_lines (const bytes_t &bytes, size_t offset, const char *indent)
{
    std::string lines;
    for (size_t at = 0; at < bytes.size (); at += bytes_a_line) {
        size_t size = std::min (bytes_a_line, bytes.size () - at);
        std::string columns = hex ({bytes.begin () + at, bytes.begin () + at + size});
        columns.resize (3 * bytes_a_line, ' ');
        lines += indent + offset_text (offset + at) + "  " + columns + " " +
                 characters (&bytes[at], size) + "\n";
    }
    return lines;
}

std::string shortened (const std::string &text, size_t limit)
{
    if (limit == 0 || text.size () <= limit) {
        return text;
    }
    return text.substr (0, limit) + "... " + std::to_string (text.size () - limit) + " more";
}

void table_t::widen (const row_t &row)
{
    widths.resize (std::max (widths.size (), row.size ()));
    for (size_t i = 0; i < row.size (); i++) {
        widths[i] = std::max (widths[i], row[i].size ());
    }
}

std::string table_t::line (const row_t &row)
{
    widen (row);
    std::string line;
    for (size_t i = 0; i < row.size (); i++) {
        line += row[i] + std::string (widths[i] - row[i].size () + 2, ' ');
    }
    line.erase (line.find_last_not_of (' ') + 1);
    return line;
}

std::vector<std::string> table_lines (const std::vector<row_t> &rows)
{
    table_t table;
    for (const row_t &row : rows) {
        table.widen (row);
    }
    std::vector<std::string> lines;
    for (const row_t &row : rows) {
        lines.push_back (table.line (row));
    }
    return lines;
}
