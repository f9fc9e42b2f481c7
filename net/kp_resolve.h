// Names of IPv4 hosts, found without a state that threads share.
#pragma once

#include <netinet/in.h>

// Finds the first address of `host`: a name, or an IPv4 address in any form that the system reads.
// Returns whether it is known, and leaves in h_errno 0, or why it is not (a value for hstrerror;
// NETDB_INTERNAL: errno holds the reason). Any number of threads may call it at once; h_errno is
// the calling thread's own.
bool kp_resolve (const char *host, in_addr *address);
