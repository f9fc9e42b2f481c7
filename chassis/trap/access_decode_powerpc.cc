#include "chassis/trap/access_decode.h"

#include <asm/ptrace.h>
#include <stdio.h>

// PowerPC, 32 bits, big-endian: every instruction is one word; the register is in bits 6 to 10, the
// base of an update form in bits 11 to 15, and the address is known.

namespace {

struct form_t {
    int width; // 0: not a load or store that the board knows
    bool store, sign, update, reversed;
};

constexpr form_t unknown{0, false, false, false, false};

} // namespace

static form_t displacement_form (uint32_t primary)
{
    static const form_t forms[] = {
        {4, false, false, false, false}, // 32 lwz
        {4, false, false, true, false},  // lwzu
        {1, false, false, false, false}, // lbz
        {1, false, false, true, false},  // lbzu
        {4, true, false, false, false},  // stw
        {4, true, false, true, false},   // stwu
        {1, true, false, false, false},  // stb
        {1, true, false, true, false},   // stbu
        {2, false, false, false, false}, // 40 lhz
        {2, false, false, true, false},  // lhzu
        {2, false, true, false, false},  // lha
        {2, false, true, true, false},   // lhau
        {2, true, false, false, false},  // sth
        {2, true, false, true, false},   // sthu
    };
    return primary >= 32 && primary <= 45 ? forms[primary - 32] : unknown;
}

static form_t indexed_form (uint32_t extended)
{
    switch (extended) {
    case 534: // lwbrx
        return {4, false, false, false, true};
    case 662: // stwbrx
        return {4, true, false, false, true};
    case 790: // lhbrx
        return {2, false, false, false, true};
    case 918: // sthbrx
        return {2, true, false, false, true};
    default:
        // The others number through the displacement forms in steps of 32, from lwzx, 23.
        return extended % 32 == 23 ? displacement_form (32 + extended / 32) : unknown;
    }
}

static form_t form_of (uint32_t instruction)
{
    uint32_t primary = instruction >> 26;
    return primary == 31 ? indexed_form (instruction >> 1 & 0x3FF) : displacement_form (primary);
}

uintptr_t program_counter (const ucontext_t &context)
{
    return context.uc_mcontext.uc_regs->gregs[PT_NIP];
}

static uint32_t instruction_at (const ucontext_t &context)
{
    return *reinterpret_cast<const uint32_t *> (program_counter (context));
}

static uint32_t reversed (uint32_t value, int width)
{
    return __builtin_bswap32 (value) >> 8 * (4 - width);
}

static uint32_t loaded (const form_t &form, const register_place_t &place)
{
    uint32_t value = place.read (form.width);
    if (form.reversed) {
        value = reversed (value, form.width);
    }
    return form.sign ? static_cast<uint32_t> (static_cast<int16_t> (value)) : value;
}

static void store (const form_t &form, const register_place_t &place, uint32_t value)
{
    value &= form.width == 4 ? 0xFFFFFFFF : (1u << 8 * form.width) - 1;
    place.write (form.width, form.reversed ? reversed (value, form.width) : value);
}

bool carry_out_access (ucontext_t &context, uintptr_t address, const register_place_t &place)
{
    auto *registers = context.uc_mcontext.uc_regs->gregs;
    uint32_t instruction = instruction_at (context);
    form_t form = form_of (instruction);
    if (form.width == 0) {
        return false;
    }
    auto &target = registers[instruction >> 21 & 31];
    if (form.store) {
        store (form, place, static_cast<uint32_t> (target));
    } else {
        target = loaded (form, place);
    }
    if (form.update) {
        registers[instruction >> 16 & 31] = address;
    }
    registers[PT_NIP] += 4;
    return true;
}

bool fault_was_store (const ucontext_t &context)
{
    return form_of (instruction_at (context)).store;
}

std::string describe_instruction (const ucontext_t &context)
{
    char text[64];
    uint32_t instruction = instruction_at (context);
    bool is_dcbz = (instruction & 0xFC0007FE) == 0x7C0007EC;
    snprintf (text, sizeof (text), "at 0x%08X, word %08X%s",
              static_cast<unsigned> (program_counter (context)),
              static_cast<unsigned> (instruction), is_dcbz ? " (dcbz)" : "");
    return text;
}
