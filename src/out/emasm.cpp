// The program as assembly text.
//
// A file of assembly text is a header that tells chip, page and psects, then the code of one psect after the other, then
// the core registers by name. Everything is gathered in one growing buffer, `text`, and handed on when a piece is
// complete, to the sink: the output file or the listing.
//
// A node's text has up to five parts, each of which may be missing: position lines, its comments, the statement, the
// remark, the newline. The statement is a row of the table below: the mnemonic, and how the operands stand behind it.
// The mnemonic comes from the instruction table; where a bit of the opcode says something that is printed as an operand,
// the row looks for the mnemonic without that bit.
//
// Operators have no precedence in the language, so an operand that is an expression itself stands in parentheses, and so
// does a value with an addend. A constant defined by `equ` is printed as its value, for the definitions of constants
// that no other module sees are not printed. Definitions may go round in a circle, and those that use one another twice
// grow like powers of two; so beyond a depth and a length a name is left as it is.
//
// What may bite. Labels that nothing refers to but their definition are left out. Code of the psect without a name comes
// first and belongs to the psect that was declared last when the text is read again: there is no word for that psect.
#include "out/emasm.h"

#include <array>
#include <charconv>
#include <cstring>

#include "chip/chip.h"
#include "chip/sfrs.h"
#include "code/data.h"
#include "code/ops.h"
#include "code/program.h"
#include "common/alert.h"
#include "common/srcpos.h"
#include "common/xalloc.h"
#include "options.h"

enum : unsigned { EQU_DEPTH = 1000, EQU_TEXT = 1 << 12 };   // names are printed as their values up to this

static struct {
    const text_sink_t *sink;
    FILE *to;   // of -A
    textbuf_t text;
    const char *last_file;   // told by `file` and `line`
    uint64_t last_line;
    bool names;           // are printed, not the values that they stand for
    unsigned depth;       // of the expression that is being printed
    size_t value_start;   // in `text`: of its outermost one
} st;

// Text.

char *text_grow(textbuf_t *t, size_t more)
{
    xreserve(t->at, t->length, t->length + more + 1, t->room, size_t{256});
    return t->at + t->length;
}

void text_add(textbuf_t *t, const char *s, size_t length)
{
    if (length == 0)
        return;
    memcpy(text_grow(t, length), s, length);
    t->length += length;
}

void text_add(textbuf_t *t, const char *s) { text_add(t, s, strlen(s)); }

void text_vformat(textbuf_t *t, const char *format, va_list args)
{
    va_list again;
    va_copy(again, args);
    char *at = text_grow(t, 0);
    const size_t room = t->room - t->length;
    const int n = vsnprintf(at, room, format, args);
    if (n > 0 && static_cast<size_t>(n) >= room)
        vsnprintf(text_grow(t, static_cast<size_t>(n)), static_cast<size_t>(n) + 1, format, again);
    if (n > 0)
        t->length += static_cast<size_t>(n);
    va_end(again);
}

void text_format(textbuf_t *t, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    text_vformat(t, format, args);
    va_end(args);
}

static void put(char c) { text_add(&st.text, &c, 1); }
static void put(const char *s) { text_add(&st.text, s); }

template <class N> static void put_digits(N n, int base = 10)
{
    char *at = text_grow(&st.text, 24);
    char *end = std::to_chars(at, at + 24, n, base).ptr;
    for (char *p = at; base == 16 && p < end; p++)
        if (*p >= 'a')
            *p = static_cast<char>(*p - 'a' + 'A');
    st.text.length += static_cast<size_t>(end - at);
}

// A string. There are no escapes in the language, so its text has one kind of quote at most, and the other kind is around it.
static void put_quoted(const char *s)
{
    const char quote = strchr(s, '"') ? '\'' : '"';
    put(quote);
    put(s);
    put(quote);
}

// A string, too, but bare if it is a word.
static void put_word(const char *s)
{
    static const char letters[] = "?_abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    const bool word = *s && !(*s >= '0' && *s <= '9') && s[strspn(s, letters)] == 0;
    if (word)
        put(s);
    else
        put_quoted(s);
}

// A number of the program, in the style that was asked for.
static void put_number(int64_t n)
{
    if (!opt.hex_output) {
        put_digits(n);
        return;
    }
    put('$');
    put_digits(static_cast<uint64_t>(n), 16);
}

// Hands on what stands in `text`.
static void send()
{
    st.sink->text({st.text.at, st.text.length});
    st.text.length = 0;
}

// Values.

static void asm_expr(const value_t *v);

static const char *operator_word(uint8_t rtype)
{
    switch (rtype) {
    case RT_LOW: return "low ";
    case RT_HIGH: return "high ";
    case RT_ADD: return "+";
    case RT_SUB: return "-";
    case RT_MUL: return "*";
    case RT_DIV: return "/";
    case RT_SHL: return " shl ";
    case RT_SHR: return " shr ";
    case RT_AND: return "& ";
    case RT_OR: return "| ";
    case RT_XOR: return "^";
    case RT_NOT: return "not ";
    case RT_NEG: return "-";
    default: return "%";
    }
}

static void put_label(const symbol_t *s)
{
    if (*s->s_name) {
        put(s->s_name);
    } else {
        put('L');
        put_digits(s->s_labelno);
    }
}

// A name that is printed as its value.
static bool stands_for_value(const value_t *v)
{
    return !st.names && v->v_rtype == RT_SYM && v->v_sym->s_flags & S_EQU && st.depth < EQU_DEPTH &&
           st.text.length - st.value_start < EQU_TEXT;
}

// A reference without its addend.
static void put_reference(const value_t *v)
{
    if (v->v_rtype != RT_SYM) {
        put_digits(v->v_sym->s_tlabno);
        put(v->v_rtype == RT_TLABF ? 'f' : 'b');
    } else if (stands_for_value(v)) {
        asm_expr(&v->v_sym->s_value);
    } else {
        put_label(v->v_sym);
    }
}

static void asm_operand(const value_t *v)
{
    const unsigned depth = st.depth;
    while (stands_for_value(v) && v->v_offs == 0) {
        v = &v->v_sym->s_value;
        st.depth++;
    }
    const bool bare = v->v_rtype == RT_CONST || v->v_rtype == RT_SYM;
    if (!bare)
        put('(');
    asm_expr(v);
    if (!bare)
        put(')');
    st.depth = depth;
}

// An expression as part of another one.
static void asm_expr(const value_t *v)
{
    st.depth++;
    if (v->v_offs != 0)
        put('(');
    if (rtype_is_unary(v->v_rtype)) {
        put(operator_word(v->v_rtype));
        asm_operand(value_left(v));
    } else if (rtype_is_binary(v->v_rtype)) {
        asm_operand(value_left(v));
        put(operator_word(v->v_rtype));
        asm_operand(value_right(v));
    } else if (v->v_rtype == RT_CONST) {
        put('0');
    } else if (v->v_rtype == RT_DEFINED) {
        put("defined ");
        put_quoted(v->v_name);
        put(' ');
    } else if (v->v_rtype == RT_HERE) {
        put('$');
    } else if (v->v_rtype == RT_SYM || v->v_rtype == RT_TLABF || v->v_rtype == RT_TLABB) {
        put_reference(v);
    }
    if (v->v_offs != 0) {
        put('+');
        put_number(v->v_offs);
        put(')');
    }
    st.depth--;
}

static void asm_value(const value_t *v)
{
    st.depth = 0;
    st.value_start = st.text.length;
    switch (v->v_rtype) {
    case RT_CONST: put_number(v->v_offs); break;
    case RT_SYM:
    case RT_TLABF:
    case RT_TLABB:
        put_reference(v);
        if (v->v_offs != 0) {
            put('+');
            put_number(v->v_offs);
        }
        break;
    default: asm_expr(v); break;
    }
}

static void asm_opnd(const opnd_t *o)
{
    const value_t *v = &o->opnd_value;
    switch (o->opnd_kind) {
    case OPND_NONE: return;
    case OPND_DATA:
        if (v->v_rtype == RT_CONST)
            if (const char *sfr = v->v_offs >= 0 ? sfr_nameAt(v->v_offs) : nullptr) {
                put(sfr);
                return;
            }
        [[fallthrough]];
    case OPND_LIT:
    case OPND_CODE:
    case OPND_BIT: asm_value(v); return;
    default: alert_msg(809, static_cast<int>(o->opnd_kind)); return;
    }
}

// Statements.

static void put_mnemonic(const op_t *op)
{
    const char *name = op->op_type == T_NOP && op->op_subop == 0 ? "nop" : op_name(op);
    put('\t');
    put(name ? name : "?");
    put('\t');
}

static void st_none(const op_t *) {}
static void st_plain(const op_t *op) { put_mnemonic(op); }

static void st_one(const op_t *op)
{
    put_mnemonic(op);
    asm_opnd(&op->op_opnd1);
}

static void st_two(const op_t *op)
{
    st_one(op);
    put(',');
    asm_opnd(op_opnd2(op));
}

static void put_access(const op_t *op)
{
    if (op->op_access == ACCESS_B)
        put(",b");
    else if (op->op_access == ACCESS_C)
        put(",c");
}

static void put_bracketed(const opnd_t *o)
{
    put('[');
    asm_opnd(o);
    put(']');
}

static void put_file(const op_t *op)
{
    put_mnemonic(op);
    if (op->op_flags & OPF_INDEXED)
        put_bracketed(&op->op_opnd1);
    else
        asm_opnd(&op->op_opnd1);
}

static void st_file(const op_t *op)
{
    put_file(op);
    if (!(op->op_flags & OPF_INDEXED))
        put_access(op);
}

static void st_file_dest(const op_t *op)
{
    put_file(op);
    put(op->op_dest == DEST_W ? ",w" : ",f");
    if (!(op->op_flags & OPF_INDEXED))
        put_access(op);
}

static void st_bit(const op_t *op)
{
    st_two(op);
    put_access(op);
}

static void st_db(const op_t *op)
{
    put_mnemonic(op);
    bool first = true;
    for (const value_t &item : data_items(op)) {
        if (!first)
            put(',');
        first = false;
        asm_value(&item);
    }
}

static void st_lfsr(const op_t *op)
{
    put_mnemonic(op);
    put_digits(op->op_subop >> 4 & 3);
    put(',');
    asm_opnd(op_opnd2(op));
}

static void st_movsf(const op_t *op)
{
    put_mnemonic(op);
    put_bracketed(&op->op_opnd1);
    put(',');
    asm_opnd(op_opnd2(op));
}

static void st_movss(const op_t *op)
{
    put_mnemonic(op);
    put_bracketed(&op->op_opnd1);
    put(',');
    put_bracketed(op_opnd2(op));
}

static void st_value(const op_t *op)
{
    put_mnemonic(op);
    asm_value(&op->op_opnd1.opnd_value);
}

static void st_else(const op_t *op)
{
    put_mnemonic(op);
    st.text.length--;   // without a tab behind it
}

static void st_messg(const op_t *op)
{
    st_else(op);
    put(' ');
    put_quoted(op->op_text);
}

static void st_goto(const op_t *op)
{
    put("\tgoto\t");
    asm_opnd(&op->op_opnd1);
}

static void st_return(const op_t *op)
{
    put_mnemonic(op);
    if (op->op_subop & RETURN_FAST)
        put("\tf");
}

static void st_call(const op_t *op)
{
    op_t plain = *op;
    plain.op_subop &= static_cast<uint16_t>(~CALL_FAST);
    st_one(&plain);
    if (op->op_subop & CALL_FAST)
        put(",f");
}

static void st_org(const op_t *op)
{
    put("\torg\t");
    put_digits(op_units(op).count);
}

static void st_set(const op_t *op)
{
    put(op->op_opnd1.opnd_value.v_sym->s_name);
    put("\tset\t");
    asm_value(&op_opnd2(op)->opnd_value);
}

static void st_trap(const op_t *) { put("\ttrap"); }

static void st_tblrd(const op_t *op)
{
    static const char *const forms[] = {"\t*", "\t*+", "\t*-", "\t+*"};
    put_mnemonic(op);
    put(forms[op->op_subop & 3]);
}

static void st_align(const op_t *op)
{
    put_mnemonic(op);
    put_digits(static_cast<int64_t>(op_bytes(op)));
}

static void st_numlabel(const op_t *op)
{
    put_digits(op_tlab(op));
    put(':');
}

static void st_name(const op_t *op)
{
    put_label(op->op_sym);
    put(':');
}

struct statement_t {
    token_t type = T_NONE;
    void (*print)(const op_t *op) = nullptr;
};

static constexpr statement_t statement_rows[] = {
    {T_SUBWF, st_file_dest},   {T_MOVF, st_file_dest},  {T_SWAPF, st_file_dest}, {T_RLCF, st_file_dest},
    {T_DECFSZ, st_file_dest},  {T_ANDWF, st_file_dest}, {T_INCF, st_file_dest},  {T_ADDWF, st_file_dest},
    {T_BCF, st_bit},           {T_BTFSC, st_bit},       {T_MULWF, st_file},      {T_CPFSEQ, st_file},
    {T_MOVWF, st_file},        {T_CLRF, st_file},       {T_DB, st_db},           {T_MOVFF, st_two},
    {T_MOVFFL, st_two},        {T_ADDFSR, st_two},      {T_CALLW, st_plain},     {T_PUSH, st_plain},
    {T_NOP, st_plain},         {T_TRET, st_plain},      {T_DBOUT, st_plain},     {T_LFSR, st_lfsr},
    {T_BRA, st_one},           {T_BCC, st_one},         {T_RCALL, st_one},       {T_ADDULNK, st_one},
    {T_PUSHL, st_one},         {T_ADDLW, st_one},       {T_RETLW, st_one},       {T_MOVLW, st_one},
    {T_BANKSEL, st_one},       {T_MOVLB, st_one},       {T_SETCNT, st_one},      {T_MOVSF, st_movsf},
    {T_MOVSFL, st_movsf},      {T_MOVSS, st_movss},     {T_DS, st_value},        {T_ELSIF, st_value},
    {T_IF, st_value},          {T_ELSE, st_else},       {T_ENDIF, st_else},      {T_ENDM, st_none},
    {T_EQU, st_none},          {T_INCLUDE, st_none},    {T_TITLE, st_none},      {T_MESSG, st_messg},
    {T_GOTO, st_goto},         {T_RETURN, st_return},   {T_CALL, st_call},       {T_ORG, st_org},
    {T_SET, st_set},           {T_TRAP, st_trap},       {T_TBLRD, st_tblrd},     {T_ALIGN, st_align},
    {T_NUMLABEL, st_numlabel}, {T_NAME, st_name},
};

static constexpr auto statements = rows_by_kind(statement_rows);

// Where the higher-level source stands.
static void put_position(const op_t *op)
{
    const char *file = op_source_file(op);
    const uint64_t line = op_source_line(op);
    if (file && (!st.last_file || strcmp(file, st.last_file) != 0)) {
        put("\tfile\t");
        put_quoted(file);
        put('\n');
        st.last_file = file;
        st.last_line = 0;
    }
    if (line != 0 && line != st.last_line) {
        text_format(&st.text, "\tline\t%llu\n", static_cast<unsigned long long>(line));
        st.last_line = line;
    }
}

static void put_callstack(const op_t *op)
{
    const op_t *next = op->op_next && op->op_next->op_type != 0 ? op->op_next : op;
    put("\n\tcallstack ");
    put_digits(static_cast<int32_t>(op_callstack(next)));
}

std::string_view asm_op(const op_t *op, asm_mode_t mode)
{
    const bool bare = mode != ASM_PRINT;
    st.text.length = 0;
    st.names = mode == ASM_NAMES;
    if (opt.asm_output && !bare)
        put_position(op);
    if (op->op_type != T_NAME && !bare)
        for (const char *comment : op_comments(op))
            put(comment);
    const bool hidden = op->op_type == T_NAME && !bare && op->op_sym->s_refs == 1;
    const auto print = op->op_type < statements.size() ? statements[op->op_type].print : nullptr;
    if (!print) {
        const char *name = op_name(op);
        alert_msg(810, name ? name : "");
    } else if (!hidden) {
        print(op);
        if (op->op_type == T_NAME && op->op_sym->s_flags & S_GLOBAL && !bare)
            put_callstack(op);
    }
    if (const char *remark = op_remark(op); remark && st.text.length != 0 && !bare) {
        put('\t');
        put(remark);
    }
    if (st.text.length != 0)
        put('\n');
    st.names = false;
    return {st.text.at, st.text.length};
}

// The file.

static void put_pairs(const char *directive, const symbol_t *s, const set_t *members)
{
    if (members)
        for (const symbol_t *m : vec_t<symbol_t *>{set_vector(members)})
            text_format(&st.text, "\t%s\t%s,%s\n", directive, s->s_name, m->s_name);
}

static void put_attributes(const symbol_t *s)
{
    const fn_t none = {}, *fn = s->s_fn ? s->s_fn : &none;
    if (fn->s_signat)
        text_format(&st.text, "\tsignat\t%s,%u\n", s->s_name, unsigned{fn->s_signat});
    if (fn->s_argsize || fn->s_autosize)
        text_format(&st.text, "\tFNSIZE\t%s,%u,%u\n", s->s_name, unsigned{fn->s_argsize}, unsigned{fn->s_autosize});
    if (s->s_flags & S_EQU) {
        text_format(&st.text, "%s\tequ\t", s->s_name);
        asm_value(&s->s_value);
        put('\n');
    }
    if (s->s_flags & S_FNADDR)
        text_format(&st.text, "\tFNADDR\t%s\n", s->s_name);
    if (s->s_flags & S_FNROOT)
        text_format(&st.text, "\tFNROOT\t%s\n", s->s_name);
    put_pairs("FNCALL", s, fn->s_calls);
    put_pairs("FNARG", s, fn->s_args);
    put_pairs("FNBREAK", s, fn->s_breaks);
    if (fn->s_indirs)
        for (const uint64_t signature : vec_t<uint64_t>{set_vector(fn->s_indirs)})
            text_format(&st.text, "\tFNINDIR\t%s,%lu\n", s->s_name, static_cast<unsigned long>(signature));
}

// A symbol that stands for another one is printed as that one, which thus has its uses too.
static void hand_on_uses(const symbol_t *s)
{
    if (!(s->s_flags & S_EQU) || s->s_value.v_rtype != RT_SYM)
        return;
    symbol_t *target = s->s_value.v_sym;
    const int sum = target->s_refs + s->s_refs;
    target->s_refs = static_cast<int16_t>(sum < REFS_KEEP ? sum : REFS_KEEP);
}

// What the symbols are to the linker.
static void asm_file()
{
    const vec_t<symbol_t *> all = sym_name_order();
    for (const symbol_t *s : all)
        if (!(s->s_flags & (S_SPACE_MASK | S_MACRO)))
            hand_on_uses(s);
    for (const symbol_t *s : all) {
        const uint64_t f = s->s_flags & (S_SPACE_MASK | S_MACRO | S_GLOBAL | S_LOCAL | S_EXTERN);
        if (f == S_GLOBAL || f == S_EXTERN || f == (S_GLOBAL | S_EXTERN)) {
            text_format(&st.text, "\tglobal\t%s\n", s->s_name);
            if (s->s_refs != 0 || s->s_flags & S_GLOBAL)
                put_attributes(s);
        } else if (f == S_LOCAL && s->s_refs != 0) {
            text_format(&st.text, "\tlocal\t%s\n", s->s_name);
            put_attributes(s);
        }
        send();
    }
    for (vector_t *group : program.fnalign_groups) {
        const char *before = "\tFNALIGN\t";
        for (const symbol_t *s : vec_t<symbol_t *>{group}) {
            put(before);
            put(s->s_name);
            before = ",";
        }
        put('\n');
        send();
    }
}

static void put_flag_number(const char *word, uint64_t n)
{
    if (n == 0)
        return;
    put(word);
    put_digits(n);
}

static void put_flag(const char *word, bool set)
{
    if (set)
        put(word);
}

static void put_optim(uint32_t bits)
{
    static constexpr struct {
        uint32_t bit;
        const char *word;
    } words[] = {{PO_INLINE, "inline"}, {PO_PA, "pa"},         {PO_JUMP, "jump"},
                 {PO_PEEP, "peep"},     {PO_REMOVE, "remove"}, {PO_CODECOV, "codecov"}};
    if (!(bits & PO_GIVEN))
        return;
    const char *before = ",optim=";
    for (const auto &w : words)
        if (bits & w.bit) {
            put(before);
            put(w.word);
            before = ":";
        }
    if (*before == ',')
        put(before);
}

static void put_psect(const symbol_t *s)
{
    const psect_t *p = s->s_psect;
    put("\tpsect\t");
    put(s->s_name);
    put(p->p_flags & P_GLOBAL ? ",global" : ",local");
    put_flag(",pure", p->p_flags & P_PURE);
    put_flag(",note", p->p_flags & P_NOTE);
    put_flag(",abs", p->p_flags & P_ABS);
    put_flag(",ovrld", p->p_flags & P_OVRLD);
    put_flag(",bit", p->p_flags & P_BIT);
    put_flag(",common", p->p_flags & P_COMMON);
    put_flag_number(",size=", p->p_size);
    put_flag_number(",limit=", p->p_limit);
    put_flag_number(",reloc=", p->p_reloc);
    if (p->p_class)
        text_format(&st.text, ",class=%s", p->p_class->s_name);
    if (p->p_with)
        text_format(&st.text, ",with=%s", p->p_with->s_name);
    put_flag_number(",space=", p->p_space);
    put_flag_number(",delta=", p->p_delta);
    put_flag(",lowdata", p->p_lowdata);
    put_flag(",noexec", p->p_noexec);
    put_flag(",keep", p->p_keep);
    put_flag(",inline", p->p_inline);
    put_flag_number(",group=", p->p_group);
    put_flag(",minocg", p->p_optim & PO_MINOCG);
    put_flag(",codecov", p->p_optim & PO_CODECOV);
    put_optim(p->p_optim);
    put('\n');
    send();
}

static void asm_header(const page_t &page)
{
    text_format(&st.text, "\tprocessor\t%s\n", chip_getName());
    if (program.has_fnconf) {
        put("\tfnconf\t");
        for (const char *word : program.fnconf_words) {
            put_word(word);
            put(',');
        }
        text_format(&st.text, "%d\n", static_cast<int>(program.fnconf_number));
    }
    if (page.form_length != 0)
        text_format(&st.text, "\tpagelength %d\n", page.form_length);
    if (page.page_width != 0)
        text_format(&st.text, "\tpagewidth %d\n", page.page_width);
    send();
}

// The code of one psect.
static void asm_psect(symbol_t *psect)
{
    const in_psect_t here(psect);
    for (const char *comment : psect->s_psect->p_comments) {
        put(comment);
        send();
    }
    if (*psect->s_name)
        text_format(&st.text, "\n\tpsect\t%s\n", psect->s_name);
    send();
    for (const op_t *op = psect->s_psect->p_code->head.op_next; op->op_type != 0; op = op->op_next) {
        if (op->op_flags & OPF_SKIPPED)
            continue;
        op_set_position(op);
        asm_op(op, ASM_PRINT);
        if (st.sink->node)
            st.sink->node(op);
        send();
    }
}

void asm_text(const text_sink_t *to, const page_t &page)
{
    const srcpos_t position = srcpos;
    st.sink = to;
    st.text.length = 0;
    asm_header(page);
    for (const code_list_t *list : psect_list)
        if (list->psect != abs_psect)
            put_psect(list->psect);
    for (const dabs_t *d : program.dabs_list) {
        text_format(&st.text, "\tdabs\t%u,0x%lX,%ld", d->space, static_cast<unsigned long>(d->address),
                    static_cast<long>(d->size));
        if (*d->name)
            text_format(&st.text, ",%s", d->name);
        put('\n');
        send();
    }
    for (const code_list_t *list : psect_list)
        if (!list_empty(list))
            asm_psect(list->psect);
    for (uint32_t id = SFR_TOSU; id < SFR_END; id++)
        text_format(&st.text, "%s\tequ\t0x%lX\n", sfr_name(id), static_cast<unsigned long>(sfr_addrOf(id)));
    send();
    srcpos = position;
}

static void write_text(std::string_view lines)
{
    if (!lines.empty())
        fwrite(lines.data(), 1, lines.length(), st.to);
}

static constexpr text_sink_t file = {.text = write_text, .node = nullptr};

void asm_write(FILE *to)
{
    st.to = to;
    st.sink = &file;
    st.text.length = 0;   // what the optimiser last asked for
    asm_file();
    asm_text(&file, program.page);
    summary_comments_emit(to, false);
}
