#include "tools/session.h"

#include "net/kp_server.h"
#include "tools/results.h"

void check_host (const std::string &host)
{
    if (host.empty () || host.size () >= KP_HOST_SIZE) {
        usage_failure ("the host has " + std::to_string (host.size ()) + " characters",
                       "Give --host a name or a dotted IPv4 address of at most 299 characters.");
    }
}

int32_t usual_rxlen (int32_t command)
{
    bool is_daemons_own = command == Q5_SCAN_CLAIM || command == Q5_SCAN_RELEASE;
    return is_daemons_own ? 0 : Q5_SCAN_MAX_RX;
}

static std::string advice_for (q5_scan_state_t state)
{
    switch (state) {
    case q5_scan_state_t::unknown_host:
        return "Give --host an IPv4 address, or a name that resolves to one.";
    case q5_scan_state_t::no_connection:
    case q5_scan_state_t::timed_out_connecting:
        return "See whether q5_scand runs there, and whether --host and --port name it.";
    case q5_scan_state_t::dropped:
        return "Wait until the holder releases the bus, or be the holder with --id ID. If nobody "
               "holds it, see whether q5_scand still runs and what it said.";
    case q5_scan_state_t::cancelled:
        return "";
    default:
        return "The requests behind those may have run or not. See whether q5_scand still runs.";
    }
}

failure_t failure_of (const q5_scan_outcome_t &outcome)
{
    bool is_dropped = outcome.state == q5_scan_state_t::dropped;
    return {is_dropped ? status_dropped : status_no_connection, outcome.text,
            advice_for (outcome.state)};
}

report_t run_requests (const q5_scan_settings_t &settings, std::vector<q5_scan_request_t> requests)
{
    q5_scan_outcome_t outcome = q5_scan_exchange (settings, requests);
    report_t report;
    report.json["requests"] = json_t::array ();
    for (const q5_scan_request_t &request : requests) {
        if (request.answered) {
            report.text += text_of (request, settings.id);
            report.json["requests"].push_back (json_of (request));
            report.status = request.result < 0 ? status_failed : report.status;
        }
    }
    if (!outcome.answered ()) {
        report.failure = failure_of (outcome);
        report.status = report.failure->status;
    }
    return report;
}
