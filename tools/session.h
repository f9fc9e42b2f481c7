// One batch between the command line and the daemon, as it is reported.
#pragma once

#include "scan/q5_scan_batch.h"
#include "tools/report.h"

#include <stdint.h>
#include <string>
#include <vector>

// Throws failure_t for a host that cannot be one.
void check_host (const std::string &host);

// What a request asks for unless it says so: everything, and of the daemon itself nothing.
int32_t usual_rxlen (int32_t command);

// How an outcome other than an answer is told.
failure_t failure_of (const q5_scan_outcome_t &outcome);

// Sends the requests as one batch and reports those that were answered. Throws exception_t, before
// anything is sent, when the daemon would refuse the batch.
report_t run_requests (const q5_scan_settings_t &settings, std::vector<q5_scan_request_t> requests);
