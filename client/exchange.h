// One batch over one connection, without a retry. Not part of the public interface.
#pragma once

#include "client/batch.h"
#include "client/wire.h"

#include <netinet/in.h>
#include <stdint.h>
#include <vector>

// Throws exception_t unless the daemon would accept the batch.
void q5_scan_check_batch (const q5_scan_settings_t &settings,
                          const std::vector<q5_scan_request_t> &requests);

// The batch as the daemon reads it: all headers, then all transmit bytes.
std::vector<uint8_t> q5_scan_bytes_of (const q5_scan_settings_t &settings,
                                       const std::vector<q5_scan_request_t> &requests);

// Resolves the settings' host into the address to connect to, or returns why not.
q5_scan_outcome_t q5_scan_find (const q5_scan_settings_t &settings, q5_scan_deadline_t total,
                                sockaddr_in *address);

// q5_scan_exchange within a limit that began before it; sentences report the settings' own.
q5_scan_outcome_t q5_scan_exchange_within (const q5_scan_settings_t &settings,
                                           q5_scan_deadline_t total,
                                           std::vector<q5_scan_request_t> &requests,
                                           const q5_scan_on_reply_t &on_reply);

// Sends checked requests, and fills in those that are answered.
q5_scan_outcome_t q5_scan_exchange_once (const q5_scan_settings_t &settings,
                                         q5_scan_deadline_t total,
                                         std::vector<q5_scan_request_t> &requests,
                                         const q5_scan_on_reply_t &on_reply);
