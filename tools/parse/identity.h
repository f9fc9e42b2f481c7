// The build identity of an image that a person names.
#pragma once

#include "client/identity.h"

#include <string>

// "-" is standard input. Throws failure_t for a file that cannot be read or has no identity.
q5_scan_identity_t read_identity (const std::string &path);
