#pragma once

#include <string>

// The file that execvp would run for `name`; empty when there is none.
std::string find_program (const std::string &name);

// Why a library preloaded into `program` would not take effect, as a sentence for a person; empty
// when it would. A script passes: its interpreter is what gets preloaded.
// `library` is the preload library, for this machine.
std::string preload_obstacle (const std::string &program, const std::string &library);
