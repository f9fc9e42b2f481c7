// What the parallel ports connect, read off their registers at each call.
#pragma once

#include "chassis/board/board_memory.h"

// PC24 to PC31 are general-purpose outputs: they drive the strobe and the slot code.
bool select_pins_drive (const board_memory_t &memory);
// PD24 is TXD3; PD25 is RXD3.
bool txd3_is_connected (const board_memory_t &memory);
bool rxd3_is_connected (const board_memory_t &memory);
// PD25 is a general-purpose output: it reads what was written to it, not the line.
bool rxd3_reads_latch (const board_memory_t &memory);
// PC11 is CTS3. Otherwise the controller sees CTS asserted.
bool cts3_is_connected (const board_memory_t &memory);
// The boot firmware's set-up of PC11, whatever is in the memory.
void set_cts3 (board_memory_t &memory, bool connected);
