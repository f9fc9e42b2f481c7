// The clock of SCC3: baud-rate generator 4 and its route, read off their registers at each call.
#pragma once

#include "chassis/board/board_memory.h"

// What baud-rate generator 4 divides BRGCLK by; 0: it is stopped.
uint32_t brg4_divider (const board_memory_t &memory);
// Whether it clocks SCC3's transmitter, its receiver.
bool brg4_clocks_transmitter (const board_memory_t &memory);
bool brg4_clocks_receiver (const board_memory_t &memory);
