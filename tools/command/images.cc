#include "tools/command/images.h"

#include "tools/parse/files.h"
#include "tools/parse/identity.h"
#include "tools/show/output.h"

#include <stdio.h>
#include <string_view>

constexpr size_t most_image = size_t (256) << 20; // bytes
constexpr size_t bytes_at_once = 1 << 16;         // of a dump, before the output is looked at again

static json_t json_of (const std::string &path, const q5_scan_identity_t &found)
{
    return {{"file", path}, {"type", found.type}, {"date", found.date}};
}

report_t identity (const std::string &path)
{
    q5_scan_identity_t found = read_identity (path);
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
    q5_scan_identity_t a = read_identity (first);
    q5_scan_identity_t b = read_identity (second);
    int32_t order = q5_scan_compare_builds (a, b);

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

// What the library's own dump would leave out, an incomplete last line, stands here as in every
// other output of bytes.
static void dump_lines (const bytes_t &bytes, size_t offset)
{
    fputs (hex_lines (bytes, offset, "").c_str (), stdout);
}

static void dump_digits (const bytes_t &bytes, size_t)
{
    fputs (hex_digits (bytes.data (), bytes.size ()).c_str (), stdout);
}

// Until the end, or until nobody takes the output.
static void dump_with (void (*dump_bytes) (const bytes_t &, size_t), file_window_t *file)
{
    std::string_view piece;
    size_t offset = 0;
    while (!ferror (stdout) && !(piece = file->view (bytes_at_once)).empty ()) {
        piece = piece.substr (0, bytes_at_once);
        dump_bytes (bytes_t (piece.begin (), piece.end ()), offset);
        offset += piece.size ();
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
