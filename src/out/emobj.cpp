// Sizes and encodes code lists.
//
// First the size pass. It walks a psect's list, adding up sizes: every node gets its offset, every label its value. The
// size of a branch depends on how far away its label is, and that label may lie behind it. So the walk is repeated, each
// time with the label values that the walk before has left, until nothing moves any more. A label that lies ahead of the
// branch has its value from before the walk, when the branch stood elsewhere too: the distance is that of their places then,
// or a large psect would take a walk for every two kilobytes. Usually branches only shrink from one walk to the next and
// this is over after a few of them. But padding can make them chase each other for ever; therefore after a number of walks
// a branch may only grow, so that each further walk makes at least one longer, and after three times that many all those
// that still have a choice take their longest form, which ends it.
//
// Then emission, which is the road of an operand from value to bytes and relocations:
//
//     1. emit_psect walks the list and writes line information ahead of each node; emobj looks the node's kind up in the
//        table below and calls its encoder.
//     2. The encoder takes the operand through operand_reduce. Symbols give way to their values: a label becomes its
//        place in a psect, a constant defined further down the source its number, an external stays. The current
//        location becomes a place too. In an absolute psect a place is an address, thus a number. What has become a
//        number, the difference of two labels for one, is folded.
//     3. The encoder cuts the operand into the fields that the instruction has, with the folding operators of `expr`: a
//        number stays a number, anything else grows into an expression tree. `goto x` has the fields (x>>1)&255 and x>>9.
//     4. It hands the word's template, the field's value and its width to the writer, st.emit.
//     5. The writer for the object file is emit_bytes in objout.cpp: a number is added to the template; a place or a tree
//        becomes a relocation entry. The writer for the listing puts everything in its queue (emlist.cpp). A program that
//        is listed is encoded twice, first for the listing.
//
// What may bite. Trees are shared, so reduction never writes to operand records; it makes new ones where something
// changed. Operands are reduced once, before the first word of a node goes out: `$` means the node's own place in all
// of its words (the items of `db` stand each at their own). Encoders find the form of a branch by the distance to the
// next node; an `org` stands where it says, so in front of one the form is worked out again from the final labels.
// Offsets are 32 bits. A position that would pass OFFS_MAX stays there, and emission stops, with a message, where it
// meets it.
#include "out/emobj.h"

#include <array>
#include <cstring>

#include "chip/chip.h"
#include "code/ops.h"
#include "common/alert.h"
#include "common/srcpos.h"
#include "common/xalloc.h"
#include "env/registry.h"
#include "options.h"
#include "out/emlist.h"
#include "out/objout.h"

enum : unsigned { SETTLE_PASSES = 50, MOST_EXTRA_PASSES = 1000, AHEAD = 12 };
enum : uint64_t { OFFS_MAX = 0xFFFFFFFF, ALIGN_MAX = 0x200000 };   // the padding of one `align`: all of program memory
enum : uint16_t { NOP2 = 0xFFFF };
enum : uint32_t { ERRATA_NOP2 = 0x20000, ARCH_14BIT = ARCH_X };
enum : unsigned { REDUCE_STEPS = 20000, REDUCE_DEPTH = 5000 };
enum : uint16_t { CALL_FAST = 0x0100 };

typedef void (*emit_fn)(uint64_t word, const value_t *value, unsigned nbytes, unsigned bits);

struct placed_t;

static struct {
    emit_fn emit = emit_bytes;   // takes each word, with the value for its field normalised or null
    bool listing;                // the words go to the listing; the object file's turn is for messages and for records
    bool longest;                // size pass: branches no longer have a choice
    placed_t *placed;            // size pass: the nodes of a psect that it has to walk again and again
    size_t placed_count, placed_room;
    unsigned settle_passes;      // size pass: walks after which branches may only grow
    bool rigid;                  // size pass: not all nodes move when one grows
    const char *last_file;       // told to debuggers
    uint64_t last_line;
} st;

// Sums wrap around.
static int64_t plus(int64_t a, int64_t b)
{
    return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}

static int64_t minus(int64_t a, int64_t b)
{
    return static_cast<int64_t>(static_cast<uint64_t>(a) - static_cast<uint64_t>(b));
}

// Reduction of operands.

enum reduced_t { SAME, NEW, FAILED };
struct reduce_t {
    unsigned steps, depth;
};
static reduced_t reduce(value_t *v, reduce_t *r);

static reduced_t reduce_operands(value_t *v, reduce_t *r)
{
    const bool binary = rtype_is_binary(v->v_rtype);
    value_t left = *value_left(v), right = {};
    reduced_t changed = SAME;
    if (binary) {
        right = *value_right(v);
        changed = reduce(&right, r);
    }
    if (changed != FAILED) {
        const reduced_t c = reduce(&left, r);
        changed = c == SAME ? changed : c;
    }
    const uint32_t nodes = 1 + left.v_nodes + right.v_nodes;
    if (changed == FAILED || nodes > VALUE_MAX_NODES)
        return FAILED;
    if (changed == NEW) {
        value_t *kids = xnew<value_t>(binary ? 2 : 1);
        kids[0] = left;
        if (binary)
            kids[1] = right;
        v->v_kids = kids;
        v->v_nodes = nodes;
    }
    return changed;
}

static void to_number(value_t *v, int64_t n)
{
    const uint8_t common = v->v_common;
    *v = value_const(n);
    v->v_common = common;
}

// A symbol's turn. SAME if it stays; NEW if its value has taken its place.
static reduced_t reduce_symbol(value_t *v)
{
    symbol_t *s = v->v_sym;
    const bool temporary = v->v_rtype != RT_SYM;
    if ((s->s_flags & S_UNDEF && !temporary) || sym_is_self(s)) {
        if (temporary) {
            if (!st.listing)
                alert_msg(803);   // its label lies in a false arm
            to_number(v, 0xFFFF);
            return NEW;
        }
        if (!psect_is_abs(s))
            return SAME;
        to_number(v, v->v_offs);
        return NEW;
    }
    sym_add_ref(s);
    const int64_t offs = v->v_offs;
    *v = s->s_value;
    v->v_offs = plus(v->v_offs, offs);
    return NEW;
}

// The current location in addressing units, as a label has it.
static int64_t units_here()
{
    const psect_t *p = cur_psect->s_psect;
    return static_cast<int64_t>(p->p_curr / psect_delta(p));
}

static reduced_t reduce(value_t *v, reduce_t *r)
{
    reduced_t changed = SAME;
    for (;;) {
        if (r->steps == 0 || r->depth == 0)
            return FAILED;
        r->steps--;
        switch (v->v_rtype) {
        case RT_PSECT:
            if (!psect_is_abs(v->v_sym))
                return changed;
            to_number(v, v->v_offs);
            return NEW;
        case RT_HERE:
            if (!cur_psect)
                return changed;
            *v = value_psect_offset(cur_psect, plus(v->v_offs, units_here()));
            return NEW;
        case RT_SYM:
        case RT_TLABF:
        case RT_TLABB:
            if (reduce_symbol(v) == SAME)
                return changed;
            changed = NEW;
            continue;
        default:
            if (v->v_nodes == 0)
                return changed;
            r->depth--;
            const reduced_t c = reduce_operands(v, r);
            r->depth++;
            return c == SAME ? changed : c;
        }
    }
}

void operand_reduce(value_t *v)
{
    if (v->v_rtype == RT_CONST)
        return;
    reduce_t r = {REDUCE_STEPS, REDUCE_DEPTH};
    value_t whole = *v;
    if (reduce(&whole, &r) == FAILED)
        return;
    if (whole.v_nodes || whole.v_rtype == RT_DEFINED)
        value_eval(&whole);
    *v = whole;
}

// Sizes.

static bool is_live_org(const op_t *op) { return op->op_type == T_ORG && !(op->op_flags & OPF_SKIPPED); }

// How far a branch at `here` has to reach. A distance relative to `$` counts from the branch itself when it goes forward.
struct reach_t {
    int64_t back, ahead;
    bool within(int64_t lo, int64_t hi) const { return back >= lo && ahead <= hi; }
};

static reach_t reach_from(uint64_t here, int64_t to)
{
    const int64_t distance = minus(minus(to, 2), static_cast<int64_t>(here));
    return {distance, distance};
}

// Whether `addend` behind the place `v` is known to lie at some distance in the same psect.
static bool place_is_near(const value_t *v, int64_t addend, uint64_t here, reach_t *reach)
{
    const int64_t offs = plus(addend, v->v_offs);
    if (v->v_rtype == RT_HERE)
        *reach = {minus(offs, 2), offs};
    else
        *reach = reach_from(here, offs);
    return v->v_rtype == RT_HERE || (v->v_rtype == RT_PSECT && v->v_sym == cur_psect);
}

static bool is_near(const value_t *v, uint64_t here, reach_t *reach)
{
    if (psect_is_abs(cur_psect)) {
        *reach = reach_from(here, v->v_offs);
        return v->v_rtype == RT_CONST;
    }
    return value_is_reference(v) ? place_is_near(&v->v_sym->s_value, v->v_offs, here, reach)
                                 : place_is_near(v, 0, here, reach);
}

// Whether the size of a branch depends on where its target is.
static bool has_forms(const op_t *op)
{
    switch (op->op_type) {
    case T_BCC:
        return !opt.no_trans && !(op->op_flags & OPF_COMPILED);
    case T_GOTO:
        return opt.optimise && !(op->op_flags & OPF_FIXED);
    case T_CALL:
        return !opt.no_trans && !(op->op_subop & CALL_FAST);
    default:
        return false;
    }
}

// The size of a branch that has forms.
static uint64_t form_size(unsigned type, bool near, reach_t reach)
{
    near &= !st.longest;
    if (type == T_BCC)
        return !near ? 6 : reach.within(-256, 255) ? 2 : reach.within(-2044, 2043) ? 4 : 6;
    return near && reach.within(-2048, 2047) ? 2 : 4;
}

// These take a node of a row's kind at position `pos`. Sizes may be anything up to OFFS_MAX + 1.
static uint64_t size_branch(const op_t *op, uint64_t pos)
{
    if (!has_forms(op))
        return op->op_type == T_BCC ? 2 : 4;
    reach_t reach;
    const bool near = is_near(&op->op_opnd1.opnd_value, pos, &reach);
    return form_size(op->op_type, near, reach);
}

symbol_t *value_psect(const value_t *v)
{
    if (v->v_rtype == RT_PSECT)
        return v->v_sym;
    if (!value_is_reference(v))
        return nullptr;
    const value_t *behind = &v->v_sym->s_value;
    if (behind->v_rtype == RT_PSECT)
        return behind->v_sym;
    return behind->v_rtype == RT_SYM && behind->v_sym->s_defop ? behind->v_sym->s_defop->op_psect : nullptr;
}

static bool is_low_address(const opnd_t *o)
{
    const value_t &v = o->opnd_value;
    return o->opnd_kind == OPND_DATA && v.v_rtype == RT_CONST && static_cast<uint64_t>(v.v_offs) < 4096;
}

static bool in_lowdata(const opnd_t *o)
{
    const symbol_t *psect = value_psect(&o->opnd_value);
    return psect && psect->s_psect->p_lowdata;
}

bool movff_is_short(const op_t *op)
{
    if (!chip_archIs(ARCH_14BIT))
        return true;
    if (is_low_address(&op->op_opnd1) && is_low_address(&op->op_opnd2))
        return true;
    return in_lowdata(&op->op_opnd1) && in_lowdata(&op->op_opnd2);
}

static uint64_t size_movff(const op_t *op, uint64_t)
{
    return movff_is_short(op) ? 4 : 6;
}

static bool is_long_nop2(const op_t *op) { return op->op_subop == NOP2 && opt.errata_mask & ERRATA_NOP2; }

static uint64_t size_nop(const op_t *op, uint64_t)
{
    return is_long_nop2(op) ? 4 : 2;
}

static unsigned item_width(const op_t *op)
{
    const unsigned delta = static_cast<unsigned>(psect_delta(cur_psect->s_psect));
    return op->op_subop > delta ? op->op_subop : delta;
}

static uint64_t size_db(const op_t *op, uint64_t)
{
    uint64_t items = 0;
    for (const data_item_t *d = op->op_data; d; d = d->next)
        items++;
    return items * item_width(op);
}

static uint64_t units_to_bytes(uint64_t units)
{
    const uint64_t delta = psect_delta(cur_psect->s_psect);
    return units > OFFS_MAX / delta ? OFFS_MAX + 1 : units * delta;
}

static uint64_t size_ds(const op_t *op, uint64_t)
{
    const int64_t units = op->op_opnd1.opnd_value.v_offs;
    return units > 0 ? units_to_bytes(static_cast<uint64_t>(units)) : 0;
}

static uint64_t size_align(const op_t *op, uint64_t pos)
{
    const uint64_t over = op->op_arg ? pos % op->op_arg : 0;
    const uint64_t padding = over ? op->op_arg - over : 0;
    return padding <= ALIGN_MAX ? padding : 0;
}

// Encoders.

static void put_word(uint32_t word)
{
    st.emit(word, nullptr, 2, 0);
}

// A word whose low `bits` bits are a field.
static void put_field(uint32_t word, const value_t &value, unsigned bits)
{
    st.emit(word, &value, 2, bits);
}

static value_t number(int64_t n) { return value_const(n); }

static value_t calc(uint16_t code, value_t a, const value_t &b)
{
    value_binary(code, &a, &b);
    return a;
}

static value_t operand(const opnd_t *o)
{
    value_t v = o->opnd_value;
    operand_reduce(&v);
    return v;
}

static bool is_number_above(const value_t &v, uint64_t most)
{
    return v.v_rtype == RT_CONST && static_cast<uint64_t>(v.v_offs) > most;
}

// An operand that isn't cut to its field silently when it is a number.
static value_t strict_operand(const opnd_t *o, unsigned bits)
{
    const value_t v = operand(o);
    if (is_number_above(v, (uint64_t{1} << bits) - 1))
        alert_once(1339, bits, "unsigned");
    return v;
}

// A file operand. In square brackets it is an offset from file select 2, and only 96 of them are in the access bank.
static value_t file_operand(const op_t *op)
{
    const value_t v = operand(&op->op_opnd1);
    if (op->op_flags & OPF_INDEXED && is_number_above(v, 95))
        alert_once(2065);
    return v;
}

static uint32_t access_bit(const op_t *op) { return op->op_access == ACCESS_C ? 0 : 0x0100; }
static uint32_t dest_bit(const op_t *op) { return op->op_dest == DEST_F ? 0x0200 : 0; }
static unsigned bank_bits() { return chip_archIs(ARCH_14BIT) ? 6 : 4; }

static void enc_none(const op_t *) {}
static void enc_plain(const op_t *op) { put_word(op->op_subop); }
static void enc_file(const op_t *op) { put_field(op->op_subop | access_bit(op), file_operand(op), 8); }
static void enc_file_dest(const op_t *op) { put_field(op->op_subop | dest_bit(op) | access_bit(op), file_operand(op), 8); }
static void enc_literal(const op_t *op) { put_field(op->op_subop, operand(&op->op_opnd1), 8); }
static void enc_pushl(const op_t *op) { put_field(op->op_subop, strict_operand(&op->op_opnd1, 8), 8); }
static void enc_addulnk(const op_t *op) { put_field(op->op_subop, strict_operand(&op->op_opnd1, 6), 6); }
static void enc_setcnt(const op_t *op) { put_field(op->op_subop, operand(&op->op_opnd1), 6); }
static void enc_movlb(const op_t *op) { put_field(op->op_subop, operand(&op->op_opnd1), bank_bits()); }
static void enc_banksel(const op_t *op)
{
    put_field(0x0100, calc(OPC_SHR, operand(&op->op_opnd1), number(8)), bank_bits());
}
static void enc_trap(const op_t *) { put_word(chip_archIs(ARCH_X | ARCH_IVT) ? 0x00C0 : 0x00E0); }

static void enc_bit(const op_t *op)
{
    const uint32_t word = op->op_subop | access_bit(op);
    const value_t file = file_operand(op), bit = operand(&op->op_opnd2);
    if (bit.v_rtype == RT_CONST) {
        const uint32_t n = static_cast<uint32_t>(bit.v_offs);
        if (n > 7 && !st.listing)
            alert_msg(842);
        put_field(word | n << 9, file, 8);
        return;
    }
    const value_t seven = number(7);
    if (!st.listing)
        obj_range_check(&bit, &seven, "bit number");
    const value_t high = calc(OPC_SHL, calc(OPC_AND, seven, bit), number(9));
    put_field(word, calc(OPC_PLUS, high, calc(OPC_AND, number(255), file)), 12);
}

// The upper two of the three words of a long move: `rest` bits of the source, and the destination.
static void long_move_tail(const value_t &from, int64_t mask, const value_t &to, unsigned bits)
{
    const value_t upper = calc(OPC_SHL, calc(OPC_AND, from, number(mask)), number(2));
    put_field(0xF000, calc(OPC_OR, upper, calc(OPC_AND, calc(OPC_SHR, to, number(12)), number(3))), bits);
    put_field(0xF000, calc(OPC_AND, to, number(4095)), 12);
}

static void enc_movffl(const op_t *op)
{
    const value_t from = operand(&op->op_opnd1), to = operand(&op->op_opnd2);
    put_field(0x0060, calc(OPC_SHR, from, number(10)), 4);
    long_move_tail(from, 1023, to, 12);
}

static void enc_movff(const op_t *op)
{
    if (!movff_is_short(op)) {
        enc_movffl(op);
        return;
    }
    const value_t from = operand(&op->op_opnd1), to = operand(&op->op_opnd2);
    put_field(0xC000, from, 12);
    put_field(0xF000, to, 12);
}

static void enc_movsf(const op_t *op)
{
    const value_t from = strict_operand(&op->op_opnd1, 7), to = operand(&op->op_opnd2);
    put_field(0xEB00, calc(OPC_AND, from, number(127)), 7);
    put_field(0xF000, to, 12);
}

static void enc_movsfl(const op_t *op)
{
    const value_t from = strict_operand(&op->op_opnd1, 7), to = operand(&op->op_opnd2);
    put_word(0x0002);
    long_move_tail(from, 127, to, 9);
}

static void enc_movss(const op_t *op)
{
    const value_t from = strict_operand(&op->op_opnd1, 7), to = strict_operand(&op->op_opnd2, 7);
    put_field(0xEB80, calc(OPC_AND, from, number(127)), 7);
    put_field(0xF000, calc(OPC_AND, to, number(127)), 7);
}

static void enc_addfsr(const op_t *op)
{
    const uint32_t reg = static_cast<uint32_t>(op->op_opnd1.opnd_value.v_offs);
    put_field(op->op_subop | reg << 6, strict_operand(&op->op_opnd2, 6), 6);
}

static void enc_lfsr(const op_t *op)
{
    const unsigned low = chip_archIs(ARCH_14BIT) ? 10 : 8;
    const value_t reg = calc(OPC_SHL, operand(&op->op_opnd1), number(4)), to = operand(&op->op_opnd2);
    const value_t high = calc(OPC_AND, number(15), calc(OPC_SHR, to, number(low)));
    put_field(0xEE00, calc(OPC_PLUS, high, reg), 6);
    put_field(0xF000, calc(OPC_AND, number((1 << low) - 1), to), low);
}

static void enc_nop(const op_t *op)
{
    if (is_long_nop2(op)) {
        put_word(0xF000);
        put_word(0xF000);
    } else {
        put_word(op->op_subop == NOP2 ? 0xD000 : op->op_subop);
    }
}

static void enc_db(const op_t *op)
{
    const unsigned width = item_width(op);
    for (const data_item_t *d = op->op_data; d; d = d->next) {
        value_t v = d->value;
        operand_reduce(&v);
        st.emit(0, &v, width, width * 8);
    }
}

// Position changes.

static void move_to(uint64_t position)
{
    if (st.listing) {
        rlf_ident();
        cur_psect->s_psect->p_curr = position;
        return;
    }
    obj_text_flush();
    cur_psect->s_psect->p_curr = position;
    obj_text_begin();
}

static void enc_ds(const op_t *op) { move_to(cur_psect->s_psect->p_curr + size_ds(op, 0)); }
static void enc_org(const op_t *op) { move_to(units_to_bytes(op->op_arg)); }

static void enc_align(const op_t *op)
{
    const uint64_t here = cur_psect->s_psect->p_curr, padding = size_align(op, here);
    if (padding == 0 && op->op_arg > ALIGN_MAX && here % op->op_arg != 0 && !st.listing)
        alert_text("E", "can't align to %llu bytes", static_cast<unsigned long long>(op->op_arg));
    const value_t zero = number(0);
    for (uint64_t n = padding; n; n--)
        st.emit(0, &zero, 1, 0);
}

// Branches.

static int64_t distance_to(const value_t &target)
{
    return minus(minus(target.v_offs, 2), static_cast<int64_t>(cur_psect->s_psect->p_curr));
}

static void put_relative(uint32_t word, int64_t distance, uint32_t mask)
{
    put_word(word | (static_cast<uint32_t>(distance / 2) & mask));
}

// Tests a branch that can't be made longer. Only a target in this psect has a distance at all.
static void check_reach(const value_t &target, int64_t lo, int64_t hi)
{
    const bool known = psect_is_abs(cur_psect) && target.v_rtype == RT_CONST;
    const bool here = target.v_rtype == RT_PSECT && target.v_sym == cur_psect;
    const int64_t distance = distance_to(target);
    if (!st.listing && ((!known && !here) || distance < lo || distance > hi))
        alert_msg(1223);
}

// The form that the size pass has given to a branch, as its size.
static uint64_t form_of(const op_t *op)
{
    const op_t *next = op->op_next;
    return is_live_org(next) ? size_branch(op, op->op_offs) : next->op_offs - op->op_offs;
}

static void put_long_goto(uint32_t word, const value_t &target)
{
    put_field(word, calc(OPC_AND, calc(OPC_SHR, target, number(1)), number(255)), 8);
    put_field(0xF000, calc(OPC_SHR, target, number(9)), 12);
}

static void enc_bra(const op_t *op)
{
    const value_t target = operand(&op->op_opnd1);
    check_reach(target, -2048, 2047);
    if (op->op_next->op_offs == op->op_offs + 2) {
        put_relative(op->op_subop, distance_to(target), 0x7FF);
        return;
    }
    const int64_t behind = static_cast<int64_t>(cur_psect->s_psect->p_curr + 2);
    const value_t next = target.v_rtype == RT_CONST && psect_is_abs(cur_psect) ? number(behind)
                                                                               : value_psect_offset(cur_psect, behind);
    put_field(op->op_subop, calc(OPC_DIV, calc(OPC_MINUS, target, next), number(2)), 11);
}

static void enc_bcc(const op_t *op)
{
    const value_t target = operand(&op->op_opnd1);
    const uint32_t reversed = op->op_subop ^ 0x0100u;
    switch (form_of(op)) {
    case 2:
        check_reach(target, -256, 255);
        put_relative(op->op_subop, distance_to(target), 0xFF);
        break;
    case 4:
        put_word(reversed | 1);
        put_relative(0xD000, distance_to(target), 0x7FF);
        break;
    default:
        put_word(reversed | 2);
        put_long_goto(0xEF00, target);
        break;
    }
}

static void enc_goto(const op_t *op)
{
    const value_t target = operand(&op->op_opnd1);
    if (has_forms(op) && form_of(op) == 2)
        put_relative(0xD000, distance_to(target), 0x7FF);
    else
        put_long_goto(0xEF00, target);
}

static void enc_call(const op_t *op)
{
    const value_t target = operand(&op->op_opnd1);
    if (form_of(op) == 2)
        put_relative(0xD800, distance_to(target), 0x7FF);
    else
        put_long_goto(op->op_subop, target);
}

// Statements that make no bytes.

static void enc_cond(const op_t *op)
{
    if (op->op_opnd1.opnd_value.v_rtype != RT_CONST && !st.listing)
        obj_cond_expr(&op->op_opnd1.opnd_value);
}

static void enc_messg(const op_t *op)
{
    if (!st.listing)
        alert_msg(op->op_subop == 0 ? 2066 : 2067, op->op_text);
}

// A definition shows in the listing what it defines.
static void enc_definition(const op_t *op)
{
    if (st.listing)
        list_address(operand(&op->op_opnd2));
}

enum : uint8_t {
    KIND_PLACED = 1,      // the position counts: for the size, for what follows, or for a symbol
    KIND_SILENT = 2,      // passed over when code is emitted, line information and all
    KIND_NO_LINE = 4,     // makes no line entry
};

// One row a kind of node. A size function works out what a fixed number can't tell.
struct kind_t {
    uint16_t type = 0;
    uint8_t size = 0;                                              // bytes; the longest form of a branch
    void (*encode)(const op_t *op) = nullptr;                      // null: no node has this type
    uint64_t (*size_of)(const op_t *op, uint64_t pos) = nullptr;   // null: it is `size`
    uint8_t flags = 0;
};

static constexpr kind_t kind_rows[] = {
    {T_SUBWF, 2, enc_file_dest}, {T_MOVF, 2, enc_file_dest}, {T_SWAPF, 2, enc_file_dest}, {T_RLCF, 2, enc_file_dest},
    {T_DECFSZ, 2, enc_file_dest}, {T_ANDWF, 2, enc_file_dest}, {T_INCF, 2, enc_file_dest}, {T_ADDWF, 2, enc_file_dest},
    {T_MULWF, 2, enc_file}, {T_CPFSEQ, 2, enc_file}, {T_MOVWF, 2, enc_file}, {T_CLRF, 2, enc_file},
    {T_BCF, 2, enc_bit}, {T_BTFSC, 2, enc_bit},
    {T_CALLW, 2, enc_plain}, {T_PUSH, 2, enc_plain}, {T_RETURN, 2, enc_plain}, {T_TRET, 2, enc_plain},
    {T_DBOUT, 2, enc_plain}, {T_TBLRD, 2, enc_plain}, {T_TRAP, 2, enc_trap}, {T_NOP, 2, enc_nop, size_nop},
    {T_ADDLW, 2, enc_literal}, {T_RETLW, 2, enc_literal}, {T_MOVLW, 2, enc_literal}, {T_PUSHL, 2, enc_pushl},
    {T_ADDULNK, 2, enc_addulnk}, {T_ADDFSR, 2, enc_addfsr}, {T_SETCNT, 2, enc_setcnt},
    {T_BANKSEL, 2, enc_banksel}, {T_MOVLB, 2, enc_movlb},
    {T_LFSR, 4, enc_lfsr}, {T_MOVSF, 4, enc_movsf}, {T_MOVSS, 4, enc_movss},
    {T_MOVFF, 6, enc_movff, size_movff, KIND_PLACED}, {T_MOVFFL, 6, enc_movffl}, {T_MOVSFL, 6, enc_movsfl},
    {T_BRA, 2, enc_bra}, {T_RCALL, 2, enc_bra},
    {T_BCC, 6, enc_bcc, size_branch},
    {T_GOTO, 4, enc_goto, size_branch}, {T_CALL, 4, enc_call, size_branch},
    {T_DB, 0, enc_db, size_db}, {T_DS, 0, enc_ds, size_ds, KIND_NO_LINE},
    {T_ORG, 0, enc_org, nullptr, KIND_PLACED}, {T_ALIGN, 0, enc_align, size_align, KIND_PLACED},
    {T_NAME, 0, enc_none, nullptr, KIND_PLACED}, {T_NUMLABEL, 0, enc_none, nullptr, KIND_PLACED | KIND_SILENT},
    {T_IF, 0, enc_cond}, {T_ELSIF, 0, enc_cond}, {T_ELSE, 0, enc_none}, {T_ENDIF, 0, enc_none},
    {T_ENDM, 0, enc_none, nullptr, KIND_SILENT}, {T_TITLE, 0, enc_none, nullptr, KIND_SILENT},
    {T_INCLUDE, 0, enc_none}, {T_MESSG, 0, enc_messg},
    {T_EQU, 0, enc_definition, nullptr, KIND_NO_LINE}, {T_SET, 0, enc_definition, nullptr, KIND_NO_LINE},
};
static_assert(std::size(kind_rows) == 58);

enum : unsigned { KINDS = T_PF_CODECOV + 1 };
static constexpr std::array<kind_t, KINDS> kinds = [] {
    std::array<kind_t, KINDS> all = {};
    for (const kind_t &k : kind_rows)
        all[k.type] = k;
    return all;
}();

static const kind_t *kind_of(const op_t *op)
{
    const kind_t *k = op->op_type < KINDS ? &kinds[op->op_type] : nullptr;
    return k && k->encode ? k : nullptr;
}

// The size pass.

// A node whose position counts, or the end of the list. What a walk needs of the node is here: in a large program the nodes
// themselves are far from each other.
struct placed_t {
    op_t *op;
    symbol_t *sym;         // of a label; of a branch to nothing but a symbol: that; otherwise null
    uint32_t type;
    uint32_t ahead;        // bytes between the placed node before it and this one
    uint32_t at, behind;   // positions before and after it, as the last walk has found them
};

static uint32_t within_limit(uint64_t pos) { return static_cast<uint32_t>(pos < OFFS_MAX ? pos : uint64_t{OFFS_MAX}); }

static uint32_t add_size(uint32_t pos, uint64_t size) { return within_limit(pos == OFFS_MAX ? pos : pos + size); }

static void append_placed(op_t *op, uint32_t ahead)
{
    xreserve(st.placed, st.placed_count, st.placed_count + 1, st.placed_room, size_t{256});
    const value_t &v = op->op_opnd1.opnd_value;
    symbol_t *sym = nullptr;
    if (op->op_type == T_NAME)
        sym = op->op_sym;
    else if (op->op_type == T_NUMLABEL || (value_is_reference(&v) && v.v_offs == 0 && !psect_is_abs(cur_psect)))
        sym = v.v_sym;
    st.placed[st.placed_count++] = {op, sym, op->op_type, ahead, OFFS_MAX, OFFS_MAX};
}

static uint64_t fixed_size(const op_t *op, const kind_t *k) { return k->size_of ? k->size_of(op, 0) : k->size; }

// Enters the psect's placed nodes.
static void find_placed(symbol_t *psect)
{
    uint32_t ahead = 0;
    st.placed_count = 0;
    st.rigid = psect_delta(psect->s_psect) != 1;
    op_t *op = psect->s_psect->p_code->head.op_next;
    for (; op->op_type != 0; op = op_step(op)) {
        if (op->op_psect != psect)
            op->op_psect = psect;
        if (op->op_flags & OPF_SKIPPED)
            continue;
        const kind_t *k = kind_of(op);
        if (!k) {
            op_set_position(op);
            alert_msg(813, op->op_type);
        } else if (k->flags & KIND_PLACED || has_forms(op)) {
            append_placed(op, ahead);
            ahead = 0;
            st.rigid |= op->op_type == T_ORG || op->op_type == T_ALIGN;
        } else {
            ahead = add_size(ahead, fixed_size(op, k));
        }
    }
    append_placed(op, ahead);
    size_t extra = st.placed_count / 100;   // without the old places a walk settles some hundred nodes
    if (extra > MOST_EXTRA_PASSES)
        extra = MOST_EXTRA_PASSES;
    st.settle_passes = SETTLE_PASSES + static_cast<unsigned>(extra);
}

static uint64_t placed_branch_size(const placed_t *n, uint64_t pos, unsigned pass)
{
    if (!n->sym)
        return size_branch(n->op, pos);
    reach_t reach;
    const value_t *target = &n->sym->s_value;
    const bool old = pass > 1 && !st.rigid && target->v_offs > static_cast<int64_t>(pos);
    const bool near = place_is_near(target, 0, old ? n->at : pos, &reach);
    return form_size(n->type, near, reach);
}

// Where a placed node puts the position `pos` that it finds.
static uint32_t position_behind(const placed_t *n, uint32_t pos, unsigned pass)
{
    uint64_t size = 0;
    switch (n->type) {
    case T_NAME:
    case T_NUMLABEL:
        if (pass == 1 || n->at != pos)
            n->sym->s_value = value_psect_offset(cur_psect, pos / psect_delta(cur_psect->s_psect));
        break;
    case T_ORG:
        return pos == OFFS_MAX ? pos : within_limit(units_to_bytes(n->op->op_arg));
    case T_ALIGN:
        size = size_align(n->op, pos);
        break;
    case T_MOVFF:
        size = size_movff(n->op, pos);
        break;
    default:
        size = placed_branch_size(n, pos, pass);
        if (pass > st.settle_passes && size < n->behind - n->at)
            size = n->behind - n->at;
    }
    return add_size(pos, size);
}

// One walk over the placed nodes. True if any has moved.
static bool size_walk(unsigned pass)
{
    bool moved = false;
    uint32_t pos = 0;
    placed_t *n = st.placed;
    for (; n->type != 0; n++) {
        if (n + AHEAD < st.placed + st.placed_count)
            __builtin_prefetch(n[AHEAD].sym);   // symbols lie in the order in which they were first named
        pos = add_size(pos, n->ahead);
        moved |= n->at != pos;
        const uint32_t behind = position_behind(n, pos, pass);
        n->at = pos;
        n->behind = pos = behind;
    }
    pos = add_size(pos, n->ahead);
    moved |= n->at != pos;
    n->at = pos;
    return moved;
}

// Gives all nodes their final offsets. An `org` stands where it puts the position. The psect begins at the lowest code; an
// `org` in front of it all tells where too, for a psect without code.
static void settle_offsets(psect_t *p)
{
    const placed_t *n = st.placed;
    bool started = false;
    uint32_t pos = 0;
    op_t *op = p->p_code->head.op_next;
    p->p_base = 0;
    for (; op->op_type != 0; op = op_step(op)) {
        const uint32_t before = pos;
        if (op == n->op)
            pos = n++->behind;
        else if (const kind_t *k = kind_of(op); k && !(op->op_flags & OPF_SKIPPED))
            pos = add_size(pos, fixed_size(op, k));
        const bool org = is_live_org(op);
        op->op_offs = org ? pos : before;
        if (org && !started) {
            p->p_base = pos;
        } else if (!org && pos != before) {
            if (!started || before < p->p_base)
                p->p_base = before;
            started = true;
        }
    }
    op->op_offs = pos;
    p->p_top = pos;
}

void size_psect(symbol_t *psect)
{
    cur_psect = psect;
    find_placed(psect);
    for (unsigned pass = 1;; pass++) {
        st.longest = pass > 3 * st.settle_passes;
        if (!size_walk(pass) && pass > 1)
            break;
    }
    st.longest = false;
    settle_offsets(psect->s_psect);
    psect->s_psect->p_curr = 0;
}

void size_all()
{
    for (const code_list_t *list : psect_list)
        if (list->psect->s_psect->p_delta == 0)
            list->psect->s_psect->p_delta = 1;
    for (const code_list_t *list : psect_list)
        if (!list_empty(list))
            size_psect(list->psect);
}

// Emission.

// The writer for the listing.
static void emit_list(uint64_t word, const value_t *value, unsigned nbytes, unsigned bits)
{
    list_queue_add(word, value, nbytes, bits);
    cur_psect->s_psect->p_curr += nbytes;
}

// The node's place goes to the listing's address column, unless its value has gone there.
static void list_place(const op_t *op)
{
    const int64_t units = static_cast<int64_t>(op->op_offs / psect_delta(cur_psect->s_psect));
    if (op->op_type != T_EQU && op->op_type != T_SET)
        list_address(psect_is_abs(cur_psect) ? number(units) : value_psect_offset(cur_psect, units));
}

void emobj(const op_t *op, bool listing)
{
    const kind_t *k = kind_of(op);
    if (!k) {
        alert_msg(812, op->op_type);
        return;
    }
    if (!listing && cur_psect->s_psect->p_curr != op->op_offs && op->op_type != T_ORG)
        alert_msg(840);
    st.listing = listing;
    st.emit = listing ? emit_list : emit_bytes;
    value_set_quiet(listing);
    if (!listing || op->op_offs != OFFS_MAX)
        k->encode(op);
    if (listing)
        list_place(op);
    value_set_quiet(false);
    st.listing = false;
}

// With --lib, files of the installation are told relative to it.
static const char *told_name(const char *file)
{
    const char *base = opt.lib_paths && *file == '/' ? reg_instdir(REG_BASE) : nullptr;
    const size_t n = base ? strlen(base) : 0;
    if (n == 0 || strncmp(file, base, n) != 0 || (file[n] != '/' && base[n - 1] != '/'))
        return file;
    for (file += n; *file == '/';)
        file++;
    return file;
}

static void line_information(const op_t *op)
{
    const psect_t *p = cur_psect->s_psect;
    const char *file = op_more(op)->op_file;
    const uint64_t line = op_more(op)->op_line;
    if (p->p_space != 0 || p->p_noexec || line == 0)
        return;
    if (file && file != st.last_file && (!st.last_file || strcmp(file, st.last_file) != 0)) {
        st.last_file = file;
        st.last_line = 0;
        obj_file_entry(told_name(file));
    }
    const kind_t *k = kind_of(op);
    if (line != st.last_line && !(k && k->flags & KIND_NO_LINE)) {
        st.last_line = line;
        obj_line_entry(line);
    }
}

static bool is_silent(const op_t *op)
{
    if (op->op_type == T_NAME)
        return cur_psect->s_psect->p_noexec || strncmp(op->op_sym->s_name, "__end_of", 8) == 0;
    const kind_t *k = kind_of(op);
    return k && k->flags & KIND_SILENT;
}

void emit_psect(symbol_t *psect)
{
    psect_t *p = psect->s_psect;
    obj_text_flush();
    cur_psect = psect;
    p->p_curr = 0;
    obj_text_begin();
    st.last_file = nullptr;
    for (const op_t *op = p->p_code->head.op_next;; op = op_step(op)) {
        const bool end = op->op_type == 0;
        if (!end)
            op_set_position(op);
        if (op->op_offs == OFFS_MAX)
            alert_text("E", "psect \"%.60s\" reaches the offset 0xFFFFFFFF", psect->s_name);
        if (end || op->op_offs == OFFS_MAX)
            break;
        if (op->op_flags & OPF_SKIPPED || is_silent(op))
            continue;
        line_information(op);
        emobj(op, false);
    }
}
