#include "chassis/file/file_limits.h"

#include "chassis/file/chassis_file_error.h"

#include <algorithm>

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
            size_t behind = text.find_first_not_of (quote, at); // a long text may end in quotes
            return is_long ? std::min (behind, at + 5) : at + 1;
        }
    }
    return text.size ();
}

static size_t end_of_comment (const std::string &text, size_t at)
{
    return std::min (text.find ('\n', at), text.size ());
}

void check_nesting (const std::string &text, const std::string &name)
{
    int brackets = 0, dots = 0;
    for (size_t at = 0; at < text.size ();) {
        char c = text[at];
        brackets += c == '[' || c == '{';
        brackets -= (c == ']' || c == '}') && brackets > 0;
        dots = c == '.' ? dots + 1 : std::string ("[]{},=\n").find (c) < 7 ? 0 : dots;
        if (brackets > max_nesting || dots >= max_nesting) {
            auto line = std::count (text.begin (), text.begin () + static_cast<long> (at), '\n');
            throw chassis_file_error_t (name + ":" + std::to_string (line + 1) +
                                        ": TOML: found more than " + std::to_string (max_nesting) +
                                        " levels, expected three at most, as in card.answer.hex");
        }
        at = c == '#'                ? end_of_comment (text, at)
             : c == '"' || c == '\'' ? end_of_quotes (text, at)
                                     : at + 1;
    }
}
