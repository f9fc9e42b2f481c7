#include "chassis/trap/instruction.h"

#include <array>
#include <asm/ptrace.h>
#include <stdio.h>

// PowerPC, 32 bits, big-endian: every instruction is one word. The names of its fields, and the
// numbers of bits in comments, are those of the manual, which counts from the left.

namespace {

constexpr uint32_t xer_so = 0x80000000, xer_ca = 0x20000000;
constexpr uint32_t spr_lr = 8, spr_ctr = 9;

using registers_t = decltype (&ucontext_t{}.uc_mcontext.uc_regs->gregs[0]);

class machine_t {
  public:
    machine_t (registers_t registers, program_memory_t &memory, uint32_t word, int detail)
        : registers_ (registers), memory_ (memory), word_ (word), detail_ (detail),
          next_ (get (PT_NIP) + 4)
    {}
    uint32_t next () const
    {
        return next_;
    }

    bool add_immediate ();
    bool multiply_immediate ();
    bool logic_immediate ();
    bool compare_immediate ();
    bool rotate ();
    bool load ();
    bool store ();
    bool load_many ();
    bool store_many ();
    bool branch ();
    bool branch_if ();
    bool branch_to_register ();
    bool combine_condition ();
    bool move_condition ();
    bool add ();
    bool multiply ();
    bool divide ();
    bool logic ();
    bool shift ();
    bool extend ();
    bool compare ();
    bool from_condition ();
    bool to_condition ();
    bool from_special ();
    bool to_special ();
    bool nothing ();

  private:
    const registers_t registers_; // changed after the last access to memory
    program_memory_t &memory_;
    const uint32_t word_;
    const int detail_; // of the table's row
    uint32_t next_;

    uint32_t get (uint32_t place) const
    {
        return static_cast<uint32_t> (registers_[place]);
    }
    void set (uint32_t place, uint32_t value)
    {
        registers_[place] = value;
    }
    // The five bits whose last is bit `last`.
    uint32_t field (int last) const
    {
        return word_ >> (31 - last) & 31;
    }
    uint32_t rt () const
    {
        return field (10);
    }
    uint32_t ra () const
    {
        return field (15);
    }
    uint32_t rb () const
    {
        return field (20);
    }
    uint32_t displacement () const
    {
        return static_cast<uint32_t> (static_cast<int16_t> (word_));
    }
    uint32_t ra_or_zero () const
    {
        return ra () == 0 ? 0 : get (ra ());
    }
    bool is_indexed () const
    {
        return word_ >> 26 == 31;
    }
    uint32_t address () const
    {
        return ra_or_zero () + (is_indexed () ? get (rb ()) : displacement ());
    }
    void set_carry (bool carry);
    void set_condition (uint32_t number, bool less, bool greater);
    void set_result (uint32_t place, uint32_t result);
    void sum (uint32_t left, uint32_t right, uint32_t carry);
    bool condition_bit (uint32_t number) const;
    bool is_taken ();
    void jump (uint32_t target);
};

struct row_t {
    bool (machine_t::*carry_out) () = nullptr; // null: not known
    int detail = 0;
    uint32_t reserved = 0; // bits that are zero
};

struct numbered_row_t {
    uint32_t number;
    row_t row;
};

// Of loads and stores: the width, and these.
enum {
    has_sign = 16,
    updates = 32,
    is_reversed = 64
};
// Of sums: how the operands are taken. Without `from_carry` the third is 0, or 1 for a difference.
enum {
    inverts_a = 1,
    to_carry = 2,
    from_carry = 4,
    b_is_zero = 8,
    b_is_minus_one = 16,
    is_dot = 32
};
enum {
    bits_and,
    bits_andc,
    bits_nor,
    bits_eqv,
    bits_xor,
    bits_orc,
    bits_or,
    bits_nand
};
enum {
    insert_mask = 1,
    by_register = 2
};
enum {
    shift_left,
    shift_right,
    shift_algebraic,
    shift_algebraic_immediate
};
enum {
    extend_byte,
    extend_half,
    count_zeros
};
enum {
    is_signed = 1,
    is_high = 2
};

constexpr uint32_t rt_field = 31 << 21, ra_field = 31 << 16, rb_field = 31 << 11, rc_bit = 1;
constexpr uint32_t compare_field = 0x00600000;

// What the board knows, for an access to a register as for what follows it: by bits 0 to 5,
constexpr numbered_row_t primary_rows[] = {
    {7, {&machine_t::multiply_immediate}},
    {8, {&machine_t::add_immediate, inverts_a | to_carry}},
    {10, {&machine_t::compare_immediate, 0, compare_field}},
    {11, {&machine_t::compare_immediate, is_signed, compare_field}},
    {12, {&machine_t::add_immediate, to_carry}},
    {13, {&machine_t::add_immediate, to_carry | is_dot}},
    {14, {&machine_t::add_immediate}},
    {15, {&machine_t::add_immediate}},
    {16, {&machine_t::branch_if}},
    {18, {&machine_t::branch}},
    {20, {&machine_t::rotate, insert_mask}},
    {21, {&machine_t::rotate}},
    {23, {&machine_t::rotate, by_register}},
    {24, {&machine_t::logic_immediate, bits_or}},
    {25, {&machine_t::logic_immediate, bits_or}},
    {26, {&machine_t::logic_immediate, bits_xor}},
    {27, {&machine_t::logic_immediate, bits_xor}},
    {28, {&machine_t::logic_immediate, bits_and}},
    {29, {&machine_t::logic_immediate, bits_and}},
    {32, {&machine_t::load, 4}},
    {33, {&machine_t::load, 4 | updates}},
    {34, {&machine_t::load, 1}},
    {35, {&machine_t::load, 1 | updates}},
    {36, {&machine_t::store, 4}},
    {37, {&machine_t::store, 4 | updates}},
    {38, {&machine_t::store, 1}},
    {39, {&machine_t::store, 1 | updates}},
    {40, {&machine_t::load, 2}},
    {41, {&machine_t::load, 2 | updates}},
    {42, {&machine_t::load, 2 | has_sign}},
    {43, {&machine_t::load, 2 | has_sign | updates}},
    {44, {&machine_t::store, 2}},
    {45, {&machine_t::store, 2 | updates}},
    {46, {&machine_t::load_many}},
    {47, {&machine_t::store_many}},
};

// by bits 21 to 30 under 19,
constexpr uint32_t branch_field = 0x0000E000;
constexpr numbered_row_t rows_19[] = {
    {0, {&machine_t::move_condition, 0, 0x0063F800 | rc_bit}},
    {16, {&machine_t::branch_to_register, PT_LNK, branch_field}},
    {528, {&machine_t::branch_to_register, PT_CTR, branch_field}},
    {33, {&machine_t::combine_condition, bits_nor, rc_bit}},
    {129, {&machine_t::combine_condition, bits_andc, rc_bit}},
    {193, {&machine_t::combine_condition, bits_xor, rc_bit}},
    {225, {&machine_t::combine_condition, bits_nand, rc_bit}},
    {257, {&machine_t::combine_condition, bits_and, rc_bit}},
    {289, {&machine_t::combine_condition, bits_eqv, rc_bit}},
    {417, {&machine_t::combine_condition, bits_orc, rc_bit}},
    {449, {&machine_t::combine_condition, bits_or, rc_bit}},
    {150, {&machine_t::nothing, 0, rt_field | ra_field | rb_field | rc_bit}},
};

// and by those under 31.
constexpr numbered_row_t rows_31[] = {
    {0, {&machine_t::compare, is_signed, compare_field | rc_bit}},
    {32, {&machine_t::compare, 0, compare_field | rc_bit}},
    {8, {&machine_t::add, inverts_a | to_carry}},
    {10, {&machine_t::add, to_carry}},
    {40, {&machine_t::add, inverts_a}},
    {104, {&machine_t::add, inverts_a | b_is_zero, rb_field}},
    {136, {&machine_t::add, inverts_a | to_carry | from_carry}},
    {138, {&machine_t::add, to_carry | from_carry}},
    {200, {&machine_t::add, inverts_a | to_carry | from_carry | b_is_zero, rb_field}},
    {202, {&machine_t::add, to_carry | from_carry | b_is_zero, rb_field}},
    {232, {&machine_t::add, inverts_a | to_carry | from_carry | b_is_minus_one, rb_field}},
    {234, {&machine_t::add, to_carry | from_carry | b_is_minus_one, rb_field}},
    {266, {&machine_t::add}},
    {11, {&machine_t::multiply, is_high}},
    {75, {&machine_t::multiply, is_high | is_signed}},
    {235, {&machine_t::multiply}},
    {459, {&machine_t::divide}},
    {491, {&machine_t::divide, is_signed}},
    {24, {&machine_t::shift, shift_left}},
    {536, {&machine_t::shift, shift_right}},
    {792, {&machine_t::shift, shift_algebraic}},
    {824, {&machine_t::shift, shift_algebraic_immediate}},
    {26, {&machine_t::extend, count_zeros, rb_field}},
    {922, {&machine_t::extend, extend_half, rb_field}},
    {954, {&machine_t::extend, extend_byte, rb_field}},
    {28, {&machine_t::logic, bits_and}},
    {60, {&machine_t::logic, bits_andc}},
    {124, {&machine_t::logic, bits_nor}},
    {284, {&machine_t::logic, bits_eqv}},
    {316, {&machine_t::logic, bits_xor}},
    {412, {&machine_t::logic, bits_orc}},
    {444, {&machine_t::logic, bits_or}},
    {476, {&machine_t::logic, bits_nand}},
    {19, {&machine_t::from_condition, 0, ra_field | rb_field | rc_bit}},
    {144, {&machine_t::to_condition, 0, 0x00100800 | rc_bit}},
    {339, {&machine_t::from_special, 0, rc_bit}},
    {467, {&machine_t::to_special, 0, rc_bit}},
    {23, {&machine_t::load, 4, rc_bit}},
    {55, {&machine_t::load, 4 | updates, rc_bit}},
    {87, {&machine_t::load, 1, rc_bit}},
    {119, {&machine_t::load, 1 | updates, rc_bit}},
    {151, {&machine_t::store, 4, rc_bit}},
    {183, {&machine_t::store, 4 | updates, rc_bit}},
    {215, {&machine_t::store, 1, rc_bit}},
    {247, {&machine_t::store, 1 | updates, rc_bit}},
    {279, {&machine_t::load, 2, rc_bit}},
    {311, {&machine_t::load, 2 | updates, rc_bit}},
    {343, {&machine_t::load, 2 | has_sign, rc_bit}},
    {375, {&machine_t::load, 2 | has_sign | updates, rc_bit}},
    {407, {&machine_t::store, 2, rc_bit}},
    {439, {&machine_t::store, 2 | updates, rc_bit}},
    {534, {&machine_t::load, 4 | is_reversed, rc_bit}},
    {662, {&machine_t::store, 4 | is_reversed, rc_bit}},
    {790, {&machine_t::load, 2 | is_reversed, rc_bit}},
    {918, {&machine_t::store, 2 | is_reversed, rc_bit}},
    {598, {&machine_t::nothing, 0, rt_field | ra_field | rb_field | rc_bit}},
    {854, {&machine_t::nothing, 0, rt_field | ra_field | rb_field | rc_bit}},
};

template <size_t size, size_t count>
constexpr std::array<row_t, size> by_number (const numbered_row_t (&rows)[count])
{
    std::array<row_t, size> all{};
    for (const numbered_row_t &each : rows) {
        all[each.number] = each.row;
    }
    return all;
}

} // namespace

static const row_t &row_of (uint32_t word)
{
    static constexpr auto primary = by_number<64> (primary_rows);
    static constexpr auto under_19 = by_number<1024> (rows_19);
    static constexpr auto under_31 = by_number<1024> (rows_31);
    const uint32_t extended = word >> 1 & 0x3FF;
    switch (word >> 26) {
    case 19:
        return under_19[extended];
    case 31:
        return under_31[extended];
    default:
        return primary[word >> 26];
    }
}

void machine_t::set_carry (bool carry)
{
    set (PT_XER, (get (PT_XER) & ~xer_ca) | (carry ? xer_ca : 0));
}

void machine_t::set_condition (uint32_t number, bool less, bool greater)
{
    uint32_t overflow = get (PT_XER) & xer_so ? 1 : 0, shift = 28 - 4 * number;
    uint32_t value = (less ? 8u : greater ? 4u : 2u) | overflow;
    set (PT_CCR, (get (PT_CCR) & ~(15u << shift)) | value << shift);
}

// With the last bit of the instruction set, the first condition field describes the result.
void machine_t::set_result (uint32_t place, uint32_t result)
{
    set (place, result);
    if (word_ & rc_bit) {
        set_condition (0, static_cast<int32_t> (result) < 0, result != 0);
    }
}

// Of the operands as `detail_` takes them, into RT.
void machine_t::sum (uint32_t left, uint32_t right, uint32_t carry)
{
    left = detail_ & inverts_a ? ~left : left;
    uint64_t result = static_cast<uint64_t> (left) + right + carry;
    set (rt (), static_cast<uint32_t> (result));
    if (detail_ & to_carry) {
        set_carry (result >> 32);
    }
}

// addi, addis, addic, addic., subfic
bool machine_t::add_immediate ()
{
    uint32_t primary = word_ >> 26;
    uint32_t left = primary == 14 || primary == 15 ? ra_or_zero () : get (ra ());
    sum (left, primary == 15 ? word_ << 16 : displacement (), detail_ & inverts_a ? 1 : 0);
    if (detail_ & is_dot) {
        set_condition (0, static_cast<int32_t> (get (rt ())) < 0, get (rt ()) != 0);
    }
    return true;
}

bool machine_t::add ()
{
    uint32_t right = detail_ & b_is_zero ? 0 : detail_ & b_is_minus_one ? ~0u : get (rb ());
    uint32_t carry = detail_ & from_carry  ? (get (PT_XER) & xer_ca ? 1 : 0)
                     : detail_ & inverts_a ? 1
                                           : 0;
    sum (get (ra ()), right, carry);
    set_result (rt (), get (rt ()));
    return true;
}

bool machine_t::multiply_immediate ()
{
    set (rt (), get (ra ()) * displacement ());
    return true;
}

bool machine_t::multiply ()
{
    uint64_t left = get (ra ()), right = get (rb ());
    if (detail_ & is_signed) {
        left = static_cast<uint64_t> (static_cast<int32_t> (left));
        right = static_cast<uint64_t> (static_cast<int32_t> (right));
    }
    set_result (rt (), static_cast<uint32_t> (left * right >> (detail_ & is_high ? 32 : 0)));
    return true;
}

// What has no quotient leaves an undefined one.
bool machine_t::divide ()
{
    uint32_t left = get (ra ()), right = get (rb ());
    if (right == 0 || (detail_ == is_signed && left == 0x80000000 && right == ~0u)) {
        return false;
    }
    set_result (rt (), detail_ == is_signed ? static_cast<uint32_t> (static_cast<int32_t> (left) /
                                                                     static_cast<int32_t> (right))
                                            : left / right);
    return true;
}

static uint32_t combined (int operation, uint32_t left, uint32_t right)
{
    switch (operation) {
    case bits_and:
        return left & right;
    case bits_andc:
        return left & ~right;
    case bits_nor:
        return ~(left | right);
    case bits_eqv:
        return ~(left ^ right);
    case bits_xor:
        return left ^ right;
    case bits_orc:
        return left | ~right;
    case bits_or:
        return left | right;
    default:
        return ~(left & right);
    }
}

// The odd ones of them take the upper half. andi. and andis. set the condition field.
bool machine_t::logic_immediate ()
{
    uint32_t primary = word_ >> 26, right = (word_ & 0xFFFF) << (primary & 1 ? 16 : 0);
    uint32_t result = combined (detail_, get (rt ()), right);
    set (ra (), result);
    if (detail_ == bits_and) {
        set_condition (0, static_cast<int32_t> (result) < 0, result != 0);
    }
    return true;
}

bool machine_t::logic ()
{
    set_result (ra (), combined (detail_, get (rt ()), get (rb ())));
    return true;
}

bool machine_t::extend ()
{
    uint32_t value = get (rt ());
    switch (detail_) {
    case extend_byte:
        set_result (ra (), static_cast<uint32_t> (static_cast<int8_t> (value)));
        break;
    case extend_half:
        set_result (ra (), static_cast<uint32_t> (static_cast<int16_t> (value)));
        break;
    default:
        set_result (ra (), value == 0 ? 32 : static_cast<uint32_t> (__builtin_clz (value)));
    }
    return true;
}

// By 32 to 63 all bits are shifted out.
bool machine_t::shift ()
{
    uint32_t value = get (rt ());
    uint32_t count = detail_ == shift_algebraic_immediate ? rb () : get (rb ()) & 63;
    switch (detail_) {
    case shift_left:
        set_result (ra (), static_cast<uint32_t> (static_cast<uint64_t> (value) << count));
        break;
    case shift_right:
        set_result (ra (), static_cast<uint32_t> (static_cast<uint64_t> (value) >> count));
        break;
    default:
        uint64_t lost = ((1ULL << count) - 1) & value;
        set_carry (static_cast<int32_t> (value) < 0 && lost != 0);
        set_result (ra (), static_cast<uint32_t> (
                               static_cast<int64_t> (static_cast<int32_t> (value)) >> count));
    }
    return true;
}

// rlwimi, rlwinm, rlwnm. A mask whose end is before its begin wraps around.
bool machine_t::rotate ()
{
    uint32_t count = detail_ == by_register ? get (rb ()) & 31 : rb ();
    uint32_t value = get (rt ()), begin = field (25), end = field (30);
    uint32_t turned = value << count | (count ? value >> (32 - count) : 0);
    uint32_t from_begin = ~0u >> begin, to_end = ~0u << (31 - end);
    uint32_t mask = begin <= end ? from_begin & to_end : from_begin | to_end;
    set_result (ra (), (turned & mask) | (detail_ == insert_mask ? get (ra ()) & ~mask : 0));
    return true;
}

bool machine_t::compare_immediate ()
{
    uint32_t left = get (ra ()), right = detail_ == is_signed ? displacement () : word_ & 0xFFFF;
    uint32_t bias = detail_ == is_signed ? 0x80000000 : 0;
    set_condition (word_ >> 23 & 7, (left ^ bias) < (right ^ bias), (left ^ bias) > (right ^ bias));
    return true;
}

bool machine_t::compare ()
{
    uint32_t bias = detail_ == is_signed ? 0x80000000 : 0;
    uint32_t left = get (ra ()) ^ bias, right = get (rb ()) ^ bias;
    set_condition (word_ >> 23 & 7, left<right, left> right);
    return true;
}

static uint32_t reversed (uint32_t value, int width)
{
    return __builtin_bswap32 (value) >> 8 * (4 - width);
}

bool machine_t::load ()
{
    const uint32_t from = address ();
    const int width = detail_ & 15;
    if (detail_ & updates && (ra () == 0 || ra () == rt ())) {
        return false;
    }
    auto value = static_cast<uint32_t> (memory_.load (from, width));
    value = detail_ & has_sign      ? static_cast<uint32_t> (static_cast<int16_t> (value))
            : detail_ & is_reversed ? reversed (value, width)
                                    : value;
    set (rt (), value);
    if (detail_ & updates) {
        set (ra (), from);
    }
    return true;
}

bool machine_t::store ()
{
    const uint32_t to = address ();
    const int width = detail_ & 15;
    if (detail_ & updates && ra () == 0) {
        return false;
    }
    uint32_t value = get (rt ()) & (width == 4 ? ~0u : (1u << 8 * width) - 1);
    memory_.store (to, width, detail_ & is_reversed ? reversed (value, width) : value);
    if (detail_ & updates) {
        set (ra (), to);
    }
    return true;
}

bool machine_t::load_many ()
{
    const uint32_t from = address (), first = rt ();
    if (ra () >= first || from % 4 != 0) {
        return false;
    }
    uint32_t values[32];
    for (uint32_t i = first; i < 32; i++) {
        values[i] = static_cast<uint32_t> (memory_.load (from + 4 * (i - first), 4));
    }
    for (uint32_t i = first; i < 32; i++) {
        set (i, values[i]);
    }
    return true;
}

bool machine_t::store_many ()
{
    const uint32_t to = address (), first = rt ();
    for (uint32_t i = first; i < 32 && to % 4 == 0; i++) {
        memory_.store (to + 4 * (i - first), 4, get (i));
    }
    return to % 4 == 0;
}

bool machine_t::condition_bit (uint32_t number) const
{
    return get (PT_CCR) >> (31 - number) & 1;
}

// Counts CTR down where the instruction says so.
bool machine_t::is_taken ()
{
    const uint32_t bo = rt (), bi = ra ();
    bool count_holds = true;
    if (!(bo & 4)) {
        set (PT_CTR, get (PT_CTR) - 1);
        count_holds = (get (PT_CTR) != 0) != !!(bo & 2);
    }
    return count_holds && (bo & 16 || condition_bit (bi) == !!(bo & 8));
}

// With the last bit set the link register is set, whether or not the branch is taken.
void machine_t::jump (uint32_t target)
{
    if (word_ & 1) {
        set (PT_LNK, get (PT_NIP) + 4);
    }
    next_ = target & ~3u;
}

bool machine_t::branch ()
{
    auto offset = static_cast<uint32_t> (static_cast<int32_t> (word_ << 6) >> 6) & ~3u;
    jump (offset + (word_ & 2 ? 0 : get (PT_NIP)));
    return true;
}

bool machine_t::branch_if ()
{
    uint32_t target = (displacement () & ~3u) + (word_ & 2 ? 0 : get (PT_NIP));
    jump (is_taken () ? target : next_);
    return true;
}

bool machine_t::branch_to_register ()
{
    if (detail_ == PT_CTR && !(rt () & 4)) {
        return false;
    }
    uint32_t target = get (static_cast<uint32_t> (detail_));
    jump (is_taken () ? target : next_);
    return true;
}

bool machine_t::combine_condition ()
{
    uint32_t bit = combined (detail_, condition_bit (ra ()), condition_bit (rb ())) & 1;
    uint32_t shift = 31 - rt ();
    set (PT_CCR, (get (PT_CCR) & ~(1u << shift)) | bit << shift);
    return true;
}

// mcrf
bool machine_t::move_condition ()
{
    uint32_t to = 28 - 4 * (word_ >> 23 & 7), from = 28 - 4 * (word_ >> 18 & 7);
    uint32_t value = get (PT_CCR) >> from & 15;
    set (PT_CCR, (get (PT_CCR) & ~(15u << to)) | value << to);
    return true;
}

bool machine_t::from_condition ()
{
    set (rt (), get (PT_CCR));
    return true;
}

bool machine_t::to_condition ()
{
    uint32_t mask = 0;
    for (uint32_t i = 0; i < 8; i++) {
        mask |= word_ >> (12 + i) & 1 ? 15u << 4 * i : 0;
    }
    set (PT_CCR, (get (PT_CCR) & ~mask) | (get (rt ()) & mask));
    return true;
}

// Of the special registers the two of branches.
static uint32_t place_of_special (uint32_t number)
{
    return number == spr_lr ? PT_LNK : number == spr_ctr ? PT_CTR : PT_NIP;
}

bool machine_t::from_special ()
{
    uint32_t place = place_of_special (ra () | rb () << 5);
    if (place == PT_NIP) {
        return false;
    }
    set (rt (), get (place));
    return true;
}

bool machine_t::to_special ()
{
    uint32_t place = place_of_special (ra () | rb () << 5);
    if (place == PT_NIP) {
        return false;
    }
    set (place, get (rt ()));
    return true;
}

// sync, eieio, isync: other processors see the accesses in the order in which they are made.
bool machine_t::nothing ()
{
    __sync_synchronize ();
    return true;
}

uintptr_t program_counter (const ucontext_t &context)
{
    return context.uc_mcontext.uc_regs->gregs[PT_NIP];
}

uintptr_t stack_end (const ucontext_t &context)
{
    return context.uc_mcontext.uc_regs->gregs[1];
}

static uint32_t instruction_at (const ucontext_t &context)
{
    return *reinterpret_cast<const uint32_t *> (program_counter (context));
}

bool carry_out_instruction (ucontext_t &context, program_memory_t &memory)
{
    auto *registers = context.uc_mcontext.uc_regs->gregs;
    const uint32_t word = instruction_at (context);
    const row_t &row = row_of (word);
    machine_t machine (registers, memory, word, row.detail);
    if (row.carry_out == nullptr || (word & row.reserved) || !(machine.*row.carry_out) ()) {
        return false;
    }
    registers[PT_NIP] = machine.next ();
    return true;
}

bool fault_was_store (const ucontext_t &context)
{
    const row_t &row = row_of (instruction_at (context));
    return row.carry_out == &machine_t::store || row.carry_out == &machine_t::store_many;
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
