// What a chassis answers now, as a chassis file for q5_chassis.
#pragma once

#include "tools/session.h"

#include <chrono>
#include <stdint.h>
#include <string>
#include <vector>

// What one slot said to one command, and how long that took.
struct taken_t {
    q5_scan_request_t request;
    std::chrono::microseconds time{0};
};

// Asks the slots for the commands, all in as few batches as they need. Throws failure_t unless
// every request was answered; a slot that failed is an answer.
std::vector<taken_t> take_snapshot (const q5_scan_settings_t &settings,
                                    const std::vector<int32_t> &slots,
                                    const std::vector<int32_t> &commands);

// The chassis file that gives these answers: sound ones byte by byte, failures as the fault that
// shows them, and delays where the times tell them. A slot where every command met silence is
// empty.
std::string chassis_file_of (const std::vector<taken_t> &taken);

// Both, with a comment that says whence and when.
report_t snapshot (const globals_t &globals, const std::vector<int32_t> &slots,
                   const std::vector<int32_t> &commands);
