// The process that releases a claim when its program ends. Not part of the public interface.
#pragma once

#include <netinet/in.h>
#include <stdint.h>
#include <vector>

// Starts a guardian, which sends the batch to the address when the last copy of the returned
// descriptor is closed, unless a byte was written to it before. Returns -1, with errno, when the
// system has no descriptor or no process for it.
int q5_scan_start_guardian (const sockaddr_in &address, const std::vector<uint8_t> &batch);

// Dismisses the guardian, and closes the descriptor.
void q5_scan_dismiss_guardian (int fd);
