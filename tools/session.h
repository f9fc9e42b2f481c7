// One batch between the command line and the daemon: the requests, and what became of them.
#pragma once

#include "scan/q5_scan_client.h"
#include "tools/output.h"
#include "tools/report.h"

#include <stdint.h>
#include <string>
#include <vector>

// Whom to talk to, and as whom.
struct target_t {
    std::string host = "127.0.0.1"; // name or dotted IPv4 address, shorter than KP_HOST_SIZE
    int32_t port = Q5_SCAN_PORT;
    int32_t id = 2;
};

// Throws failure_t for a host or port that cannot be one.
void check_target (const target_t &target);

struct request_t {
    int32_t slot = 0;
    int32_t command = 0;
    int32_t rxlen = 0; // bytes wanted back
    bytes_t tx;
    int32_t result = 0; // output, with `rx`, once the request is answered
    bytes_t rx;
};

request_t claim_request ();
request_t release_request ();
// The short message: `first`, `second` and at most most_short_bytes more.
constexpr size_t most_short_bytes = 27;
request_t short_request (int32_t slot, uint8_t first, uint8_t second, const bytes_t &bytes);
// What a request asks for unless it says so: everything, and of the daemon itself nothing.
int32_t usual_rxlen (int32_t command);

// What became of a batch. The records from `answered` on hold nothing.
struct exchange_t {
    int32_t answered = 0;
    std::optional<failure_t> failure; // unless every request was answered
};

// Sends checked records of `client` (see q5_scan_client_t::check_batch) as one batch.
exchange_t exchange_records (q5_scan_client_t &client, std::vector<q5_scan_command_t> &commands);

// Sends the requests as one batch and fills in result and data of those that were answered. Throws
// exception_t, before anything is sent, when the daemon would refuse the batch.
exchange_t exchange_requests (const target_t &target, std::vector<request_t> &requests);

// The same, reported request by request.
report_t run_requests (const target_t &target, std::vector<request_t> requests);
