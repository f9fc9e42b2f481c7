// The chassis file: TOML text to chassis settings. The page q5_chassis.toml(5) describes every key.
#pragma once

#include "chassis/bus/settings.h"
#include "chassis/file/chassis_file_error.h"

// All three throw chassis_file_error_t. `name` is what messages call the file.
std::string read_chassis_text (const std::string &path);
chassis_settings_t parse_chassis (const std::string &text, const std::string &name);
chassis_settings_t load_chassis_file (const std::string &path);

// The built-in chassis, used without a file.
const char *builtin_chassis_text ();
chassis_settings_t builtin_chassis ();

// The name that a fault has in the file.
const char *fault_name (fault_t fault);
