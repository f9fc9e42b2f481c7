#include "tools/parse/identity.h"

#include "tools/parse/files.h"
#include "tools/show/output.h"
#include "tools/show/report.h"

#include <unistd.h>

q5_scan_identity_t read_identity (const std::string &path)
{
    q5_scan_identity_t found =
        path == "-" ? q5_scan_read_identity (STDIN_FILENO) : q5_scan_read_identity (path);
    if (found.error != 0) {
        usage_failure ((path == "-" ? shown_name (path) : "'" + path + "'") + " " + found.problem,
                       "Give the name of a file that you may read.");
    }
    if (!found.found ()) {
        throw failure_t{status_failed, shown_name (path) + " " + printable (found.problem),
                        "An image carries the texts \"Type: ...\", \"Compiled on:\", a date and a "
                        "time, each ended by a NUL."};
    }
    return found;
}
