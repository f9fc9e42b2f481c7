// Carries out single instructions of the program, for one processor.
#pragma once

#include <stdint.h>
#include <string>
#include <ucontext.h>

// What the loads and stores of an instruction reach. A width is 1, 2, 4 or 8 bytes; a value is a
// number in the byte order of the processor. Neither call need return: it may leave by siglongjmp.
struct program_memory_t {
    virtual uint64_t load (uintptr_t address, int width) = 0;
    virtual void store (uintptr_t address, int width, uint64_t value) = 0;
    // Whether no other processor can come between a load of the address and a store.
    virtual bool is_exclusive (uintptr_t address) = 0;
    // Whether no other thread carries out instructions: what was decoded may be kept, and used.
    bool is_alone = true;

  protected:
    ~program_memory_t () = default;
};

// Carries out the instruction at the program counter of `context`: leaves its results in the
// registers, flags and program counter of `context`, which change after its last load or store.
// Returns false, with nothing done, for an instruction it does not know.
bool carry_out_instruction (ucontext_t &context, program_memory_t &memory);

uintptr_t program_counter (const ucontext_t &context);

// The lowest address that the program may use as its stack at this moment.
uintptr_t stack_end (const ucontext_t &context);

// Whether the instruction at which the program stopped by a fault stores.
bool fault_was_store (const ucontext_t &context);

// The program counter and the instruction's bytes, for a message.
std::string describe_instruction (const ucontext_t &context);
