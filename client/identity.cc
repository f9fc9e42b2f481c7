#include "client/identity.h"

#include "scan/q5_scan_client.h"

#include <algorithm>
#include <array>
#include <errno.h>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

using std::string_view;

constexpr size_t most_text = 1000;        // characters of an identity
constexpr size_t bytes_at_once = 1 << 18; // of a file
constexpr string_view type_mark = "Type: ";
constexpr string_view date_mark = "Compiled on:\n";

using date_t = std::array<int32_t, 6>; // year, month, day, hour, minute, second

// All 0 for a text that is not a date.
static date_t date_of (const std::string &text)
{
    static const q5_scan_client_t parser ("", 0);
    int32_t month, day, year, hour, minute, second;
    try {
        parser.parse_date (text.c_str (), &month, &day, &year, &hour, &minute, &second);
    } catch (exception_t &) {
        return {};
    }
    return month == 0 ? date_t{} : date_t{year, month, day, hour, minute, second};
}

// The four strings at the front of the bytes, as lines; the end of the bytes ends a string too.
static std::string lines_of (string_view bytes)
{
    std::string lines;
    for (int line = 0; line < 4; line++) {
        string_view string = bytes.substr (0, bytes.find ('\0'));
        lines += (line > 0 ? "\n" : "") + std::string (string);
        bytes.remove_prefix (std::min (string.size () + 1, bytes.size ()));
    }
    return lines;
}

// Takes the line at the front, and leaves what follows its end.
static std::string take_line (string_view &text)
{
    std::string line (text.substr (0, text.find ('\n')));
    text.remove_prefix (std::min (line.size () + 1, text.size ()));
    return line;
}

// Reads the identity that begins with the "Type: " at the front of the bytes.
static q5_scan_identity_t identity_of (string_view bytes)
{
    q5_scan_identity_t identity;
    std::string lines = lines_of (bytes.substr (0, most_text + 1));
    if (lines.size () > most_text) {
        identity.problem = "has \"Type: \", but no build identity after it";
        return identity;
    }
    string_view text = lines;
    size_t date_at = text.find (date_mark);
    if (date_at == text.npos) {
        identity.problem = "has a type, but no build date";
        return identity;
    }
    string_view date = text.substr (date_at + date_mark.size ());
    text.remove_prefix (type_mark.size ());
    identity.type = take_line (text);
    identity.date = take_line (date);
    identity.date += " " + take_line (date);
    if (date_of (identity.date)[0] == 0) {
        identity.problem = "has an invalid build date: " + identity.date;
    }
    return identity;
}

namespace {

// The search through bytes that arrive piece by piece.
struct search_t {
    std::string window; // what has arrived and is not searched yet
    q5_scan_identity_t result = {"", "", "contains no build identity"};
    bool has_mark = false; // the result is about the first one

    // Looks at the marks that begin before `end` of the window, which is dropped up to there: one
    // may also be in a text of the program itself, before the identity. Whether one was found.
    bool advance (size_t end);
};

} // namespace

bool search_t::advance (size_t end)
{
    const string_view bytes = window;
    for (size_t at = 0; (at = bytes.find (type_mark, at)) < end; at += type_mark.size ()) {
        q5_scan_identity_t identity = identity_of (bytes.substr (at));
        if (identity.found () || !has_mark) {
            result = identity;
            has_mark = true;
        }
        if (identity.found ()) {
            return true;
        }
    }
    window.erase (0, end);
    return false;
}

q5_scan_identity_t q5_scan_find_identity (string_view bytes)
{
    search_t search = {std::string (bytes)};
    search.advance (bytes.size ());
    return search.result;
}

static q5_scan_identity_t unreadable (int error)
{
    q5_scan_identity_t identity;
    identity.problem = "cannot be read: " + std::generic_category ().message (error);
    identity.error = error;
    return identity;
}

q5_scan_identity_t q5_scan_read_identity (int fd)
{
    search_t search;
    ssize_t r;
    do {
        size_t before = search.window.size ();
        search.window.resize (before + bytes_at_once);
        while ((r = read (fd, &search.window[before], bytes_at_once)) < 0 && errno == EINTR) {
        }
        if (r < 0) {
            return unreadable (errno);
        }
        search.window.resize (before + r);
        // An identity that begins before this is in the window as a whole, or ends with the file.
        size_t kept = r > 0 ? std::min (most_text, search.window.size ()) : 0;
        if (search.advance (search.window.size () - kept)) {
            break;
        }
    } while (r > 0);
    return search.result;
}

q5_scan_identity_t q5_scan_read_identity (const std::string &path)
{
    int fd = open (path.c_str (), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return unreadable (errno);
    }
    q5_scan_identity_t identity = q5_scan_read_identity (fd);
    close (fd);
    return identity;
}

int32_t q5_scan_compare_builds (const q5_scan_identity_t &a, const q5_scan_identity_t &b)
{
    date_t first = date_of (a.date), second = date_of (b.date);
    return first < second ? -1 : second < first;
}
