// One fetch from each of several chassis, all at the same time.
#pragma once

#include "client/fetch.h"

#include <vector>

struct sample_t {
    q5_scan_settings_t settings;
    q5_scan_selection_t selection;

    // What take_samples leaves.
    q5_scan_outcome_t outcome = {};
    double seconds = 0;
    std::vector<q5_scan_request_t> replies = {};
};

// Fetches in a thread for each chassis; returns when the last has ended.
void take_samples (std::vector<sample_t> &samples);
