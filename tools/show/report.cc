#include "tools/show/report.h"

#include "tools/show/output.h"

#include <chrono>
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

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
    case status_interrupted:
        return "interrupted";
    default:
        return "failed";
    }
}

json_t json_of (const failure_t &failure)
{
    return {
        {"kind", kind_of (failure.status)}, {"message", failure.what}, {"advice", failure.advice}};
}

std::string time_text ()
{
    using namespace std::chrono;
    auto now = system_clock::now ();
    time_t seconds = system_clock::to_time_t (now);
    int fraction = duration_cast<milliseconds> (now.time_since_epoch ()).count () % 1000;
    tm parts = {};
    gmtime_r (&seconds, &parts);
    char day[32], text[40];
    strftime (day, sizeof (day), "%Y-%m-%dT%H:%M:%S", &parts);
    snprintf (text, sizeof (text), "%s.%03dZ", day, fraction);
    return text;
}

std::string json_line (const origin_t &origin, const report_t &report)
{
    json_t object;
    object["command"] = origin.command.empty () ? json_t () : json_t (origin.command);
    object["ok"] = report.status == status_ok;
    object["exit_status"] = report.status;
    object["time"] = time_text ();
    if (!report.json.contains ("hosts")) {
        object.update (origin.place);
    }
    object.update (report.json);
    if (!report.note.empty ()) {
        object["note"] = report.note;
    }
    if (report.failure) {
        object["error"] = json_of (*report.failure);
    }
    // Only ASCII: a terminal may obey other control characters too.
    return object.dump (-1, ' ', true, json_t::error_handler_t::replace) + "\n";
}

static int flush_output (int status)
{
    if ((fflush (stdout) == 0 && !ferror (stdout)) || errno == EPIPE) {
        return status;
    }
    fprintf (stderr, "q5_scan: the output cannot be written: %s\n", strerror (errno));
    return status == status_ok ? status_failed : status;
}

static void complain (const report_t &report)
{
    if (!report.note.empty ()) {
        fprintf (stderr, "q5_scan: note: %s\n", printable (report.note).c_str ());
    }
    if (report.failure) {
        fprintf (stderr, "q5_scan: %s\n", printable (report.failure->what).c_str ());
        if (!report.failure->advice.empty ()) {
            fprintf (stderr, "  %s\n", printable (report.failure->advice).c_str ());
        }
    }
}

int print (const origin_t &origin, const report_t &report, bool as_json)
{
    if (as_json && !report.printed) {
        fputs (json_line (origin, report).c_str (), stdout);
    } else if (!as_json) {
        fputs (report.text.c_str (), stdout);
    }
    int status = flush_output (report.status);
    if (!as_json || report.printed) {
        complain (report);
    }
    return status;
}
