#include "tools/command/command.h"

static report_t claim (const globals_t &globals)
{
    report_t report = run_requests (globals, {q5_scan_claim_request ()});
    if (report.status == status_ok && !globals.has_id) {
        report.note = "programs that set no id also use id 2, so this claim does not exclude "
                      "them: give --id ID, or use q5_scan hold";
    }
    return report;
}

void add_claim (command_line_t &line)
{
    const globals_t &globals = line.globals;
    add_command (line, "claim", "take the bus: batches of other ids are dropped until the release",
                 [&globals] () { return claim (globals); });
    add_command (line, "release", "give the bus back",
                 [&globals] () { return run_requests (globals, {q5_scan_release_request ()}); });
}
