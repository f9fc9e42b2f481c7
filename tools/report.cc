#include "tools/report.h"

#include "tools/output.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

void usage_failure (const std::string &what, const std::string &advice)
{
    throw failure_t{status_usage, what, advice};
}

report_t report_of (const failure_t &failure)
{
    report_t report;
    report.status = failure.status;
    report.failure = failure;
    return report;
}

static const char *kind_of (int status)
{
    switch (status) {
    case status_usage:
        return "usage";
    case status_no_connection:
        return "no connection";
    case status_dropped:
        return "dropped";
    default:
        return "failed";
    }
}

std::string json_line (const std::string &command, const report_t &report)
{
    json_t object;
    object["command"] = command.empty () ? json_t () : json_t (command);
    object["ok"] = report.status == status_ok;
    object["exit_status"] = report.status;
    object.update (report.json);
    if (report.failure) {
        object["error"] = {{"kind", kind_of (report.failure->status)},
                           {"message", report.failure->what},
                           {"advice", report.failure->advice}};
    }
    return object.dump (-1, ' ', false, json_t::error_handler_t::replace) + "\n";
}

static int flush_output (int status)
{
    if ((fflush (stdout) == 0 && !ferror (stdout)) || errno == EPIPE) {
        return status;
    }
    fprintf (stderr, "q5_scan: the output cannot be written: %s\n", strerror (errno));
    return status == status_ok ? status_failed : status;
}

int print (const std::string &command, const report_t &report, bool as_json)
{
    if (as_json && !report.printed) {
        fputs (json_line (command, report).c_str (), stdout);
    } else if (!as_json) {
        fputs (report.text.c_str (), stdout);
    }
    int status = flush_output (report.status);
    if (report.failure && !as_json) {
        fprintf (stderr, "q5_scan: %s\n", printable (report.failure->what).c_str ());
        if (!report.failure->advice.empty ()) {
            fprintf (stderr, "  %s\n", printable (report.failure->advice).c_str ());
        }
    }
    return status;
}
