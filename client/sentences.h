// Outcomes of a batch, each with its sentence. Not part of the public face.
#pragma once

#include "client/batch.h"

#include <stdint.h>

q5_scan_outcome_t q5_scan_unknown_host (const q5_scan_settings_t &settings, int host_error,
                                        int error);
q5_scan_outcome_t q5_scan_no_connection (const q5_scan_settings_t &settings, int error);
q5_scan_outcome_t q5_scan_late_name (const q5_scan_settings_t &settings);
q5_scan_outcome_t q5_scan_late_connection (const q5_scan_settings_t &settings);
// `error` 0: the stream ended; else it was reset.
q5_scan_outcome_t q5_scan_dropped (const q5_scan_settings_t &settings, int error);
q5_scan_outcome_t q5_scan_broken_off (const q5_scan_settings_t &settings, int32_t num_replies,
                                      int32_t num_commands, int error);
q5_scan_outcome_t q5_scan_late_sending (const q5_scan_settings_t &settings);
// `is_taken`: the host at the other end has acknowledged the whole batch.
q5_scan_outcome_t q5_scan_late_reply (const q5_scan_settings_t &settings, int32_t num_replies,
                                      int32_t num_commands, bool is_taken);
q5_scan_outcome_t q5_scan_cancelled (int32_t num_replies);
