#include "chassis/trap/instruction.h"

#include "base/hex.h"

#include <Zydis/Decoder.h>
#include <Zydis/Register.h>
#include <algorithm>
#include <stdio.h>
#include <string.h>

static uint64_t mask_of (int width)
{
    return width == 8 ? ~0ULL : (1ULL << 8 * width) - 1;
}

static uint64_t swap_bytes (uint64_t value, int width)
{
    return __builtin_bswap64 (value) >> 8 * (8 - width);
}

static uint64_t sign_extended (uint64_t value, int width)
{
    int shift = 64 - 8 * width;
    return static_cast<uint64_t> (static_cast<int64_t> (value << shift) >> shift);
}

namespace {

constexpr uint64_t flag_carry = 0x001, flag_parity = 0x004, flag_adjust = 0x010, flag_zero = 0x040,
                   flag_sign = 0x080, flag_direction = 0x400, flag_overflow = 0x800;
constexpr uint64_t result_flags = flag_parity | flag_adjust | flag_zero | flag_sign;

constexpr int no_register = NGREG;

struct operand_t {
    enum kind_t : uint8_t {
        none,
        in_register,
        in_second_byte,
        in_memory,
        immediate
    } kind;
    uint8_t width;
    uint8_t base, index, scale; // places in the context; `base` is also that of a register
    bool is_thread_local;       // relative to FS
    int64_t value;              // an immediate, or the displacement
};

struct form_t {
    uint8_t bytes[ZYDIS_MAX_INSTRUCTION_LENGTH];
    uint8_t length; // 0: none
    uint8_t row;    // in the table of instructions; its end for what is not in it
    uint8_t condition;
    bool repeats;
    operand_t operands[3];
};

class machine_t {
  public:
    machine_t (greg_t *registers, program_memory_t &memory, const form_t &form);
    bool carry_out ();

    bool move ();
    bool move_signed ();
    bool move_swapped ();
    bool load_address ();
    bool exchange ();
    bool combine ();
    bool step ();
    bool negate ();
    bool invert ();
    bool multiply ();
    bool multiply_wide ();
    bool shift ();
    bool bit ();
    bool swap ();
    bool widen ();
    bool widen_into_rdx ();
    bool jump ();
    bool call ();
    bool return_from ();
    bool push ();
    bool pop ();
    bool leave ();
    bool move_string ();
    bool fill_string ();
    bool nothing ();
    bool jump_if ();
    bool set_if ();
    bool move_if ();

  private:
    program_memory_t &memory_;
    greg_t *const registers_; // changed after the last access to memory
    const form_t &form_;
    int detail_; // of the table's row
    uint64_t next_, flags_;

    const operand_t &operand (int i) const
    {
        return form_.operands[i];
    }
    uint64_t value (int place) const
    {
        return static_cast<uint64_t> (registers_[place]);
    }
    void set (int place, uint64_t value)
    {
        registers_[place] = static_cast<greg_t> (value);
    }
    uint64_t address_of (const operand_t &where) const;
    uint64_t target ();
    uint64_t get (const operand_t &from);
    void put (const operand_t &to, uint64_t result);
    bool is_repeated_out () const;
    void step_string (int place);
    void end_string_step ();
    bool condition () const;
    void set_flags (uint64_t flags, uint64_t which);
    void set_result_flags (uint64_t result, int width);
    uint64_t computed (int operation, uint64_t left, uint64_t right, int width);
    uint64_t shifted (int operation, uint64_t value, int count, int width);
};

struct row_t {
    ZydisMnemonic mnemonic;
    bool (machine_t::*carry_out) ();
    int detail;
};

// The numbers that the processor gives the operations; the last is none of its own.
enum {
    op_add,
    op_or,
    op_adc,
    op_sbb,
    op_and,
    op_sub,
    op_xor,
    op_cmp,
    op_test
};
enum {
    op_rol,
    op_ror,
    op_shl = 4,
    op_shr,
    op_sar = 7
};
enum {
    op_bt,
    op_bts,
    op_btr,
    op_btc
};

// What the board knows, for an access to a register as for what follows it.
constexpr row_t table[] = {
    {ZYDIS_MNEMONIC_MOV, &machine_t::move, 0},
    {ZYDIS_MNEMONIC_MOVZX, &machine_t::move, 0},
    {ZYDIS_MNEMONIC_MOVSX, &machine_t::move_signed, 0},
    {ZYDIS_MNEMONIC_MOVSXD, &machine_t::move_signed, 0},
    {ZYDIS_MNEMONIC_MOVBE, &machine_t::move_swapped, 0},
    {ZYDIS_MNEMONIC_LEA, &machine_t::load_address, 0},
    {ZYDIS_MNEMONIC_XCHG, &machine_t::exchange, 0},
    {ZYDIS_MNEMONIC_ADD, &machine_t::combine, op_add},
    {ZYDIS_MNEMONIC_OR, &machine_t::combine, op_or},
    {ZYDIS_MNEMONIC_ADC, &machine_t::combine, op_adc},
    {ZYDIS_MNEMONIC_SBB, &machine_t::combine, op_sbb},
    {ZYDIS_MNEMONIC_AND, &machine_t::combine, op_and},
    {ZYDIS_MNEMONIC_SUB, &machine_t::combine, op_sub},
    {ZYDIS_MNEMONIC_XOR, &machine_t::combine, op_xor},
    {ZYDIS_MNEMONIC_CMP, &machine_t::combine, op_cmp},
    {ZYDIS_MNEMONIC_TEST, &machine_t::combine, op_test},
    {ZYDIS_MNEMONIC_INC, &machine_t::step, op_add},
    {ZYDIS_MNEMONIC_DEC, &machine_t::step, op_sub},
    {ZYDIS_MNEMONIC_NEG, &machine_t::negate, 0},
    {ZYDIS_MNEMONIC_NOT, &machine_t::invert, 0},
    {ZYDIS_MNEMONIC_IMUL, &machine_t::multiply, 0},
    {ZYDIS_MNEMONIC_MUL, &machine_t::multiply_wide, 0},
    {ZYDIS_MNEMONIC_ROL, &machine_t::shift, op_rol},
    {ZYDIS_MNEMONIC_ROR, &machine_t::shift, op_ror},
    {ZYDIS_MNEMONIC_SHL, &machine_t::shift, op_shl},
    {ZYDIS_MNEMONIC_SHR, &machine_t::shift, op_shr},
    {ZYDIS_MNEMONIC_SAR, &machine_t::shift, op_sar},
    {ZYDIS_MNEMONIC_BT, &machine_t::bit, op_bt},
    {ZYDIS_MNEMONIC_BTS, &machine_t::bit, op_bts},
    {ZYDIS_MNEMONIC_BTR, &machine_t::bit, op_btr},
    {ZYDIS_MNEMONIC_BTC, &machine_t::bit, op_btc},
    {ZYDIS_MNEMONIC_BSWAP, &machine_t::swap, 0},
    {ZYDIS_MNEMONIC_CBW, &machine_t::widen, 2},
    {ZYDIS_MNEMONIC_CWDE, &machine_t::widen, 4},
    {ZYDIS_MNEMONIC_CDQE, &machine_t::widen, 8},
    {ZYDIS_MNEMONIC_CWD, &machine_t::widen_into_rdx, 2},
    {ZYDIS_MNEMONIC_CDQ, &machine_t::widen_into_rdx, 4},
    {ZYDIS_MNEMONIC_CQO, &machine_t::widen_into_rdx, 8},
    {ZYDIS_MNEMONIC_JMP, &machine_t::jump, 0},
    {ZYDIS_MNEMONIC_CALL, &machine_t::call, 0},
    {ZYDIS_MNEMONIC_RET, &machine_t::return_from, 0},
    {ZYDIS_MNEMONIC_PUSH, &machine_t::push, 0},
    {ZYDIS_MNEMONIC_POP, &machine_t::pop, 0},
    {ZYDIS_MNEMONIC_LEAVE, &machine_t::leave, 0},
    {ZYDIS_MNEMONIC_MOVSB, &machine_t::move_string, 1},
    {ZYDIS_MNEMONIC_MOVSW, &machine_t::move_string, 2},
    {ZYDIS_MNEMONIC_MOVSD, &machine_t::move_string, 4},
    {ZYDIS_MNEMONIC_MOVSQ, &machine_t::move_string, 8},
    {ZYDIS_MNEMONIC_STOSB, &machine_t::fill_string, 1},
    {ZYDIS_MNEMONIC_STOSW, &machine_t::fill_string, 2},
    {ZYDIS_MNEMONIC_STOSD, &machine_t::fill_string, 4},
    {ZYDIS_MNEMONIC_STOSQ, &machine_t::fill_string, 8},
    {ZYDIS_MNEMONIC_NOP, &machine_t::nothing, 0},
    {ZYDIS_MNEMONIC_ENDBR64, &machine_t::nothing, 0},
    {ZYDIS_MNEMONIC_LFENCE, &machine_t::nothing, 0},
    {ZYDIS_MNEMONIC_MFENCE, &machine_t::nothing, 0},
    {ZYDIS_MNEMONIC_SFENCE, &machine_t::nothing, 0},
    // Those with a condition: sixteen mnemonics each.
    {ZYDIS_MNEMONIC_JZ, &machine_t::jump_if, 0},
    {ZYDIS_MNEMONIC_SETZ, &machine_t::set_if, 0},
    {ZYDIS_MNEMONIC_CMOVZ, &machine_t::move_if, 0},
};

} // namespace

// Decoding: from the bytes to a form, by Zydis, which neither allocates nor keeps a state.

static const ZydisDecoder decoder = [] {
    ZydisDecoder made;
    ZydisDecoderInit (&made, ZYDIS_MACHINE_MODE_LONG_64, ZYDIS_STACK_WIDTH_64);
    return made;
}();

static ZydisMnemonic mnemonic_of (const ZydisDecodedInstruction &instruction)
{
    switch (instruction.meta.category) {
    case ZYDIS_CATEGORY_COND_BR:
        // but for loop, jrcxz and xbegin
        return instruction.opcode >> 4 == 7 || instruction.opcode >> 4 == 8 ? ZYDIS_MNEMONIC_JZ
                                                                            : instruction.mnemonic;
    case ZYDIS_CATEGORY_SETCC:
        return ZYDIS_MNEMONIC_SETZ;
    case ZYDIS_CATEGORY_CMOV:
        return ZYDIS_MNEMONIC_CMOVZ;
    default:
        return instruction.mnemonic;
    }
}

// Where a 64-bit register is in the context.
static uint8_t place_of (ZydisRegister name)
{
    static constexpr uint8_t places[] = {REG_RAX, REG_RCX, REG_RDX, REG_RBX, REG_RSP, REG_RBP,
                                         REG_RSI, REG_RDI, REG_R8,  REG_R9,  REG_R10, REG_R11,
                                         REG_R12, REG_R13, REG_R14, REG_R15};
    return name == ZYDIS_REGISTER_RIP    ? REG_RIP
           : name == ZYDIS_REGISTER_NONE ? no_register
                                         : places[name - ZYDIS_REGISTER_RAX];
}

static bool decode_memory (const ZydisDecodedOperandMem &from, operand_t &to)
{
    to.kind = operand_t::in_memory;
    to.base = place_of (from.base);
    to.index = place_of (from.index);
    to.scale = from.scale;
    to.is_thread_local = from.segment == ZYDIS_REGISTER_FS;
    to.value = from.disp.has_displacement ? from.disp.value : 0;
    bool is_plain = from.type == ZYDIS_MEMOP_TYPE_MEM || from.type == ZYDIS_MEMOP_TYPE_AGEN;
    return is_plain && from.segment != ZYDIS_REGISTER_GS;
}

static bool decode_operand (const ZydisDecodedOperand &from, operand_t &to)
{
    to = {};
    to.width = static_cast<uint8_t> (from.size / 8);
    ZydisRegister name = from.reg.value, whole = ZYDIS_REGISTER_NONE;
    switch (from.type) {
    case ZYDIS_OPERAND_TYPE_IMMEDIATE:
        to.kind = operand_t::immediate;
        to.value = from.imm.value.s;
        return true;
    case ZYDIS_OPERAND_TYPE_MEMORY:
        return decode_memory (from.mem, to);
    case ZYDIS_OPERAND_TYPE_REGISTER:
        whole = ZydisRegisterGetLargestEnclosing (ZYDIS_MACHINE_MODE_LONG_64, name);
        to.kind = name >= ZYDIS_REGISTER_AH && name <= ZYDIS_REGISTER_BH ? operand_t::in_second_byte
                                                                         : operand_t::in_register;
        if (whole < ZYDIS_REGISTER_RAX || whole > ZYDIS_REGISTER_R15) {
            return false;
        }
        to.base = place_of (whole);
        return true;
    default:
        return false;
    }
}

// No compiler emits a stack access or a branch of 16 bits, or an access to another segment.
static bool is_ordinary (const ZydisDecodedInstruction &instruction)
{
    bool has_stack_width = instruction.meta.branch_type != ZYDIS_BRANCH_TYPE_NONE ||
                           instruction.mnemonic == ZYDIS_MNEMONIC_PUSH ||
                           instruction.mnemonic == ZYDIS_MNEMONIC_POP ||
                           instruction.mnemonic == ZYDIS_MNEMONIC_LEAVE;
    bool is_string_elsewhere =
        instruction.meta.category == ZYDIS_CATEGORY_STRINGOP &&
        instruction.attributes & (ZYDIS_ATTRIB_HAS_SEGMENT_FS | ZYDIS_ATTRIB_HAS_SEGMENT_GS);
    return !(instruction.attributes & ZYDIS_ATTRIB_HAS_LOCK) && instruction.address_width == 64 &&
           !is_string_elsewhere && instruction.meta.branch_type != ZYDIS_BRANCH_TYPE_FAR &&
           (!has_stack_width || instruction.operand_width == 64) &&
           instruction.operand_count_visible <= 3;
}

static bool decode_operands (const ZydisDecoderContext &decoding,
                             const ZydisDecodedInstruction &instruction, form_t &form)
{
    ZydisDecodedOperand operands[3];
    const uint8_t count = instruction.operand_count_visible;
    return ZYAN_SUCCESS (
               ZydisDecoderDecodeOperands (&decoder, &decoding, &instruction, operands, count)) &&
           std::all_of (operands, operands + count, [&] (const ZydisDecodedOperand &each) {
               return decode_operand (each, form.operands[&each - operands]);
           });
}

// An instruction that is not known has the row after the last. Zydis reads no byte after the
// instruction, which may be the last of its page.
static bool decode_at (const uint8_t *code, form_t &form)
{
    ZydisDecodedInstruction instruction;
    ZydisDecoderContext decoding;
    if (ZYAN_FAILED (ZydisDecoderDecodeInstruction (&decoder, &decoding, code,
                                                    ZYDIS_MAX_INSTRUCTION_LENGTH, &instruction))) {
        return false;
    }
    auto *row = std::find_if (std::begin (table), std::end (table), [&] (const row_t &each) {
        return each.mnemonic == mnemonic_of (instruction);
    });
    form = {};
    std::copy_n (code, instruction.length, form.bytes);
    form.length = instruction.length;
    form.condition = instruction.opcode & 15;
    form.repeats = std::any_of (
        instruction.raw.prefixes, instruction.raw.prefixes + instruction.raw.prefix_count,
        [] (const auto &prefix) { return prefix.value == 0xF2 || prefix.value == 0xF3; });
    if (!is_ordinary (instruction) || !decode_operands (decoding, instruction, form)) {
        row = std::end (table);
    }
    form.row = static_cast<uint8_t> (row - table);
    return true;
}

// Reads no byte beyond the first that differs: the code may end there.
static bool starts_with (const uint8_t *code, const form_t &form)
{
    int i = 0;
    while (i < form.length && code[i] == form.bytes[i]) {
        i++;
    }
    return i > 0 && i == form.length;
}

// Forms once decoded. What an instruction is depends on its bytes alone, which are compared.
static bool find_form (const uint8_t *code, bool may_be_kept, form_t &form)
{
    if (!may_be_kept) {
        return decode_at (code, form);
    }
    static form_t kept[2048];
    const auto address = reinterpret_cast<uintptr_t> (code);
    form_t &place = kept[(address ^ address >> 9) % std::size (kept)];
    const bool is_known = starts_with (code, place) || decode_at (code, place);
    form = place;
    return is_known;
}

// Carrying out.

machine_t::machine_t (greg_t *registers, program_memory_t &memory, const form_t &form)
    : memory_ (memory), registers_ (registers), form_ (form), detail_ (table[form.row].detail),
      next_ (value (REG_RIP) + form.length), flags_ (value (REG_EFL))
{}

// A jump elsewhere is a fault of the jump.
static bool is_canonical (uint64_t address)
{
    return static_cast<uint64_t> (static_cast<int64_t> (address << 16) >> 16) == address;
}

bool machine_t::carry_out ()
{
    if (!(this->*table[form_.row].carry_out) ()) {
        return false;
    }
    set (REG_RIP, next_);
    set (REG_EFL, flags_);
    return true;
}

static uint64_t thread_pointer ()
{
    uint64_t pointer;
    asm("mov %%fs:0, %0" : "=r"(pointer));
    return pointer;
}

uint64_t machine_t::address_of (const operand_t &where) const
{
    uint64_t address = static_cast<uint64_t> (where.value);
    address += where.base == REG_RIP ? next_ : where.base == no_register ? 0 : value (where.base);
    address += where.index == no_register ? 0 : value (where.index) * where.scale;
    return address + (where.is_thread_local ? thread_pointer () : 0);
}

uint64_t machine_t::get (const operand_t &from)
{
    switch (from.kind) {
    case operand_t::in_register:
        return value (from.base) & mask_of (from.width);
    case operand_t::in_second_byte:
        return value (from.base) >> 8 & 0xFF;
    case operand_t::in_memory:
        return memory_.load (address_of (from), from.width);
    default:
        return static_cast<uint64_t> (from.value);
    }
}

// A 32-bit result clears the upper half of a register; smaller ones leave the rest.
void machine_t::put (const operand_t &to, uint64_t result)
{
    if (to.kind == operand_t::in_memory) {
        memory_.store (address_of (to), to.width, result & mask_of (to.width));
        return;
    }
    int shift = to.kind == operand_t::in_second_byte ? 8 : 0;
    uint64_t replaced = to.width == 4 ? ~0ULL : mask_of (to.width) << shift;
    set (to.base, (value (to.base) & ~replaced) | (result & mask_of (to.width)) << shift);
}

void machine_t::set_flags (uint64_t flags, uint64_t which)
{
    flags_ = (flags_ & ~which) | flags;
}

// AF is clear; a sum or a difference sets it later.
void machine_t::set_result_flags (uint64_t result, int width)
{
    result &= mask_of (width);
    set_flags ((result == 0 ? flag_zero : 0) | (result >> (8 * width - 1) ? flag_sign : 0) |
                   (__builtin_parityll (result & 0xFF) ? 0 : flag_parity),
               result_flags);
}

uint64_t machine_t::computed (int operation, uint64_t left, uint64_t right, int width)
{
    const uint64_t mask = mask_of (width), sign = 1ULL << (8 * width - 1);
    const bool adds = operation == op_add || operation == op_adc;
    const bool subtracts = operation == op_sub || operation == op_sbb || operation == op_cmp;
    const bool carry_in = (operation == op_adc || operation == op_sbb) && (flags_ & flag_carry);
    left &= mask;
    right &= mask;
    uint64_t result = operation == op_or    ? left | right
                      : operation == op_xor ? left ^ right
                      : adds                ? left + right + carry_in
                      : subtracts           ? left - right - carry_in
                                            : left & right;
    result &= mask;
    set_result_flags (result, width);
    uint64_t changed = left ^ right ^ result;
    uint64_t carries = adds        ? (left & right) | ((left | right) & ~result)
                       : subtracts ? (~left & right) | (~(left ^ right) & result)
                                   : 0;
    uint64_t overflows = adds        ? ~(left ^ right) & (left ^ result)
                         : subtracts ? (left ^ right) & (left ^ result)
                                     : 0;
    set_flags ((carries & sign ? flag_carry : 0) | (overflows & sign ? flag_overflow : 0) |
                   (adds || subtracts ? changed & flag_adjust : 0),
               flag_carry | flag_overflow | flag_adjust);
    return result;
}

// add, or, adc, sbb, and, sub, xor, cmp, test
bool machine_t::combine ()
{
    int width = operand (0).width;
    uint64_t left = get (operand (0));
    uint64_t result = computed (detail_, left, get (operand (1)), width);
    if (detail_ != op_cmp && detail_ != op_test) {
        put (operand (0), result);
    }
    return true;
}

// inc, dec
bool machine_t::step ()
{
    uint64_t carry = flags_ & flag_carry;
    uint64_t result = computed (detail_, get (operand (0)), 1, operand (0).width);
    set_flags (carry, flag_carry);
    put (operand (0), result);
    return true;
}

bool machine_t::negate ()
{
    put (operand (0), computed (op_sub, 0, get (operand (0)), operand (0).width));
    return true;
}

bool machine_t::invert ()
{
    put (operand (0), ~get (operand (0)));
    return true;
}

bool machine_t::move ()
{
    put (operand (0), get (operand (1)));
    return true;
}

bool machine_t::move_signed ()
{
    put (operand (0), sign_extended (get (operand (1)), operand (1).width));
    return true;
}

bool machine_t::move_swapped ()
{
    put (operand (0), swap_bytes (get (operand (1)), operand (1).width));
    return true;
}

bool machine_t::load_address ()
{
    put (operand (0), address_of (operand (1)));
    return true;
}

// The processor keeps all others out of the memory meanwhile.
bool machine_t::exchange ()
{
    if (operand (0).kind == operand_t::in_memory &&
        !memory_.is_exclusive (address_of (operand (0)))) {
        return false;
    }
    uint64_t first = get (operand (0)), second = get (operand (1));
    put (operand (0), second); // the one that may be in memory
    put (operand (1), first);
    return true;
}

// imul: of one, two or three operands. The product is that of the last two.
bool machine_t::multiply ()
{
    if (operand (1).kind == operand_t::none) {
        return multiply_wide ();
    }
    int width = operand (0).width;
    int right = operand (2).kind == operand_t::none ? 0 : 2;
    auto left_value = static_cast<int64_t> (sign_extended (get (operand (1)), width));
    auto right_value = static_cast<int64_t> (sign_extended (get (operand (right)), width));
    __int128 product = static_cast<__int128> (left_value) * right_value;
    uint64_t low = static_cast<uint64_t> (product);
    bool lost = product != static_cast<int64_t> (sign_extended (low, width));
    put (operand (0), low);
    set_flags (lost ? flag_carry | flag_overflow : 0, flag_carry | flag_overflow);
    return true;
}

static operand_t whole_register (int place, int width)
{
    operand_t operand = {};
    operand.kind = operand_t::in_register;
    operand.width = static_cast<uint8_t> (width);
    operand.base = static_cast<uint8_t> (place);
    return operand;
}

// mul, imul of one operand: RAX times the operand into RDX and RAX
bool machine_t::multiply_wide ()
{
    int width = operand (0).width;
    if (width < 4) {
        return false;
    }
    bool is_signed = table[form_.row].mnemonic == ZYDIS_MNEMONIC_IMUL;
    uint64_t left = value (REG_RAX) & mask_of (width), right = get (operand (0));
    unsigned __int128 product = static_cast<unsigned __int128> (left) * right;
    if (is_signed) {
        product = static_cast<unsigned __int128> (
            static_cast<__int128> (static_cast<int64_t> (sign_extended (left, width))) *
            static_cast<int64_t> (sign_extended (right, width)));
    }
    uint64_t low = static_cast<uint64_t> (product) & mask_of (width);
    uint64_t high = static_cast<uint64_t> (product >> 8 * width) & mask_of (width);
    uint64_t expected = is_signed && low >> (8 * width - 1) ? mask_of (width) : 0;
    put (whole_register (REG_RAX, width), low);
    put (whole_register (REG_RDX, width), high);
    set_flags (high != expected ? flag_carry | flag_overflow : 0, flag_carry | flag_overflow);
    return true;
}

bool machine_t::shift ()
{
    int width = operand (0).width;
    int count = static_cast<int> (get (operand (1)) & (width == 8 ? 63 : 31));
    uint64_t from = get (operand (0));
    put (operand (0), count == 0 ? from : shifted (detail_, from, count, width));
    return true;
}

// The flags as the processor leaves them for a shift by one; by more, the overflow is undefined.
uint64_t machine_t::shifted (int operation, uint64_t value, int count, int width)
{
    int bits = 8 * width, turn = count % bits;
    uint64_t result = 0;
    bool carry = false;
    switch (operation) {
    case op_rol:
        result = value << turn | (turn ? value >> (bits - turn) : 0);
        carry = result & 1;
        break;
    case op_ror:
        result = value >> turn | (turn ? value << (bits - turn) : 0);
        carry = result >> (bits - 1) & 1;
        break;
    case op_shl:
        result = value << count;
        carry = count <= bits && value >> (bits - count) & 1;
        break;
    default:
        value = operation == op_sar ? sign_extended (value, width) : value;
        result = static_cast<uint64_t> (static_cast<int64_t> (value) >> count);
        result = operation == op_sar ? result : value >> count;
        carry = static_cast<int64_t> (value) >> (count - 1) & 1;
    }
    result &= mask_of (width);
    bool top = result >> (bits - 1), below = result >> (bits - 2) & 1;
    bool overflow = operation == op_rol || operation == op_shl ? top != carry : top != below;
    if (operation >= op_shl) {
        set_result_flags (result, width);
        overflow = operation != op_sar && overflow;
        overflow = operation == op_shr ? value >> (bits - 1) & 1 : overflow;
    }
    set_flags ((carry ? flag_carry : 0) | (overflow ? flag_overflow : 0),
               flag_carry | flag_overflow);
    return result;
}

// bt, bts, btr, btc. With its number in a register, the bit of memory may be in another word.
bool machine_t::bit ()
{
    if (operand (0).kind == operand_t::in_memory && operand (1).kind != operand_t::immediate) {
        return false;
    }
    uint64_t number = get (operand (1)) % (8u * operand (0).width), mask = 1ULL << number;
    uint64_t from = get (operand (0));
    set_flags (from & mask ? flag_carry : 0, flag_carry);
    if (detail_ != op_bt) {
        put (operand (0), detail_ == op_bts   ? from | mask
                          : detail_ == op_btr ? from & ~mask
                                              : from ^ mask);
    }
    return true;
}

bool machine_t::swap ()
{
    if (operand (0).width == 2) {
        return false; // undefined
    }
    put (operand (0), swap_bytes (get (operand (0)), operand (0).width));
    return true;
}

// cbw, cwde, cdqe
bool machine_t::widen ()
{
    put (whole_register (REG_RAX, detail_), sign_extended (value (REG_RAX), detail_ / 2));
    return true;
}

// cwd, cdq, cqo
bool machine_t::widen_into_rdx ()
{
    bool is_negative = value (REG_RAX) >> (8 * detail_ - 1) & 1;
    put (whole_register (REG_RDX, detail_), is_negative ? ~0ULL : 0);
    return true;
}

// An immediate is relative to the next instruction.
uint64_t machine_t::target ()
{
    return get (operand (0)) + (operand (0).kind == operand_t::immediate ? next_ : 0);
}

bool machine_t::jump ()
{
    next_ = target ();
    return is_canonical (next_);
}

bool machine_t::call ()
{
    uint64_t to = target (), stack = value (REG_RSP) - 8;
    if (!is_canonical (to)) {
        return false;
    }
    memory_.store (stack, 8, next_);
    set (REG_RSP, stack);
    next_ = to;
    return true;
}

bool machine_t::return_from ()
{
    uint64_t stack = value (REG_RSP);
    next_ = memory_.load (stack, 8);
    if (!is_canonical (next_)) {
        return false;
    }
    set (REG_RSP, stack + 8 + (static_cast<uint64_t> (operand (0).value) & 0xFFFF));
    return true;
}

bool machine_t::push ()
{
    uint64_t stack = value (REG_RSP) - 8;
    memory_.store (stack, 8, get (operand (0)));
    set (REG_RSP, stack);
    return true;
}

bool machine_t::pop ()
{
    if (operand (0).kind == operand_t::in_memory) {
        return false;
    }
    uint64_t stack = value (REG_RSP), taken = memory_.load (stack, 8);
    set (REG_RSP, stack + 8);
    put (operand (0), taken);
    return true;
}

bool machine_t::leave ()
{
    uint64_t frame = value (REG_RBP), taken = memory_.load (frame, 8);
    set (REG_RSP, frame + 8);
    set (REG_RBP, taken);
    return true;
}

// A string with a prefix takes a step at a time: between two of them the processor may be
// interrupted.
bool machine_t::is_repeated_out () const
{
    return form_.repeats && value (REG_RCX) == 0;
}

void machine_t::step_string (int place)
{
    auto step = static_cast<uint64_t> (detail_);
    set (place, value (place) + (flags_ & flag_direction ? -step : step));
}

void machine_t::end_string_step ()
{
    if (form_.repeats) {
        set (REG_RCX, value (REG_RCX) - 1);
        next_ -= value (REG_RCX) != 0 ? form_.length : 0;
    }
}

bool machine_t::move_string ()
{
    if (!is_repeated_out ()) {
        memory_.store (value (REG_RDI), detail_, memory_.load (value (REG_RSI), detail_));
        step_string (REG_RSI);
        step_string (REG_RDI);
        end_string_step ();
    }
    return true;
}

bool machine_t::fill_string ()
{
    if (!is_repeated_out ()) {
        memory_.store (value (REG_RDI), detail_, value (REG_RAX) & mask_of (detail_));
        step_string (REG_RDI);
        end_string_step ();
    }
    return true;
}

bool machine_t::nothing ()
{
    return true;
}

// The last bit of its number inverts a condition.
bool machine_t::condition () const
{
    bool less = !(flags_ & flag_sign) != !(flags_ & flag_overflow);
    const bool conditions[8] = {(flags_ & flag_overflow) != 0,
                                (flags_ & flag_carry) != 0,
                                (flags_ & flag_zero) != 0,
                                (flags_ & (flag_carry | flag_zero)) != 0,
                                (flags_ & flag_sign) != 0,
                                (flags_ & flag_parity) != 0,
                                less,
                                less || (flags_ & flag_zero)};
    return conditions[form_.condition >> 1] != (form_.condition & 1);
}

bool machine_t::jump_if ()
{
    return condition () ? jump () : true;
}

bool machine_t::set_if ()
{
    put (operand (0), condition ());
    return true;
}

bool machine_t::move_if ()
{
    uint64_t from = get (operand (1));
    put (operand (0), condition () ? from : get (operand (0)));
    return true;
}

bool carry_out_instruction (ucontext_t &context, program_memory_t &memory)
{
    greg_t *registers = context.uc_mcontext.gregs;
    form_t form;
    return find_form (reinterpret_cast<const uint8_t *> (registers[REG_RIP]), memory.is_alone,
                      form) &&
           form.row < std::size (table) && machine_t (registers, memory, form).carry_out ();
}

uintptr_t program_counter (const ucontext_t &context)
{
    return static_cast<uintptr_t> (context.uc_mcontext.gregs[REG_RIP]);
}

uintptr_t stack_end (const ucontext_t &context)
{
    constexpr uintptr_t red_zone = 128;
    return static_cast<uintptr_t> (context.uc_mcontext.gregs[REG_RSP]) - red_zone;
}

bool fault_was_store (const ucontext_t &context)
{
    return context.uc_mcontext.gregs[REG_ERR] & 2; // of the page fault's error code
}

std::string describe_instruction (const ucontext_t &context)
{
    auto *code = reinterpret_cast<const uint8_t *> (program_counter (context));
    form_t form;
    size_t shown = decode_at (code, form) ? form.length : 1;
    char place[32];
    snprintf (place, sizeof (place), "at %p, bytes ", static_cast<const void *> (code));
    return place + hex_text (code, shown);
}
