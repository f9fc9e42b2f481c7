#include "tools/images.h"

#include "net/exception.h"
#include "scan/q5_scan_client.h"
#include "tools/files.h"
#include "tools/output.h"

#include <algorithm>
#include <stdio.h>
#include <string.h>
#include <string_view>
#include <vector>

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

// Takes apart what stands at the front of `image`, "Type: " to begin with. Returns what is wrong
// with it; "" when it is an identity.
static std::string take_identity (std::string_view image, identity_t *found)
{
    // As much of it as tells a text that is too long, and the two bytes that find_version wants.
    std::string text (image.substr (0, most_text + 1));
    int32_t size = static_cast<int32_t> (text.size ());
    text.append (2, '\0');
    std::vector<char> version (text.size ()), line (text.size ());
    images.find_version (text.data (), size, version.data ());
    if (strlen (version.data ()) > most_text) {
        return "carries \"Type: \", but no build identity behind it";
    }
    try {
        found->type = images.version_type (version.data (), line.data ());
        found->date = images.version_date (version.data (), line.data ());
    } catch (exception_t &) {
        return "carries a type, but no build date";
    }
    return is_date (found->date) ? ""
                                 : "carries a build date that is none: " + printable (found->date);
}

// The mark may also stand in a text of the program itself, before the identity.
static identity_t read_identity (const std::string &path)
{
    file_bytes_t file = read_file (path, most_image);
    std::string_view image (file.bytes.get (), file.size);
    std::string problem;
    for (size_t at = 0; (at = image.find (mark, at)) != image.npos; at += mark.size ()) {
        identity_t found;
        std::string reason = take_identity (image.substr (at), &found);
        if (reason.empty ()) {
            return found;
        }
        problem = problem.empty () ? reason : problem;
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
    for (size_t at = 0; at < whole && !ferror (stdout); at += bytes_at_once) {
        images.dump (bytes + at, static_cast<int32_t> (std::min (bytes_at_once, whole - at)));
    }
    if (whole < size) {
        fputs (partial_line (bytes + whole, size - whole).c_str (), stdout);
    }
}

static void dump_json (const std::string &path, const uint8_t *bytes, size_t size)
{
    report_t report;
    report.json["file"] = path;
    report.json["size"] = size;
    std::string line = json_line ({"dump"}, report);
    line.resize (line.rfind ('}'));
    fputs ((line + ",\"data_hex\":\"").c_str (), stdout);
    for (size_t at = 0; at < size && !ferror (stdout); at += bytes_at_once) {
        fputs (hex_digits (bytes + at, std::min (bytes_at_once, size - at)).c_str (), stdout);
    }
    puts ("\"}");
}

report_t dump (const std::string &path, bool as_json)
{
    file_bytes_t file = read_file (path, most_image);
    const uint8_t *bytes = reinterpret_cast<const uint8_t *> (file.bytes.get ());
    if (as_json) {
        dump_json (path, bytes, file.size);
    } else {
        dump_lines (bytes, file.size);
    }
    report_t report;
    report.printed = true;
    return report;
}
