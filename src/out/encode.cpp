// Encodes nodes: the road of an operand from value to bytes and relocations.
//
//     1. emit_psect (emit.cpp) walks the list; emobj looks the node's kind up in the table below and calls its encoder.
//     2. The encoder takes the operand through operand_reduce (reduce.cpp), after which it is a number, a place in a psect,
//        an external, or an expression of these.
//     3. The encoder cuts the operand into the fields that the instruction has, with the folding operators of `expr`: a
//        number stays a number, anything else grows into an expression tree. `goto x` has the fields (x>>1)&255 and x>>9.
//     4. It hands the word's template, the field's value and its width to the sink that emobj was given.
//     5. That of the object file is emit_bytes in objtext.cpp: a number is added to the template; a place or a tree becomes a
//        relocation entry. That of the listing puts everything in its queue (emlist.cpp).
//
// What may bite. Operands are reduced once, before the first word of a node goes out: `$` means the node's own place in all
// of its words (the items of `db` stand each at their own).
#include "out/encode.h"

#include <array>

#include "chip/chip.h"
#include "code/data.h"
#include "code/layout.h"
#include "code/oprows.h"
#include "code/reduce.h"
#include "common/alert.h"
#include "common/srcpos.h"

enum : uint32_t { ARCH_14BIT = ARCH_X };
enum : uint32_t { CONTINUED = op_template("nop") };   // a second or third word, which does nothing where it is skipped to

static const code_sink_t *sink;   // of the node that is being encoded

// Words.

static void put_word(uint32_t word) { sink->put(word, nullptr, 2, 0); }

// A word whose low `bits` bits are a field for that operand of the node.
static void put_field(uint32_t word, const value_t &value, unsigned bits, unsigned which = 1)
{
    srcpos.operand = which;
    sink->put(word, &value, 2, bits);
}

static value_t number(int64_t n) { return value_const(n); }

static value_t calc(uint16_t code, value_t a, const value_t &b)
{
    value_binary(code, &a, &b);
    return a;
}

value_t operand(const op_t *op, unsigned which)
{
    srcpos.operand = which;
    value_t v = (which == 1 ? &op->op_opnd1 : op_opnd2(op))->opnd_value;
    operand_reduce(&v);
    return v;
}

static bool is_number_above(const value_t &v, uint64_t most)
{
    return v.v_rtype == RT_CONST && static_cast<uint64_t>(v.v_offs) > most;
}

// An operand that isn't cut to its field silently when it is a number.
static value_t strict_operand(const op_t *op, unsigned bits, unsigned which = 1)
{
    const value_t v = operand(op, which);
    if (is_number_above(v, (uint64_t{1} << bits) - 1)) {
        alert_hint("it is %lld, and may be up to %llu", static_cast<long long>(v.v_offs), (1ULL << bits) - 1);
        alert_once(1339, bits, "unsigned");
    }
    return v;
}

// A file operand. In square brackets it is an offset from file select 2, and only 96 of them are in the access bank.
static value_t file_operand(const op_t *op)
{
    const value_t v = operand(op);
    if (op->op_flags & OPF_INDEXED && is_number_above(v, 95)) {
        alert_hint("it is %lld, and may be up to 95", static_cast<long long>(v.v_offs));
        alert_once(2065);
    }
    return v;
}

static uint32_t access_bit(const op_t *op) { return op->op_access == ACCESS_C ? 0 : 0x0100; }
static uint32_t dest_bit(const op_t *op) { return op->op_dest == DEST_F ? 0x0200 : 0; }
static unsigned bank_bits() { return chip_archIs(ARCH_14BIT) ? 6 : 4; }

static void enc_none(const op_t *) {}
static void enc_plain(const op_t *op) { put_word(op->op_subop); }
static void enc_file(const op_t *op) { put_field(op->op_subop | access_bit(op), file_operand(op), 8); }
static void enc_file_dest(const op_t *op) { put_field(op->op_subop | dest_bit(op) | access_bit(op), file_operand(op), 8); }
static void enc_literal(const op_t *op) { put_field(op->op_subop, operand(op), 8); }
static void enc_pushl(const op_t *op) { put_field(op->op_subop, strict_operand(op, 8), 8); }
static void enc_addulnk(const op_t *op) { put_field(op->op_subop, strict_operand(op, 6), 6); }
static void enc_setcnt(const op_t *op) { put_field(op->op_subop, operand(op), 6); }
static void enc_movlb(const op_t *op) { put_field(op->op_subop, operand(op), bank_bits()); }
static void enc_banksel(const op_t *op)
{
    put_field(op_template("movlb"), calc(OPC_SHR, operand(op), number(8)), bank_bits());
}
static void enc_trap(const op_t *) { put_word(chip_archIs(ARCH_X | ARCH_IVT) ? 0x00C0 : 0x00E0); }

static void enc_bit(const op_t *op)
{
    const uint32_t word = op->op_subop | access_bit(op);
    const value_t file = file_operand(op), bit = operand(op, 2);
    if (bit.v_rtype == RT_CONST) {
        const uint32_t n = static_cast<uint32_t>(bit.v_offs);
        if (n > 7 && sink->reports) {
            alert_hint("it is %lld; a register has the bits 0 to 7", static_cast<long long>(bit.v_offs));
            alert_msg(842);
        }
        put_field(word | n << 9, file, 8);
        return;
    }
    const value_t seven = number(7), high = calc(OPC_SHL, calc(OPC_AND, seven, bit), number(9));
    const value_t field = calc(OPC_PLUS, high, calc(OPC_AND, number(255), file));
    if (sink->check)
        sink->check(&bit, &seven, "bit number", &field, 2);
    put_field(word, field, 12);
}

// The upper two of the three words of a long move: `rest` bits of the source, and the destination.
static void long_move_tail(const value_t &from, int64_t mask, const value_t &to, unsigned bits)
{
    const value_t upper = calc(OPC_SHL, calc(OPC_AND, from, number(mask)), number(2));
    put_field(CONTINUED, calc(OPC_OR, upper, calc(OPC_AND, calc(OPC_SHR, to, number(12)), number(3))), bits);
    put_field(CONTINUED, calc(OPC_AND, to, number(4095)), 12, 2);
}

static void enc_movffl(const op_t *op)
{
    const value_t from = operand(op), to = operand(op, 2);
    put_field(op_template("movffl"), calc(OPC_SHR, from, number(10)), 4);
    long_move_tail(from, 1023, to, 12);
}

static void enc_movff(const op_t *op)
{
    if (!movff_is_short(op)) {
        enc_movffl(op);
        return;
    }
    const value_t from = operand(op), to = operand(op, 2);
    put_field(op_template("movff"), from, 12);
    put_field(CONTINUED, to, 12, 2);
}

static void enc_movsf(const op_t *op)
{
    const value_t from = strict_operand(op, 7), to = operand(op, 2);
    put_field(op_template("movsf"), calc(OPC_AND, from, number(127)), 7);
    put_field(CONTINUED, to, 12, 2);
}

static void enc_movsfl(const op_t *op)
{
    const value_t from = strict_operand(op, 7), to = operand(op, 2);
    put_word(op_template("movsfl"));
    long_move_tail(from, 127, to, 9);
}

static void enc_movss(const op_t *op)
{
    const value_t from = strict_operand(op, 7), to = strict_operand(op, 7, 2);
    put_field(op_template("movss"), calc(OPC_AND, from, number(127)), 7);
    put_field(CONTINUED, calc(OPC_AND, to, number(127)), 7, 2);
}

static void enc_addfsr(const op_t *op)
{
    const uint32_t reg = static_cast<uint32_t>(op->op_opnd1.opnd_value.v_offs);
    put_field(op->op_subop | reg << 6, strict_operand(op, 6, 2), 6, 2);
}

static void enc_lfsr(const op_t *op)
{
    const unsigned low = chip_archIs(ARCH_14BIT) ? 10 : 8;
    const value_t reg = calc(OPC_SHL, operand(op), number(4)), to = operand(op, 2);
    const value_t high = calc(OPC_AND, number(15), calc(OPC_SHR, to, number(low)));
    put_field(op_template("lfsr"), calc(OPC_PLUS, high, reg), 6, 2);
    put_field(CONTINUED, calc(OPC_AND, number((1 << low) - 1), to), low, 2);
}

static void enc_nop(const op_t *op)
{
    if (op_size(op, 0) == 4) {
        put_word(CONTINUED);
        put_word(CONTINUED);
    } else {
        put_word(op->op_subop == NOP2 ? op_template("bra") : op->op_subop);
    }
}

static void enc_db(const op_t *op)
{
    const unsigned width = data_item_width(op);
    const data_items_t items = data_items(op);
    for (auto at = items.begin(); at != items.end(); ++at) {
        if (at.at == 0 && at.run->below && sink->step && !sink->step(at.run->below))
            return;
        value_t v = *at;
        srcpos.operand++;
        operand_reduce(&v);
        sink->put(0, &v, width, width * 8);
    }
}

// Position changes.

static void enc_ds(const op_t *op) { sink->move(cur_psect->s_psect->p_curr + op_size(op, 0)); }
static void enc_org(const op_t *op) { sink->move(units_to_bytes(op_units(op))); }

static void enc_align(const op_t *op)
{
    const uint64_t here = cur_psect->s_psect->p_curr, padding = op_size(op, here);
    if (padding == 0 && op_bytes(op) > ALIGN_MAX && here % op_bytes(op) != 0 && sink->reports)
        alert_text("E", "can't align to %llu bytes", static_cast<unsigned long long>(op_bytes(op)));
    const value_t zero = number(0);
    for (uint64_t n = padding; n; n--)
        sink->put(0, &zero, 1, 0);
}

// Branches.

static int64_t distance_to(const value_t &target)
{
    return wrap_minus(wrap_minus(target.v_offs, 2), static_cast<int64_t>(cur_psect->s_psect->p_curr));
}

static void put_relative(uint32_t word, int64_t distance, uint32_t mask)
{
    put_word(word | (static_cast<uint32_t>(distance / 2) & mask));
}

// Tests a branch that can't be made longer. Only a target in this psect has a distance at all.
static void check_reach(const op_t *op, const value_t &target, bool (*fits)(int64_t distance), int reach)
{
    const bool known = psect_is_abs(cur_psect) && target.v_rtype == RT_CONST;
    const bool here = target.v_rtype == RT_PSECT && target.v_sym == cur_psect;
    if (!sink->reports || ((known || here) && fits(distance_to(target))))
        return;
    const char *far = op->op_type == T_RCALL ? "call reaches"
                      : op->op_type == T_BRA ? "goto reaches"
                                             : "around a goto, the opposite condition reaches";
    if (known || here)
        alert_hint("the target is %lld bytes from the next instruction; \"%s\" reaches -%d to %d; %s everything",
                   static_cast<long long>(distance_to(target)), op_name(op), reach, reach - 2, far);
    else
        alert_hint("\"%s\" reaches targets of its own psect; %s everything", op_name(op), far);
    alert_msg(1223);
}

static void put_long_goto(uint32_t word, const value_t &target)
{
    put_field(word, calc(OPC_AND, calc(OPC_SHR, target, number(1)), number(255)), 8);
    put_field(CONTINUED, calc(OPC_SHR, target, number(9)), 12);
}

static void enc_bra(const op_t *op)
{
    const value_t target = operand(op);
    check_reach(op, target, fits_short_branch, 2048);
    if (op->op_next->op_offs == op->op_offs + 2) {
        put_relative(op->op_subop, distance_to(target), 0x7FF);
        return;
    }
    const int64_t behind = static_cast<int64_t>(cur_psect->s_psect->p_curr + 2);
    const value_t next =
        target.v_rtype == RT_CONST && psect_is_abs(cur_psect) ? number(behind) : value_psect_offset(cur_psect, behind);
    put_field(op->op_subop, calc(OPC_DIV, calc(OPC_MINUS, target, next), number(2)), 11);
}

// A long form leads around a jump. A skip in front of it leads into that jump.
static void enc_bcc(const op_t *op)
{
    const value_t target = operand(op);
    const uint32_t reversed = op->op_subop ^ 0x0100u;
    const uint64_t form = branch_form(op);
    if (form > 2 && sink->reports && after_skip(op)) {
        srcpos.operand = 0;   // it is about the whole
        alert_msg(2212, op_name(op), static_cast<unsigned>(form / 2));
    }
    switch (form) {
    case 2:
        check_reach(op, target, fits_cond_branch, 256);
        put_relative(op->op_subop, distance_to(target), 0xFF);
        break;
    case 4:
        put_word(reversed | 1);
        put_relative(op_template("bra"), distance_to(target), 0x7FF);
        break;
    default:
        put_word(reversed | 2);
        put_long_goto(op_template("goto"), target);
        break;
    }
}

static void enc_goto(const op_t *op)
{
    const value_t target = operand(op);
    if (branch_has_forms(op) && branch_form(op) == 2)
        put_relative(op_template("bra"), distance_to(target), 0x7FF);
    else
        put_long_goto(op_template("goto"), target);
}

static void enc_call(const op_t *op)
{
    const value_t target = operand(op);
    if (branch_form(op) == 2)
        put_relative(op_template("rcall"), distance_to(target), 0x7FF);
    else
        put_long_goto(op->op_subop, target);
}

// Statements that make no bytes.

static void enc_cond(const op_t *op)
{
    if (op->op_opnd1.opnd_value.v_rtype != RT_CONST && sink->condition)
        sink->condition(&op->op_opnd1.opnd_value);
}

static void enc_messg(const op_t *op)
{
    if (sink->reports)
        alert_msg(op->op_subop == 0 ? 2066 : 2067, op->op_text.get());
}

static void enc_definition(const op_t *op)
{
    if (sink->define)
        sink->define(operand(op, 2));
}

// One row a kind of node.
typedef void (*encode_fn)(const op_t *op);
struct encoder_t {
    token_t type = T_NONE;
    encode_fn encode = nullptr;
};

static constexpr encoder_t encoder_rows[] = {
    {T_SUBWF, enc_file_dest},  {T_MOVF, enc_file_dest},  {T_SWAPF, enc_file_dest}, {T_RLCF, enc_file_dest},
    {T_DECFSZ, enc_file_dest}, {T_ANDWF, enc_file_dest}, {T_INCF, enc_file_dest},  {T_ADDWF, enc_file_dest},
    {T_MULWF, enc_file},       {T_CPFSEQ, enc_file},     {T_MOVWF, enc_file},      {T_CLRF, enc_file},
    {T_BCF, enc_bit},          {T_BTFSC, enc_bit},       {T_CALLW, enc_plain},     {T_PUSH, enc_plain},
    {T_RETURN, enc_plain},     {T_TRET, enc_plain},      {T_DBOUT, enc_plain},     {T_TBLRD, enc_plain},
    {T_TRAP, enc_trap},        {T_NOP, enc_nop},         {T_ADDLW, enc_literal},   {T_RETLW, enc_literal},
    {T_MOVLW, enc_literal},    {T_PUSHL, enc_pushl},     {T_ADDULNK, enc_addulnk}, {T_ADDFSR, enc_addfsr},
    {T_SETCNT, enc_setcnt},    {T_BANKSEL, enc_banksel}, {T_MOVLB, enc_movlb},     {T_LFSR, enc_lfsr},
    {T_MOVSF, enc_movsf},      {T_MOVSS, enc_movss},     {T_MOVFF, enc_movff},     {T_MOVFFL, enc_movffl},
    {T_MOVSFL, enc_movsfl},    {T_BRA, enc_bra},         {T_RCALL, enc_bra},       {T_BCC, enc_bcc},
    {T_GOTO, enc_goto},        {T_CALL, enc_call},       {T_DB, enc_db},           {T_DS, enc_ds},
    {T_ORG, enc_org},          {T_ALIGN, enc_align},     {T_NAME, enc_none},       {T_NUMLABEL, enc_none},
    {T_IF, enc_cond},          {T_ELSIF, enc_cond},      {T_ELSE, enc_none},       {T_ENDIF, enc_none},
    {T_ENDM, enc_none},        {T_TITLE, enc_none},      {T_INCLUDE, enc_none},    {T_MESSG, enc_messg},
    {T_EQU, enc_definition},   {T_SET, enc_definition},
};
static constexpr auto encoders = rows_by_kind(encoder_rows);

void emobj(const op_t *op, const code_sink_t *to)
{
    const encode_fn encode = op->op_type < encoders.size() ? encoders[op->op_type].encode : nullptr;
    if (!encode) {
        alert_msg(812, op->op_type);
        return;
    }
    if (to->reports && cur_psect->s_psect->p_curr != op->op_offs && op->op_type != T_ORG)
        alert_msg(840);
    sink = to;
    srcpos.operand = 0;
    value_set_quiet(!to->reports);
    encode(op);
    value_set_quiet(false);
}
