#pragma once

#include "chassis/bus/settings.h"

#include <ostream>

// A table of the chassis for a person: a line for the board, then one for each card with its slot,
// delay, the commands it answers with the number of bytes, and its faults.
void print_summary (std::ostream &out, const chassis_settings_t &settings);
