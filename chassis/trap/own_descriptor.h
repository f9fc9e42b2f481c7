// Descriptors that the emulation keeps in the program's process, beside the program's own.
#pragma once

// Moves a descriptor to a number that programs do not reach by themselves, so that theirs are those
// that they would have on the board. Returns the new number; the old one if none is free; -1 for
// -1, with errno as it was.
int moved_out_of_the_way (int fd);

// Whether `fd` leads to a memory file that was created under this name: the program may have closed
// the descriptor, and opened another file under its number.
bool is_memory_file (int fd, const char *name);
