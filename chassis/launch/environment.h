// What the launcher hands to the preloaded library: names in the program's environment.
#pragma once

constexpr const char *FILE_VARIABLE = "Q5_CHASSIS_FILE";
constexpr const char *TRACE_VARIABLE = "Q5_CHASSIS_TRACE";
constexpr const char *REGISTERS_VARIABLE = "Q5_CHASSIS_TRACE_REGISTERS";
constexpr const char *VCD_VARIABLE = "Q5_CHASSIS_VCD";
constexpr const char *LISTEN_VARIABLE = "Q5_CHASSIS_LISTEN";
constexpr const char *FAST_VARIABLE = "Q5_CHASSIS_FAST";
