// What a chassis answers now, as a chassis file for q5_chassis.
#pragma once

#include "tools/session.h"

#include <stdint.h>
#include <string>
#include <vector>

// Asks the slots for the commands, in as few batches as that takes. Throws failure_t unless every
// request was answered; a slot that failed is an answer.
std::vector<q5_scan_request_t> take_snapshot (const q5_scan_settings_t &settings,
                                              const std::vector<int32_t> &slots,
                                              const std::vector<int32_t> &commands);

// The chassis file that gives these answers: sound ones byte by byte, failures as the fault that
// causes them. A slot that was silent to every command is empty.
std::string chassis_file_of (const std::vector<q5_scan_request_t> &taken);
