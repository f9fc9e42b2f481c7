#include "tools/parse/identity.h"

#include "net/exception.h"
#include "scan/q5_scan_client.h"
#include "tools/parse/files.h"
#include "tools/show/output.h"
#include "tools/show/report.h"

#include <algorithm>
#include <string.h>

constexpr size_t most_text = 1000; // characters of an identity text
constexpr std::string_view mark = "Type: ";

// These operations use neither host nor port.
static const q5_scan_client_t images ("", 0);

[[noreturn]] static void no_identity (const std::string &path, const std::string &what)
{
    throw failure_t{status_failed, path + " " + what,
                    "An image carries the texts \"Type: ...\", \"Compiled on:\", a date and a "
                    "time, each ended by a NUL."};
}

// Whether it has all six parts. A month that is none would be earlier than every other.
static bool is_date (const std::string &date)
{
    try {
        int32_t month, day, year, hour, minute, second;
        images.parse_date (date.c_str (), &month, &day, &year, &hour, &minute, &second);
        return month != 0;
    } catch (exception_t &) {
        return false;
    }
}

// How much of `image` the identity at its front takes: four strings, or too much.
static size_t identity_size (std::string_view image)
{
    size_t size = 0;
    for (int line = 0; line < 4 && size <= image.size (); line++) {
        size = std::min (image.find ('\0', size), image.size ()) + 1;
    }
    return size - 1;
}

// Takes apart what stands at the front of `image`, "Type: " to begin with. Returns what is wrong
// with it; "" when it is an identity.
static std::string take_identity (std::string_view image, identity_t *found)
{
    // As much of it as tells a text that is too long, and the two bytes that find_version wants.
    size_t size = identity_size (image.substr (0, most_text + 1));
    char text[most_text + 3], version[most_text + 3], line[most_text + 3];
    if (size <= most_text) {
        memcpy (text, image.data (), size);
        memset (text + size, 0, 2);
        images.find_version (text, static_cast<int32_t> (size), version);
    }
    if (size > most_text || strlen (version) > most_text) {
        return "carries \"Type: \", but no build identity behind it";
    }
    if (!strstr (version, "Compiled on:\n")) {
        return "carries a type, but no build date";
    }
    found->type = images.version_type (version, line);
    found->date = images.version_date (version, line);
    return is_date (found->date) ? ""
                                 : "carries a build date that is none: " + printable (found->date);
}

// Looks at the marks that begin before `end`: one may also stand in a text of the program itself,
// before the identity. Returns whether there is an identity; else leaves the reason of the first
// mark, and how far it looked.
static bool find_before (size_t end, std::string_view window, identity_t *found,
                         std::string *problem, size_t *passed)
{
    *passed = end;
    for (size_t at = 0; (at = window.find (mark, at)) < end; *passed = std::max (end, at)) {
        std::string reason = take_identity (window.substr (at), found);
        if (reason.empty ()) {
            return true;
        }
        *problem = problem->empty () ? reason : *problem;
        at += mark.size ();
    }
    return false;
}

static std::string or_nothing (const std::string &problem)
{
    return problem.empty () ? "carries no build identity" : problem;
}

identity_t read_identity (const std::string &path)
{
    file_window_t file (path, most_image);
    std::string problem;
    std::string_view window;
    while (!(window = file.view (most_text + 1)).empty ()) {
        // An identity that begins before this is in view as a whole, or ends with the file.
        size_t whole = window.size () > most_text ? window.size () - most_text : window.size ();
        size_t passed = 0;
        identity_t found;
        if (find_before (whole, window, &found, &problem, &passed)) {
            file.pass_all ();
            return found;
        }
        file.pass (passed);
    }
    no_identity (shown_name (path), or_nothing (problem));
}

std::string find_identity (std::string_view bytes, identity_t *found)
{
    std::string problem;
    size_t passed = 0;
    bool is_found = find_before (bytes.size (), bytes, found, &problem, &passed);
    return is_found ? "" : or_nothing (problem);
}

int32_t compare_builds (const identity_t &a, const identity_t &b)
{
    return images.compare_dates (a.date.c_str (), b.date.c_str ());
}
