// SYM.
//
// Entries are written when the next one finds no room. Line information goes to the same buffer while code is emitted, and
// its records stand where they happen to fill up.
//
// What may bite. Symbols may be defined in terms of each other in a circle, so every walk along them has a limit.
#include "out/objsym.h"

#include <cstdio>
#include <cstring>

#include "code/list.h"
#include "code/reduce.h"
#include "common/alert.h"
#include "common/srcpos.h"
#include "options.h"
#include "out/postfix.h"
#include "out/record.h"

// Flag values of entries beside a symbol's own flags.
// clang-format off
enum : uint16_t {
    SYMF_LINE = 4, SYMF_FILE = 5, SYMF_LOCAL_UNDEF = 6, SYMF_LOCAL = 7, SYMF_GLOBAL = 0x10, SYMF_UNDEF = 22, SYMF_ALIAS = 24,
    SYMF_MASK = 31,
};
// clang-format on
enum : unsigned { ALIAS_HOPS = 1000 };

static struct {
    buf_t buf;
} st;

void obj_sym_init() { rec_reset(&st.buf, REC_SYM); }
void obj_sym_flush() { buf_flush(&st.buf); }

static void sym_entry(int64_t value, uint16_t flags, const char *owner, const char *name)
{
    if (!buf_room(&st.buf, 6 + strlen(owner) + 1 + strlen(name) + 1, flags == SYMF_FILE ? "file name" : "symbol", name))
        return;
    buf_put(&st.buf, static_cast<uint64_t>(value), 4);
    buf_put(&st.buf, flags, 2);
    buf_put_z(&st.buf, owner);
    buf_put_z(&st.buf, name);
}

void obj_file_entry(const char *file) { sym_entry(opt.lib_paths, SYMF_FILE, "", file); }

void obj_line_entry(uint64_t line)
{
    char digits[24];
    snprintf(digits, sizeof digits, "%llu", static_cast<unsigned long long>(line));
    sym_entry(units_here(cur_psect->s_psect), SYMF_LINE, cur_psect->s_name, digits);
}

bool obj_follow(value_t *v)
{
    for (unsigned hops = 0; value_is_reference(v) && !sym_is_self(v->v_sym); hops++) {
        if (hops == ALIAS_HOPS)
            return false;
        const int64_t offs = v->v_offs;
        *v = v->v_sym->s_value;
        v->v_offs = wrap_plus(v->v_offs, offs);
    }
    return true;
}

static void position_of(const symbol_t *s)
{
    srcpos.cur_file = s->s_deffile;
    srcpos.cur_line = s->s_defline;
}

static void obj_symbol(const symbol_t *s, uint16_t flags)
{
    const char *owner = "";
    value_t v = s->s_value;
    if (!obj_follow(&v)) {
        position_of(s);
        alert_msg(839);
        return;
    }
    if (v.v_nodes || v.v_rtype == RT_DEFINED)
        operand_reduce(&v);
    if (v.v_rtype == RT_PSECT) {
        owner = v.v_sym->s_name;
    } else if (v.v_rtype == RT_SYM && v.v_sym != s) {
        if (!(flags & SYMF_GLOBAL))
            return;
        if (!(v.v_sym->s_flags & (S_GLOBAL | S_LOCAL)) || v.v_sym->s_flags & S_MACRO) {
            position_of(s);
            undefined_symbol(v.v_sym);
        }
        flags = SYMF_ALIAS;
        owner = v.v_sym->s_name;
    } else if (v.v_rtype != RT_SYM && v.v_rtype != RT_CONST) {
        position_of(s);
        alert_msg(2213, s->s_name);
    }
    if (!rec_fits(v.v_offs)) {
        position_of(s);
        rec_too_large("value of symbol", s->s_name, v.v_offs);
    }
    sym_entry(v.v_offs, flags, owner, s->s_name);
}

// The entry that a symbol of the table is due.
static void select_symbol(symbol_t *s)
{
    const fn_t *fn = s->s_fn;
    if (!(s->s_flags & S_GLOBAL) && (s->s_flags & (S_FNADDR | S_FNROOT) || (fn && (fn->s_autosize || fn->s_argsize))))
        s->s_flags |= S_LOCAL;
    const uint64_t f = s->s_flags;
    if (f & (S_PSECT | S_MACRO | S_CLASS | S_DABS) || !(f & (S_GLOBAL | S_LOCAL)))
        return;
    const bool wanted = f & S_FNROOT || s->s_refs != 0 || (s->s_defop && vec_size(op_refs(s->s_defop)) != 0);
    if (f & S_UNDEF) {
        if (wanted)
            obj_symbol(s, f & S_LOCAL ? SYMF_LOCAL_UNDEF : SYMF_UNDEF);
    } else {
        obj_symbol(s, f & S_LOCAL ? uint16_t{SYMF_LOCAL} : static_cast<uint16_t>(f & SYMF_MASK));
    }
}

void obj_symbols(vec_t<symbol_t *> all)
{
    const in_psect_t nowhere(nullptr);   // what a symbol stands for has no current location
    for (symbol_t *s : all)
        select_symbol(s);
    buf_flush(&st.buf);
}
