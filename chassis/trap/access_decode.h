// Carries out the load or store at which the program stopped, for one processor.
#pragma once

#include "chassis/trap/register_file.h"

#include <string>
#include <ucontext.h>

// Carries out the instruction at the program counter of `context`, whose access met `place` at the
// virtual address `address`: leaves results in the registers of `context`, the program counter
// behind the instruction. Returns false, with nothing done, for an instruction it does not know.
bool carry_out_access (ucontext_t &context, uintptr_t address, const register_place_t &place);

// Whether the instruction at which the program stopped stores.
bool fault_was_store (const ucontext_t &context);

uintptr_t program_counter (const ucontext_t &context);

// The program counter and the instruction's bytes, for a message.
std::string describe_instruction (const ucontext_t &context);
