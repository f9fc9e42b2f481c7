// Outcomes of a batch, each with its sentence. Not part of the public interface.
#pragma once

#include "client/batch.h"

#include <stdint.h>
#include <string>

// Where time ran out, and whether it was the total limit.
struct q5_scan_place_t {
    const q5_scan_settings_t &settings;
    bool is_total;
};

q5_scan_outcome_t q5_scan_unknown_host (const q5_scan_settings_t &settings, int host_error,
                                        int error);
q5_scan_outcome_t q5_scan_no_connection (const q5_scan_settings_t &settings, int error);
q5_scan_outcome_t q5_scan_late_name (const q5_scan_place_t &place);
q5_scan_outcome_t q5_scan_late_connection (const q5_scan_place_t &place);
// `error` 0: the stream ended; else it was reset.
q5_scan_outcome_t q5_scan_dropped (const q5_scan_settings_t &settings, int error);
// The claim that begins a batch.
q5_scan_outcome_t q5_scan_refused (const q5_scan_settings_t &settings);
q5_scan_outcome_t q5_scan_broken_off (const q5_scan_settings_t &settings, size_t num_replies,
                                      size_t num_requests, int error);
q5_scan_outcome_t q5_scan_late_sending (const q5_scan_place_t &place);
// `is_taken`: the host at the other end has acknowledged the whole batch.
q5_scan_outcome_t q5_scan_late_reply (const q5_scan_place_t &place, size_t num_replies,
                                      size_t num_requests, bool is_taken);
q5_scan_outcome_t q5_scan_cancelled (size_t num_replies);
