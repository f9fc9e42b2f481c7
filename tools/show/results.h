// Results of requests, as they are shown.
#pragma once

#include "client/result.h"
#include "tools/show/report.h"

#include <stdint.h>
#include <string>

// An answered request for a person, in complete lines, sent as `id`; and for a program.
std::string text_of (const q5_scan_request_t &request, int32_t id);
json_t json_of (const q5_scan_request_t &request);
