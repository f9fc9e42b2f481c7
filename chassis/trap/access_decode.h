// Carries out the load or store at which the program stopped, for one processor.
#pragma once

#include <stdint.h>
#include <string>
#include <ucontext.h>

// The place that the access met. Values are big-endian words: what a register of the device holds.
struct accessed_place_t {
    virtual uint32_t read (int width) = 0;
    virtual void write (int width, uint32_t value) = 0;

  protected:
    ~accessed_place_t () = default;
};

// Carries out the instruction at the program counter of `context`, whose access met `place` at the
// virtual address `address`: leaves results in the registers of `context`, the program counter
// behind the instruction. Returns false, with nothing done, for an instruction it does not know.
bool carry_out_access (ucontext_t &context, uintptr_t address, accessed_place_t &place);

// Whether the instruction at which the program stopped stores.
bool fault_was_store (const ucontext_t &context);

uintptr_t program_counter (const ucontext_t &context);

// The program counter and the instruction's bytes, for a message.
std::string describe_instruction (const ucontext_t &context);
