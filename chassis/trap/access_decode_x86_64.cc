#include "chassis/trap/access_decode.h"

#include "base/hex.h"

#include <optional>
#include <stdio.h>
#include <string.h>

// x86-64: an instruction is prefixes, opcode, ModRM with its displacement, immediate. The address
// is known, so of ModRM only the register and the length matter.

static uint64_t swap_bytes (uint64_t value, int width)
{
    return __builtin_bswap64 (value) >> 8 * (8 - width);
}

static uint64_t mask_of (int width)
{
    return width == 8 ? ~0ULL : (1ULL << 8 * width) - 1;
}

static uint64_t sign_extended (uint64_t value, int width)
{
    int shift = 64 - 8 * width;
    return static_cast<uint64_t> (static_cast<int64_t> (value << shift) >> shift);
}

namespace {

constexpr uint64_t flag_carry = 0x001, flag_parity = 0x004, flag_adjust = 0x010, flag_zero = 0x040,
                   flag_sign = 0x080, flag_overflow = 0x800;
// The ALU operations' numbers in the opcode.
constexpr int operation_add = 0, operation_subtract = 5, operation_compare = 7;
constexpr int operation_test = 8; // not one of theirs
// With more the longest instruction would pass the 15 bytes that one may have.
constexpr int max_prefixes = 3;

class instruction_t {
  public:
    instruction_t (ucontext_t &context, const register_place_t &place)
        : registers_ (context.uc_mcontext.gregs), place_ (place),
          next_ (reinterpret_cast<const uint8_t *> (registers_[REG_RIP]))
    {}
    bool carry_out ();

  private:
    greg_t *registers_;
    const register_place_t &place_;
    const uint8_t *next_;
    bool operand_16_ = false;
    bool has_rex_ = false;
    uint8_t rex_ = 0;
    int reg_ = 0; // ModRM's register field, or more of the opcode

    int width () const
    {
        return rex_ & 8 ? 8 : operand_16_ ? 2 : 4;
    }
    void read_prefixes ();
    void read_modrm ();
    uint64_t immediate (int bytes);
    greg_t *slot (int number) const;
    uint64_t get (int width) const;
    void set (int width, uint64_t value);
    uint64_t load (int width);
    void store (int width, uint64_t value);
    bool one_byte (uint8_t opcode);
    bool two_bytes ();
    bool three_bytes ();
    bool arithmetic (uint8_t opcode);
    bool immediate_group (uint8_t opcode);
    bool one_operand_group (uint8_t opcode);
    bool shift_group (uint8_t opcode);
    bool multiply (int immediate_size);
    bool condition (uint8_t opcode) const;
    uint64_t shift (int operation, uint64_t value, int count, int width);
    void set_flags (uint64_t flags, uint64_t which);
    uint64_t compute (int operation, uint64_t left, uint64_t right, int width);
    void combine_memory (int operation, uint64_t right, int width);
    bool done ();
};

void instruction_t::read_prefixes ()
{
    const uint8_t *end = next_ + max_prefixes;
    while (next_ < end && (*next_ == 0x66 || *next_ == 0x2E || *next_ == 0x3E)) {
        operand_16_ |= *next_++ == 0x66;
    }
    if ((*next_ & 0xF0) == 0x40) {
        has_rex_ = true;
        rex_ = *next_++;
    }
}

// Steps over ModRM, SIB and displacement.
void instruction_t::read_modrm ()
{
    uint8_t modrm = *next_++;
    int mode = modrm >> 6, base = modrm & 7;
    reg_ = (modrm >> 3 & 7) | (rex_ & 4) << 1;
    bool no_base = mode == 0 && base == 5; // relative to the program counter
    if (base == 4) {
        no_base = mode == 0 && (*next_ & 7) == 5;
        next_++;
    }
    next_ += mode == 1 ? 1 : mode == 2 || no_base ? 4 : 0;
}

uint64_t instruction_t::immediate (int bytes)
{
    uint64_t value = 0;
    memcpy (&value, next_, static_cast<size_t> (bytes));
    next_ += bytes;
    return sign_extended (value, bytes);
}

greg_t *instruction_t::slot (int number) const
{
    static const int order[16] = {REG_RAX, REG_RCX, REG_RDX, REG_RBX, REG_RSP, REG_RBP,
                                  REG_RSI, REG_RDI, REG_R8,  REG_R9,  REG_R10, REG_R11,
                                  REG_R12, REG_R13, REG_R14, REG_R15};
    return &registers_[order[number]];
}

// Without a REX prefix the byte registers 4 to 7 are the second bytes of the first four.
uint64_t instruction_t::get (int width) const
{
    if (width == 1 && !has_rex_ && reg_ >= 4) {
        return static_cast<uint64_t> (*slot (reg_ - 4)) >> 8 & 0xFF;
    }
    return static_cast<uint64_t> (*slot (reg_)) & mask_of (width);
}

// A 32-bit result clears the upper half; smaller ones leave the rest.
void instruction_t::set (int width, uint64_t value)
{
    bool second_byte = width == 1 && !has_rex_ && reg_ >= 4;
    greg_t *target = slot (second_byte ? reg_ - 4 : reg_);
    int shift = second_byte ? 8 : 0;
    uint64_t kept = width < 4 ? static_cast<uint64_t> (*target) & ~(mask_of (width) << shift) : 0;
    *target = static_cast<greg_t> (kept | (value & mask_of (width)) << shift);
}

uint64_t instruction_t::load (int width)
{
    return swap_bytes (place_.read (width), width);
}

void instruction_t::store (int width, uint64_t value)
{
    place_.write (width, static_cast<uint32_t> (swap_bytes (value, width)));
}

bool instruction_t::done ()
{
    registers_[REG_RIP] = reinterpret_cast<greg_t> (next_);
    return true;
}

bool instruction_t::carry_out ()
{
    read_prefixes ();
    uint8_t opcode = *next_++;
    if (opcode == 0x0F) {
        return two_bytes ();
    }
    return width () != 8 || opcode == 0x63 || !(opcode & 1) ? one_byte (opcode) : false;
}

bool instruction_t::one_byte (uint8_t opcode)
{
    int size = opcode & 1 ? width () : 1;
    switch (opcode) {
    case 0x88: // mov
    case 0x89:
        read_modrm ();
        store (size, get (size));
        return done ();
    case 0x8A:
    case 0x8B:
        read_modrm ();
        set (size, load (size));
        return done ();
    case 0xC6:
    case 0xC7:
        read_modrm ();
        if ((reg_ & 7) != 0) {
            return false;
        }
        store (size, immediate (size));
        return done ();
    case 0x69: // imul
    case 0x6B:
        return multiply (opcode == 0x69 ? size : 1);
    case 0x63: // movsxd
        read_modrm ();
        set (width (), sign_extended (load (4), 4));
        return done ();
    case 0x80:
    case 0x81:
    case 0x83:
        return immediate_group (opcode);
    case 0x84:
    case 0x85: // test
        read_modrm ();
        compute (operation_test, load (size), get (size), size);
        return done ();
    case 0xC0:
    case 0xC1:
    case 0xD0:
    case 0xD1:
    case 0xD2:
    case 0xD3:
        return shift_group (opcode);
    case 0xF6:
    case 0xF7:
    case 0xFE:
    case 0xFF:
        return one_operand_group (opcode);
    default:
        return opcode < 0x40 && (opcode & 7) < 4 && arithmetic (opcode);
    }
}

// setcc, imul, movzx, movsx
bool instruction_t::two_bytes ()
{
    uint8_t opcode = *next_++;
    if (opcode == 0x38) {
        return three_bytes ();
    }
    if (opcode == 0xAF && width () != 8) {
        return multiply (0);
    }
    if ((opcode & 0xF0) == 0x90) {
        read_modrm ();
        store (1, condition (opcode));
        return done ();
    }
    int size = opcode & 1 ? 2 : 1;
    bool zero = (opcode & 0xFE) == 0xB6, sign = (opcode & 0xFE) == 0xBE;
    if (!zero && !sign) {
        return false;
    }
    read_modrm ();
    uint64_t value = load (size);
    has_rex_ = true; // the target is never a byte register
    set (width (), sign ? sign_extended (value, size) : value);
    return done ();
}

// movbe
bool instruction_t::three_bytes ()
{
    uint8_t opcode = *next_++;
    if ((opcode & 0xFE) != 0xF0 || width () == 8) {
        return false;
    }
    read_modrm ();
    if (opcode & 1) {
        place_.write (width (), static_cast<uint32_t> (get (width ())));
    } else {
        set (width (), place_.read (width ()));
    }
    return done ();
}

// add, or, adc, sbb, and, sub, xor, cmp with a register
bool instruction_t::arithmetic (uint8_t opcode)
{
    int operation = opcode >> 3, size = opcode & 1 ? width () : 1;
    read_modrm ();
    if (!(opcode & 2)) {
        combine_memory (operation, get (size), size);
        return done ();
    }
    uint64_t result = compute (operation, get (size), load (size), size);
    if (operation != operation_compare) {
        set (size, result);
    }
    return done ();
}

// the same with an immediate
bool instruction_t::immediate_group (uint8_t opcode)
{
    int size = opcode & 1 ? width () : 1;
    read_modrm ();
    uint64_t right = immediate (opcode == 0x83 ? 1 : size);
    combine_memory (reg_ & 7, right & mask_of (size), size);
    return done ();
}

// test, not, neg, inc, dec
bool instruction_t::one_operand_group (uint8_t opcode)
{
    int size = opcode & 1 ? width () : 1;
    read_modrm ();
    int operation = (reg_ & 7) | (opcode & 8); // FE and FF: 8 and up
    uint64_t carry = static_cast<uint64_t> (registers_[REG_EFL]) & flag_carry;
    uint64_t value = 0, right = 0;
    switch (operation) {
    case 0:
    case 1:
        right = immediate (size);
        compute (operation_test, load (size), right & mask_of (size), size);
        return done ();
    case 2:
        store (size, ~load (size) & mask_of (size));
        return done ();
    case 3:
        store (size, compute (operation_subtract, 0, load (size), size));
        return done ();
    case 8:
    case 9:
        value = load (size);
        value = compute (operation == 8 ? operation_add : operation_subtract, value, 1, size);
        set_flags (carry, flag_carry);
        store (size, value);
        return done ();
    default:
        return false;
    }
}

// rol, ror, shl, shr, sar: by an immediate, by one, by CL
bool instruction_t::shift_group (uint8_t opcode)
{
    int size = opcode & 1 ? width () : 1;
    read_modrm ();
    int operation = reg_ & 7;
    if (operation == 2 || operation == 3 || operation == 6) {
        return false; // through the carry; a second number of shl
    }
    uint64_t count = 1;
    if (opcode < 0xD0) {
        count = immediate (1);
    } else if (opcode >= 0xD2) {
        count = static_cast<uint64_t> (registers_[REG_RCX]);
    }
    store (size, shift (operation, load (size), static_cast<int> (count & 31), size));
    return done ();
}

// The flags as the processor leaves them for a shift by one; by more, the overflow is undefined.
uint64_t instruction_t::shift (int operation, uint64_t value, int count, int width)
{
    int bits = 8 * width;
    uint64_t result = 0;
    bool carry = false;
    if (count == 0) {
        return value;
    }
    switch (operation) {
    case 0:
        result = value << count % bits | value >> (bits - count % bits);
        carry = result & 1;
        break;
    case 1:
        result = value >> count % bits | value << (bits - count % bits);
        carry = result >> (bits - 1) & 1;
        break;
    case 4:
        result = value << count;
        carry = result >> bits & 1;
        break;
    default:
        value = operation == 7 ? sign_extended (value, width) : value;
        result = static_cast<uint64_t> (static_cast<int64_t> (value) >> count);
        carry = static_cast<int64_t> (value) >> (count - 1) & 1;
    }
    result &= mask_of (width);
    bool top = result >> (bits - 1), below = result >> (bits - 2) & 1;
    bool overflow = operation == 0 || operation == 4 ? top != carry : top != below;
    if (operation >= 4) {
        compute (operation_test, result, result, width);
        overflow = operation == 7 ? false : operation == 5 ? value >> (bits - 1) & 1 : overflow;
    }
    set_flags ((carry ? flag_carry : 0) | (overflow ? flag_overflow : 0),
               flag_carry | flag_overflow);
    return result;
}

bool instruction_t::multiply (int immediate_size)
{
    read_modrm ();
    int size = width ();
    uint64_t right = immediate_size == 0 ? get (size) : immediate (immediate_size);
    uint64_t product = sign_extended (load (size), size) * sign_extended (right, size);
    bool lost = product != sign_extended (product, size);
    set (size, product);
    set_flags (lost ? flag_carry | flag_overflow : 0, flag_carry | flag_overflow);
    return done ();
}

// Of setcc: the last bit turns it round.
bool instruction_t::condition (uint8_t opcode) const
{
    uint64_t flags = static_cast<uint64_t> (registers_[REG_EFL]);
    bool less = !(flags & flag_sign) != !(flags & flag_overflow);
    const bool conditions[8] = {(flags & flag_overflow) != 0,
                                (flags & flag_carry) != 0,
                                (flags & flag_zero) != 0,
                                (flags & (flag_carry | flag_zero)) != 0,
                                (flags & flag_sign) != 0,
                                (flags & flag_parity) != 0,
                                less,
                                less || (flags & flag_zero)};
    return conditions[opcode >> 1 & 7] != (opcode & 1);
}

void instruction_t::set_flags (uint64_t flags, uint64_t which)
{
    uint64_t others = static_cast<uint64_t> (registers_[REG_EFL]) & ~which;
    registers_[REG_EFL] = static_cast<greg_t> (others | flags);
}

void instruction_t::combine_memory (int operation, uint64_t right, int width)
{
    uint64_t result = compute (operation, load (width), right, width);
    if (operation != operation_compare) {
        store (width, result);
    }
}

// The result, with the flags as the processor leaves them; AF, which no compiler looks at, clear.
uint64_t instruction_t::compute (int operation, uint64_t left, uint64_t right, int width)
{
    uint64_t flags = static_cast<uint64_t> (registers_[REG_EFL]);
    uint64_t carry_in = (operation == 2 || operation == 3) && (flags & flag_carry);
    uint64_t result = 0;
    bool adds = operation == 0 || operation == 2;
    bool subtracts = operation == 3 || operation == 5 || operation == operation_compare;
    if (adds) {
        result = left + right + carry_in;
    } else if (subtracts) {
        result = left - right - carry_in;
    } else {
        result = operation == 1 ? left | right : operation == 6 ? left ^ right : left & right;
    }
    uint64_t sign = 1ULL << (8 * width - 1);
    bool carry = (adds || subtracts) && (result & ~mask_of (width));
    bool overflow = (adds && (~(left ^ right) & (left ^ result) & sign)) ||
                    (subtracts && ((left ^ right) & (left ^ result) & sign));
    result &= mask_of (width);
    set_flags ((carry ? flag_carry : 0) | (overflow ? flag_overflow : 0) |
                   (result == 0 ? flag_zero : 0) | (result & sign ? flag_sign : 0) |
                   (__builtin_parityll (result & 0xFF) ? 0 : flag_parity),
               flag_carry | flag_parity | flag_adjust | flag_zero | flag_sign | flag_overflow);
    return result;
}

} // namespace

bool carry_out_access (ucontext_t &context, uintptr_t, const register_place_t &place)
{
    return instruction_t (context, place).carry_out ();
}

bool fault_was_store (const ucontext_t &context)
{
    return context.uc_mcontext.gregs[REG_ERR] & 2; // of the page fault's error code
}

uintptr_t program_counter (const ucontext_t &context)
{
    return static_cast<uintptr_t> (context.uc_mcontext.gregs[REG_RIP]);
}

std::string describe_instruction (const ucontext_t &context)
{
    constexpr int shown = 8; // longer than the part that tells
    auto *code = reinterpret_cast<const uint8_t *> (program_counter (context));
    char place[32];
    snprintf (place, sizeof (place), "at %p, bytes ", static_cast<const void *> (code));
    return place + hex_text (code, shown);
}
