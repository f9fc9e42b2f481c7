#include "tools/session.h"

#include "tools/parse/parse.h"
#include "tools/show/results.h"

#include <set>
#include <stdio.h>

constexpr size_t longest_host = 299;

origin_t origin_of (const std::string &command, const globals_t &globals)
{
    return {command, {{"host", globals.settings.host}, {"port", globals.settings.port}}};
}

void take_place (const std::string &text, q5_scan_settings_t &settings)
{
    size_t colon = text.rfind (':');
    settings.host = text.substr (0, colon);
    if (settings.host.empty () || settings.host.size () > longest_host) {
        usage_failure ("the host has " + std::to_string (settings.host.size ()) + " characters",
                       "Give HOST or HOST:PORT; HOST is a name or a dotted IPv4 address of at most "
                       "299 characters.");
    }
    if (colon != text.npos) {
        settings.port =
            parse_number ("port of " + printable (text), text.substr (colon + 1), 1, 65535);
    }
}

void bound (q5_scan_settings_t &settings)
{
    bool is_bounded = settings.total_timeout.count () > 0;
    settings.total_timeout = is_bounded ? settings.total_timeout : std::chrono::seconds (10);
}

std::string place_of (const q5_scan_settings_t &settings)
{
    return settings.host + ":" + std::to_string (settings.port);
}

std::vector<q5_scan_settings_t> chassis_of (const globals_t &globals,
                                            const std::vector<std::string> &hosts)
{
    std::vector<q5_scan_settings_t> chassis;
    std::set<std::string> places;
    for (const std::string &host : hosts) {
        q5_scan_settings_t settings = globals.settings;
        take_place (host, settings);
        if (places.insert (place_of (settings)).second) {
            chassis.push_back (settings);
        }
    }
    return hosts.empty () ? std::vector<q5_scan_settings_t>{globals.settings} : chassis;
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
        return "Check that q5_scand runs there, and --host and --port; q5_scan doctor finds out "
               "more.";
    case q5_scan_state_t::dropped:
        return "Wait until the holder releases the bus (--wait SECONDS), or be the holder with "
               "--id ID. If the bus is free, read the log of q5_scand.";
    default:
        return "Later requests may or may not have run. Check that q5_scand still runs.";
    }
}

failure_t failure_of (const q5_scan_outcome_t &outcome)
{
    if (outcome.state == q5_scan_state_t::cancelled) {
        return {status_interrupted,
                "interrupted after " + std::to_string (outcome.num_replies) + " replies",
                "Later requests may or may not have run."};
    }
    bool is_dropped = outcome.state == q5_scan_state_t::dropped;
    return {is_dropped ? status_dropped : status_no_connection, outcome.text,
            advice_for (outcome.state)};
}

// The whole exchange, until Ctrl-C; the requests say what was answered.
static report_t exchange (const globals_t &globals, std::vector<q5_scan_request_t> &requests,
                          const q5_scan_on_reply_t &on_reply)
{
    interruptible_t session (globals);
    q5_scan_outcome_t outcome = q5_scan_exchange (session.settings, requests, on_reply);
    return outcome.answered () ? report_t () : report_of (failure_of (outcome));
}

report_t run_requests (const globals_t &globals, std::vector<q5_scan_request_t> requests)
{
    report_t report = exchange (globals, requests, [&globals] (q5_scan_request_t &request) {
        if (!globals.as_json) {
            fputs (text_of (request, globals.settings.id).c_str (), stdout);
            fflush (stdout);
        }
    });
    report.json["requests"] = json_t::array ();
    for (const q5_scan_request_t &request : requests) {
        if (request.answered) {
            report.json["requests"].push_back (json_of (request));
            bool is_worst = q5_scan_has_failed (request) && !report.failure;
            report.status = is_worst ? status_failed : report.status;
        }
    }
    return report;
}

report_t run_raw (const globals_t &globals, const q5_scan_request_t &request)
{
    if (globals.as_json) {
        usage_failure ("--raw and --json cannot be combined", "Give one of them.");
    }
    std::vector<q5_scan_request_t> requests = {request};
    report_t report = exchange (globals, requests, {});
    const q5_scan_request_t &reply = requests.front ();
    if (q5_scan_has_failed (reply)) {
        q5_scan_meaning_t m = q5_scan_describe (reply);
        return report_of ({status_failed,
                           "failed (" + std::to_string (reply.result) + "), " + m.meaning,
                           "Look at: " + m.look_at});
    }
    fwrite (reply.rx.data (), 1, reply.rx.size (), stdout);
    return report;
}
