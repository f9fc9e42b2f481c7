// Host names, resolved within a deadline. Not part of the public interface.
#pragma once

#include "client/wire.h"

#include <string>

// Finds the IPv4 address of a name or a dotted address within the wire's deadlines. Returns failed
// for a host that is not known: `host_error` is the value for hstrerror, with wire.error where that
// is NETDB_INTERNAL; or 0 when the look-up could not start, and wire.error says why.
q5_scan_step_t q5_scan_resolve (q5_scan_wire_t &wire, const std::string &host, in_addr *address,
                                int *host_error);
