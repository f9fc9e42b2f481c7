// The chassis table, again and again.
#pragma once

#include "tools/command/fetch.h"

#include <string>
#include <vector>

// The table, with a column before it that marks the rows that are not in `before`.
std::vector<std::string> marked_lines (const std::vector<row_t> &before, std::vector<row_t> rows,
                                       const table_style_t &style);
