// Carries on with the program in the place of the processor, from a register access at which it
// stopped: that access, and the plain instructions after it, so that one signal serves many
// accesses.
#pragma once

#include <ucontext.h>

// Carries out the instruction of `context`, then those after it: up to one that is not known, that
// faults in plain memory, or that is outside of the program's code; to a register access that the
// views do not permit; and for a bounded number of instructions. The context is then that before
// the instruction, which the processor carries out, or faults at. Returns false, with nothing done,
// when that is the first one.
bool run_program (ucontext_t &context);

// For handlers of SIGSEGV and SIGBUS: a fault of run_program in plain memory returns there, and not
// from this call.
void return_to_run ();

// Looks up where the program's code is.
void find_program_code ();
