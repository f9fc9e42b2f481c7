#include "chassis/file/file_limits.h"

#include "chassis/file/chassis_file_error.h"

#include <algorithm>
#include <stdint.h>
#include <string.h>

// Where the text in quotes that begins here ends. One that never ends is left to the parser.
static size_t end_of_quotes (const std::string &text, size_t at)
{
    char quote = text[at];
    bool is_long = text.compare (at, 3, std::string (3, quote)) == 0;
    const std::string mark (is_long ? 3 : 1, quote);
    for (at += mark.size (); at < text.size (); at++) {
        if (text[at] == '\\' && quote == '"') {
            at++;
        } else if (text[at] == '\n' && !is_long) {
            return at;
        } else if (text.compare (at, mark.size (), mark) == 0) {
            size_t after = text.find_first_not_of (quote, at); // a long text may end in quotes
            return is_long ? std::min (after, at + 5) : at + 1;
        }
    }
    return text.size ();
}

static size_t end_of_comment (const std::string &text, size_t at)
{
    return std::min (text.find ('\n', at), text.size ());
}

void check_outline (const std::string &text, const std::string &name)
{
    int brackets = 0, dots = 0;
    auto check = [&] (size_t at, bool fits, const char *why) {
        if (!fits) {
            auto line = std::count (text.begin (), text.begin () + static_cast<long> (at), '\n');
            throw chassis_file_error_t (name + ":" + std::to_string (line + 1) + ": TOML: found " +
                                        why);
        }
    };
    const std::string too_deep = "more than " + std::to_string (max_nesting) +
                                 " levels, expected three at most, as in card.answer.hex";
    const std::string byte_order_mark = "\xEF\xBB\xBF";
    bool is_marked = text.compare (0, byte_order_mark.size (), byte_order_mark) == 0;
    for (size_t at = is_marked ? byte_order_mark.size () : 0; at < text.size ();) {
        char c = text[at];
        check (at, static_cast<uint8_t> (c) < 0x80,
               "a character that is not ASCII, expected it in quotes or comments only");
        bool is_quote = c == '"' || c == '\'';
        check (at, !is_quote || at == 0 || strchr (" \t\r\n=[{,.\xBF", text[at - 1]) != nullptr,
               "a quote in the middle of a word, expected it at the beginning");
        brackets += c == '[' || c == '{';
        brackets -= (c == ']' || c == '}') && brackets > 0;
        dots = c == '.' ? dots + 1 : std::string ("[]{},=\n").find (c) < 7 ? 0 : dots;
        check (at, brackets <= max_nesting && dots < max_nesting, too_deep.c_str ());
        at = c == '#' ? end_of_comment (text, at) : is_quote ? end_of_quotes (text, at) : at + 1;
    }
}
