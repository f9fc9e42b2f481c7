#include "tools/show/output.h"

#include <algorithm>
#include <langinfo.h>
#include <numeric>
#include <stdio.h>
#include <string.h>
#include <utility>
#include <wchar.h>

bool is_printable (uint8_t c)
{
    return c >= 0x20 && c < 0x7F;
}

std::string hex_digits (const bytes_t &bytes)
{
    static const char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve (2 * bytes.size ());
    for (uint8_t byte : bytes) {
        text += {digits[byte >> 4], digits[byte & 15]};
    }
    return text;
}

std::string hex (const bytes_t &bytes)
{
    std::string text;
    for (uint8_t byte : bytes) {
        text += (text.empty () ? "" : " ") + hex_digits ({byte});
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

// The printable character at the front of a text; of size 0 when there is none.
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
            shown += byte == '\n' ? "\\n" : byte == '\t' ? "\\t" : "\\x" + hex_digits ({byte});
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

std::string characters (const bytes_t &bytes)
{
    std::string text (bytes.begin (), bytes.end ());
    std::replace_if (
        text.begin (), text.end (), [] (char c) { return !is_printable (c); }, '.');
    return text;
}

std::string hex_lines (const bytes_t &bytes)
{
    std::string lines;
    for (size_t at = 0; at < bytes.size (); at += bytes_a_line) {
        size_t end = std::min (at + bytes_a_line, bytes.size ());
        const bytes_t line (bytes.begin () + at, bytes.begin () + end);
        char head[80]; // the offset has four digits or more
        snprintf (head, sizeof (head), "    %04zx  %-48s ", at, hex (line).c_str ());
        lines += head + characters (line) + "\n";
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

std::vector<std::string> table_lines (const std::vector<row_t> &rows, size_t width,
                                      const std::vector<size_t> &least_first)
{
    std::vector<size_t> widths (rows.front ().size ());
    for (const row_t &row : rows) {
        for (size_t i = 0; i < row.size (); i++) {
            widths[i] = std::max (widths[i], width_of (row[i]) + 2);
        }
    }
    size_t sum = std::accumulate (widths.begin (), widths.end (), size_t (0));
    for (size_t column : least_first) {
        if (width > 0 && sum > width + 2) {
            sum -= std::exchange (widths[column], 0);
        }
    }
    std::vector<std::string> lines;
    for (const row_t &row : rows) {
        std::string line;
        for (size_t i = 0; i < row.size (); i++) {
            line += widths[i] > 0 ? row[i] + std::string (widths[i] - width_of (row[i]), ' ') : "";
        }
        line.erase (line.find_last_not_of (' ') + 1);
        lines.push_back (cut (line, width));
    }
    return lines;
}

std::string joined (const std::vector<std::string> &lines)
{
    std::string text;
    for (const std::string &line : lines) {
        text += line + "\n";
    }
    return text;
}
