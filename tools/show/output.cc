#include "tools/show/output.h"

#include <algorithm>
#include <langinfo.h>
#include <stdio.h>
#include <string.h>
#include <wchar.h>

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

namespace {

struct character_t {
    size_t size, width; // bytes, and columns on the screen
};

} // namespace

// Separators of lines and paragraphs, and marks that turn the direction of the text.
static bool is_formatting (wchar_t c)
{
    return (c >= 0x2028 && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069) || c == 0x200E ||
           c == 0x200F || c == 0x061C;
}

// The printable character at the front of a text; without a size when there is none.
static character_t character_at (const char *text, size_t size)
{
    static const bool is_utf8 = strcmp (nl_langinfo (CODESET), "UTF-8") == 0;
    if (is_printable (text[0])) {
        return {1, 1};
    }
    wchar_t c = 0;
    mbstate_t state = {};
    size_t taken = is_utf8 ? mbrtowc (&c, text, size, &state) : 0;
    int width = taken > 1 && taken <= size && !is_formatting (c) ? wcwidth (c) : -1;
    return width >= 0 ? character_t{taken, static_cast<size_t> (width)} : character_t{0, 0};
}

// With a \ before each of `marks`.
static std::string printable_with (const std::string &text, const char *marks)
{
    std::string shown;
    for (size_t at = 0; at < text.size ();) {
        size_t size = character_at (&text[at], text.size () - at).size;
        uint8_t byte = static_cast<uint8_t> (text[at]);
        if (size > 0) {
            shown += strchr (marks, text[at]) ? "\\" : "";
            shown += text.substr (at, size);
        } else {
            shown += byte == '\n' ? "\\n" : byte == '\t' ? "\\t" : "\\x" + hex_digits (&byte, 1);
        }
        at += size > 0 ? size : 1;
    }
    return shown;
}

std::string printable (const std::string &text)
{
    return printable_with (text, "");
}

std::string in_quotes (const std::string &text)
{
    return '"' + printable_with (text, "\"\\") + '"';
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

// How many bytes at the front take at most `width` columns, which becomes the columns left over.
static size_t front (const std::string &text, size_t *width)
{
    size_t at = 0;
    while (at < text.size ()) {
        character_t next = character_at (&text[at], text.size () - at);
        if (next.width > *width) {
            break;
        }
        *width -= next.width;
        at += next.size > 0 ? next.size : 1;
    }
    return at;
}

size_t width_of (const std::string &text)
{
    size_t left = SIZE_MAX;
    front (text, &left);
    return SIZE_MAX - left;
}

std::string shortened (const std::string &text, size_t limit)
{
    size_t left = limit;
    size_t size = limit == 0 ? text.size () : front (text, &left);
    return size == text.size () ? text
                                : text.substr (0, size) + "... " +
                                      std::to_string (width_of (text.substr (size))) + " more";
}

std::string cut (const std::string &text, size_t width)
{
    if (width == 0 || width_of (text) <= width) {
        return text;
    }
    const std::string mark = std::string ("...").substr (0, width);
    size_t left = width - mark.size ();
    return text.substr (0, front (text, &left)) + mark;
}

void table_t::widen (const row_t &row)
{
    widths.resize (std::max (widths.size (), row.size ()));
    for (size_t i = 0; i < row.size (); i++) {
        widths[i] = std::max (widths[i], width_of (row[i]));
    }
}

bool table_t::is_hidden (size_t column) const
{
    return std::find (hidden.begin (), hidden.end (), column) != hidden.end ();
}

size_t table_t::width () const
{
    size_t sum = 0;
    for (size_t i = 0; i < widths.size (); i++) {
        sum += is_hidden (i) ? 0 : widths[i] + 2;
    }
    return sum - std::min<size_t> (sum, 2);
}

void table_t::fit (size_t width, const std::vector<size_t> &order)
{
    most = width;
    for (auto column = order.begin (); column != order.end () && this->width () > most && most > 0;
         ++column) {
        hidden.push_back (*column);
    }
}

std::string table_t::line (const row_t &row)
{
    widen (row);
    std::string line;
    for (size_t i = 0; i < row.size (); i++) {
        if (!is_hidden (i)) {
            line += row[i] + std::string (widths[i] - width_of (row[i]) + 2, ' ');
        }
    }
    line.erase (line.find_last_not_of (' ') + 1);
    return cut (line, most);
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
