#include "tools/images.h"

#include "net/exception.h"
#include "scan/q5_scan_client.h"
#include "tools/files.h"
#include "tools/output.h"

#include <algorithm>
#include <stdio.h>
#include <string.h>
#include <string_view>

constexpr size_t bytes_a_line = 16;
constexpr size_t bytes_at_once = 1 << 16; // of a dump, before the output is looked at again
constexpr size_t most_text = 1000;        // characters of an identity text
constexpr std::string_view mark = "Type: ";

struct identity_t {
    std::string type;
    std::string date;
};

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

// The mark may also stand in a text of the program itself, before the identity.
static identity_t read_identity (const std::string &path)
{
    file_window_t file (path, most_image);
    std::string problem;
    std::string_view window;
    while (!(window = file.view (most_text + 1)).empty ()) {
        // An identity that begins before this is in view as a whole, or ends with the file.
        size_t whole = window.size () > most_text ? window.size () - most_text : window.size ();
        size_t passed = whole;
        for (size_t at = 0; (at = window.find (mark, at)) < whole; passed = std::max (whole, at)) {
            identity_t found;
            std::string reason = take_identity (window.substr (at), &found);
            if (reason.empty ()) {
                file.pass_all ();
                return found;
            }
            problem = problem.empty () ? reason : problem;
            at += mark.size ();
        }
        file.pass (passed);
    }
    no_identity (shown_name (path), problem.empty () ? "carries no build identity" : problem);
}

static json_t json_of (const std::string &path, const identity_t &found)
{
    return {{"file", path}, {"type", found.type}, {"date", found.date}};
}

report_t identity (const std::string &path)
{
    identity_t found = read_identity (path);
    report_t report;
    report.text = "type: " + printable (found.type) + "\nbuilt: " + printable (found.date) + "\n";
    report.json = json_of (path, found);
    return report;
}

report_t newer (const std::string &first, const std::string &second)
{
    if (first == "-" && second == "-") {
        usage_failure ("both images are to come from standard input",
                       "Give the name of a file for one of them.");
    }
    identity_t a = read_identity (first);
    identity_t b = read_identity (second);
    int32_t order = images.compare_dates (a.date.c_str (), b.date.c_str ());

    report_t report;
    if (order == 0) {
        report.text = "same build date: " + printable (a.date) + "\n";
    } else {
        report.text = printable (order > 0 ? first : second) + " is newer: built " +
                      printable (order > 0 ? a.date : b.date) + ", the other " +
                      printable (order > 0 ? b.date : a.date) + "\n";
    }
    if (a.type != b.type) {
        report.text +=
            "note: the types differ: " + printable (a.type) + " and " + printable (b.type) + "\n";
    }
    report.json["newer"] = order > 0 ? "first" : order < 0 ? "second" : "same";
    report.json["images"] = {json_of (first, a), json_of (second, b)};
    return report;
}

std::string partial_line (const uint8_t *bytes, size_t size)
{
    std::string columns, text;
    for (const uint8_t *p = bytes; p < bytes + size; p++) {
        bool is_text =
            (*p >= '0' && *p <= '9') || (*p >= 'A' && *p <= 'Z') || (*p >= 'a' && *p <= 'z');
        columns += hex_digits (p, 1) + " ";
        text += std::string (1, is_text ? static_cast<char> (*p) : '.') + " ";
    }
    columns.resize (3 * bytes_a_line, ' ');
    return columns + "    " + text + "\n";
}

// The library deliberately shows an incomplete last line as blanks; nothing may be lost here, so it
// gets whole lines only.
static void dump_lines (const uint8_t *bytes, size_t size)
{
    size_t whole = size - size % bytes_a_line;
    if (whole > 0) {
        images.dump (bytes, static_cast<int32_t> (whole));
    }
    if (whole < size) {
        fputs (partial_line (bytes + whole, size - whole).c_str (), stdout);
    }
}

static void dump_digits (const uint8_t *bytes, size_t size)
{
    fputs (hex_digits (bytes, size).c_str (), stdout);
}

// Until the end, or until nobody takes the output.
static void dump_with (void (*dump_bytes) (const uint8_t *, size_t), file_window_t *file)
{
    std::string_view piece;
    while (!ferror (stdout) && !(piece = file->view (bytes_at_once)).empty ()) {
        piece = piece.substr (0, bytes_at_once);
        dump_bytes (reinterpret_cast<const uint8_t *> (piece.data ()), piece.size ());
        file->pass (piece.size ());
    }
}

static void dump_json (const std::string &path, size_t size, file_window_t *file)
{
    report_t report;
    report.json["file"] = path;
    report.json["size"] = size;
    std::string line = json_line ({"dump"}, report);
    line.resize (line.rfind ('}'));
    fputs ((line + ",\"data_hex\":\"").c_str (), stdout);
    dump_with (dump_digits, file);
    puts ("\"}");
}

report_t dump (const std::string &path, bool as_json)
{
    file_window_t file (path, most_image);
    size_t size = file.bytes_left (); // a pipe tells what is wrong with it only at its end
    if (as_json) {
        dump_json (path, size, &file);
    } else {
        dump_with (dump_lines, &file);
    }
    report_t report;
    report.printed = true;
    return report;
}
