// One batch of records over one connection. Not part of the public face, which has values instead:
// client/batch.h.
#pragma once

#include "client/batch.h"
#include "scan/q5_scan_client.h"

#include <functional>
#include <stdint.h>

// Throw exception_t for slots and buffers that are none; and unless the daemon would accept the
// whole batch.
void q5_scan_check_record (const q5_scan_command_t *c);
void q5_scan_check_records (int32_t num_commands, const q5_scan_command_t *commands);

// Called with the index of each record as soon as its reply is whole.
using q5_scan_on_record_t = std::function<void (int32_t)>;

// Sends a checked batch and reads the replies into the records, all but the first num_replies of
// which keep what they held, apart from one result word and data that came short. Does not try
// again. Of the port, the low 16 bits count.
q5_scan_outcome_t q5_scan_exchange_records (const q5_scan_settings_t &settings,
                                            int32_t num_commands, q5_scan_command_t *commands,
                                            const q5_scan_on_record_t &on_record = {});

// The same on the connection `fd`, which stays open.
q5_scan_outcome_t q5_scan_exchange_on (int32_t fd, const q5_scan_settings_t &settings,
                                       int32_t num_commands, q5_scan_command_t *commands,
                                       const q5_scan_on_record_t &on_record = {});
