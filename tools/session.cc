#include "tools/session.h"

#include "tools/results.h"

#include <algorithm>
#include <errno.h>
#include <netdb.h>
#include <string.h>
#include <unistd.h>

void check_target (const target_t &target)
{
    if (target.host.empty () || target.host.size () >= KP_HOST_SIZE) {
        usage_failure ("the host has " + std::to_string (target.host.size ()) + " characters",
                       "Give --host a name or a dotted IPv4 address of at most 299 characters.");
    }
}

request_t claim_request ()
{
    request_t request;
    request.command = Q5_SCAN_CLAIM;
    return request;
}

request_t release_request ()
{
    request_t request;
    request.command = Q5_SCAN_RELEASE;
    return request;
}

// The client's own send_short keeps the result of the request to itself.
request_t short_request (int32_t slot, uint8_t first, uint8_t second, const bytes_t &bytes)
{
    request_t request;
    request.slot = slot;
    request.command = Q5_SCAN_SEND_SHORT;
    request.tx = bytes;
    request.tx.insert (request.tx.begin (), {first, second});
    return request;
}

int32_t usual_rxlen (int32_t command)
{
    bool is_daemons_own = command == Q5_SCAN_CLAIM || command == Q5_SCAN_RELEASE;
    return is_daemons_own ? 0 : Q5_SCAN_MAX_RX;
}

static std::string place_of (const q5_scan_client_t &client)
{
    return std::string (client.host) + " port " + std::to_string (client.port);
}

static failure_t no_connection (const q5_scan_client_t &client, int reason, int resolver_reason)
{
    if (resolver_reason != 0) {
        return {status_no_connection,
                std::string ("the host '") + client.host +
                    "' is not known: " + hstrerror (resolver_reason),
                "Give --host an IPv4 address, or a name that resolves to one."};
    }
    return {status_no_connection,
            "no connection to " + place_of (client) + ": " + strerror (reason),
            "See whether q5_scand runs there, and whether --host and --port name it."};
}

static failure_t dropped (const q5_scan_client_t &client)
{
    return {status_dropped,
            "the daemon at " + place_of (client) +
                " dropped the batch unanswered: as a rule another id holds the bus (this batch "
                "went out as id " +
                std::to_string (client.client_id) + ")",
            "Wait until the holder releases the bus, or be the holder with --id ID. If nobody "
            "holds it, see whether q5_scand still runs and what it said."};
}

static failure_t broken_off (const q5_scan_client_t &client, int32_t answered, size_t asked)
{
    return {status_no_connection,
            "the daemon at " + place_of (client) + " closed the connection after " +
                std::to_string (answered) + " of " + std::to_string (asked) + " replies",
            "The requests behind those may have run or not. See whether q5_scand still runs."};
}

exchange_t exchange_records (q5_scan_client_t &client, std::vector<q5_scan_command_t> &commands)
{
    errno = 0;
    h_errno = 0;
    int32_t fd = client.connect_to (client.host, client.port);
    if (fd < 0) {
        return {0, no_connection (client, errno, h_errno)};
    }
    int32_t size = static_cast<int32_t> (commands.size ());
    exchange_t done;
    int32_t answered = client.exchange_batch (fd, size, commands.data ());
    close (fd);
    done.answered = std::max (answered, 0);
    if (answered < 0) {
        done.failure = dropped (client);
    } else if (answered < size) {
        done.failure = broken_off (client, answered, commands.size ());
    }
    return done;
}

static q5_scan_command_t record_of (request_t &request)
{
    request.rx.resize (request.rxlen);
    q5_scan_command_t c = {};
    c.command = request.command;
    c.slot = request.slot;
    c.txlen = static_cast<int32_t> (request.tx.size ());
    c.rxlen = request.rxlen;
    c.txbuf = request.tx.data ();
    c.rxbuf = request.rx.data ();
    return c;
}

exchange_t exchange_requests (const target_t &target, std::vector<request_t> &requests)
{
    q5_scan_client_t client (target.host.c_str (), target.port);
    client.client_id = target.id;
    std::vector<q5_scan_command_t> commands;
    for (request_t &request : requests) {
        commands.push_back (record_of (request));
    }
    client.check_batch (static_cast<int32_t> (commands.size ()), commands.data ());

    exchange_t done = exchange_records (client, commands);
    for (int32_t i = 0; i < done.answered; i++) {
        requests[i].result = commands[i].result;
        requests[i].rx.resize (std::clamp (commands[i].result, 0, requests[i].rxlen));
    }
    return done;
}

report_t run_requests (const target_t &target, std::vector<request_t> requests)
{
    exchange_t done = exchange_requests (target, requests);
    report_t report;
    report.failure = done.failure;
    report.json["requests"] = json_t::array ();
    for (int32_t i = 0; i < done.answered; i++) {
        report.text += text_of (requests[i], target.id);
        report.json["requests"].push_back (json_of (requests[i]));
        if (requests[i].result < 0) {
            report.status = status_failed;
        }
    }
    if (done.failure) {
        report.status = done.failure->status;
    }
    return report;
}
