// What q5_scan prints.
#pragma once

#include "fuzz/fuzz.h"
#include "tools/show/report.h"

// A report is whole lines for a person, and for a program one object on one line.
inline void require_lines (const report_t &report)
{
    const std::string json = json_line ({"fuzz"}, report);
    REQUIRE_SHOWING (is_lines (report.text), report.text);
    REQUIRE_SHOWING (is_lines (json) && json.find ('\n') == json.size () - 1, json);
    REQUIRE_SHOWING (json_t::accept (json), json);
}
