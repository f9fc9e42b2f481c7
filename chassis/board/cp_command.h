// The CP command register: of the commands for SCC3 the model knows INIT RX AND TX PARAMETERS.
#pragma once

#include <stdint.h>

// Why the word is not one that the model carries out; null: it is INIT RX AND TX PARAMETERS.
const char *cp_command_problem (uint32_t word);
