#include "chassis/file/file_limits.h"

#include "chassis/file/chassis_file_error.h"

#include <algorithm>
#include <ctype.h>
#include <stdint.h>

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

// Whether a section's brackets that begin here lack a key. What the parser itself reports passes.
static bool lacks_key (const std::string &text, size_t at)
{
    at += text.compare (at, 2, "[[") == 0 ? 2 : 1;
    at = text.find_first_not_of (" \t", at);
    return at != std::string::npos && !isalnum (static_cast<uint8_t> (text[at])) &&
           std::string ("-_\"']").find (text[at]) == std::string::npos;
}

void check_outline (const std::string &text, const std::string &name)
{
    int brackets = 0, dots = 0;
    bool begins_line = true;
    auto check = [&] (size_t at, bool fits, const std::string &why) {
        if (!fits) {
            auto line = std::count (text.begin (), text.begin () + static_cast<long> (at), '\n');
            throw chassis_file_error_t (name + ":" + std::to_string (line + 1) + ": TOML: found " +
                                        why);
        }
    };
    const std::string byte_order_mark = "\xEF\xBB\xBF";
    bool is_marked = text.compare (0, byte_order_mark.size (), byte_order_mark) == 0;
    for (size_t at = is_marked ? byte_order_mark.size () : 0; at < text.size ();) {
        char c = text[at];
        check (at, static_cast<uint8_t> (c) < 0x80,
               "a character that is not ASCII, expected it in quotes or comments only");
        check (at, !(c == '[' && begins_line && brackets == 0 && lacks_key (text, at)),
               "no key in the brackets, expected a section, as [[card]]");
        brackets += c == '[' || c == '{';
        brackets -= (c == ']' || c == '}') && brackets > 0;
        dots = c == '.' ? dots + 1 : std::string ("[]{},=\n").find (c) < 7 ? 0 : dots;
        begins_line = c == '\n' || (begins_line && (c == ' ' || c == '\t'));
        check (at, brackets <= max_nesting && dots < max_nesting,
               "more than " + std::to_string (max_nesting) +
                   " levels, expected three at most, as in card.answer.hex");
        at = c == '#'                ? end_of_comment (text, at)
             : c == '"' || c == '\'' ? end_of_quotes (text, at)
                                     : at + 1;
    }
}
