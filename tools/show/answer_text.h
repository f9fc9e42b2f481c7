// The bytes of an answer as a chassis file has them.
#pragma once

#include "tools/show/output.h"

#include <string>

// Complete lines: `types` and `fields` for a sound typed message, `text` for texts that end with a
// NUL, else `hex`. Played, they are the same bytes.
std::string content_of (const bytes_t &bytes, bool is_typed);
