// Postfix code.
//
// One walk serves for counting (no room) and for writing; it is cut short when the code gets too long for any record, so
// that even a value whose symbols lead back to themselves ends.
#include "out/postfix.h"

#include "code/list.h"
#include "common/alert.h"
#include "out/record.h"

enum : uint8_t { TOKEN_NUMBER = 3 };   // the other tokens are kinds of values
enum : unsigned { POSTFIX_DEPTH = 1000 };

struct code_t {
    uint8_t *to;
    size_t room, size;
    unsigned depth;
    uint64_t declared;   // of a symbol with any of these flags nothing is said; 0: of none
};

static void code_byte(code_t *c, uint8_t byte)
{
    if (c->size < c->room)
        c->to[c->size] = byte;
    c->size++;
}

static void code_number(code_t *c, int64_t n)
{
    if (c->room && c->declared && !rec_fits(n))
        alert_once(1352, static_cast<unsigned long long>(n), 32);
    code_byte(c, TOKEN_NUMBER);
    for (int shift = 0; shift < 32; shift += 8)
        code_byte(c, static_cast<uint8_t>(n >> shift));
}

static void code_name(code_t *c, uint8_t token, const char *name)
{
    code_byte(c, token);
    for (; *name && c->size <= COMPLEX_MAX; name++)
        code_byte(c, static_cast<uint8_t>(*name));
    code_byte(c, 0);
}

void undefined_symbol(symbol_t *s)
{
    alert_msg(800, s->s_name);
    s->s_flags = (s->s_flags & ~static_cast<uint64_t>(S_MACRO)) | S_GLOBAL | S_UNDEF;
}

static void code_here(code_t *c, int64_t offs)
{
    const psect_t *p = cur_psect->s_psect;
    const int64_t n = wrap_plus(units_here(p), offs);
    const bool absolute = psect_is_abs(cur_psect);
    if (absolute || p->p_curr != 0 || offs != 0)
        code_number(c, n);
    if (absolute)
        return;
    code_name(c, RT_PSECT, cur_psect->s_name);
    if (p->p_curr != 0 || offs != 0)
        code_byte(c, RT_ADD);
}

static void putcomplex(code_t *c, const value_t *v);

// What stands before the addend.
static void code_base(code_t *c, const value_t *v)
{
    switch (v->v_rtype) {
    case RT_PSECT:
    case RT_PSECT_SEG: code_name(c, v->v_rtype, v->v_sym->s_name); return;
    case RT_DEFINED: code_name(c, RT_DEFINED, v->v_name); return;
    case RT_TLABF:
    case RT_TLABB:
    case RT_SYM:
        if (!(v->v_sym->s_flags & S_UNDEF) && !sym_is_self(v->v_sym)) {
            putcomplex(c, &v->v_sym->s_value);
            return;
        }
        [[fallthrough]];
    case RT_SYM_SEG:
        // A reference that comes as far as here is to an undefined symbol, to one that is defined by itself, or to a name
        // that has become a macro's since: no other module has it, whatever it was declared as.
        if (c->room && (v->v_rtype != RT_SYM_SEG || v->v_sym->s_flags & S_UNDEF) && c->declared &&
            (!(v->v_sym->s_flags & c->declared) || v->v_sym->s_flags & S_MACRO))
            undefined_symbol(v->v_sym);
        code_name(c, RT_SYM | (v->v_rtype & RT_SEG), v->v_sym->s_name);
        return;
    }
    if (rtype_is_binary(v->v_rtype))
        putcomplex(c, value_right(v));
    if (rtype_is_binary(v->v_rtype) || rtype_is_unary(v->v_rtype)) {
        putcomplex(c, value_left(v));
        code_byte(c, v->v_rtype);
        return;
    }
    if (c->room)
        alert_print("Bad operator in putcomplex: %2.2X", v->v_rtype);
    else
        alert_msg(779, v->v_rtype);
}

static void putcomplex(code_t *c, const value_t *v)
{
    if (c->size > COMPLEX_MAX || ++c->depth > POSTFIX_DEPTH) {
        c->size = COMPLEX_MAX + 1;
        return;
    }
    if (v->v_rtype == RT_CONST) {
        code_number(c, v->v_offs);
    } else if (v->v_rtype == RT_HERE) {
        code_here(c, v->v_offs);
    } else {
        code_base(c, v);
        if (v->v_offs != 0) {
            code_number(c, v->v_offs);
            code_byte(c, RT_ADD);
        }
    }
    c->depth--;
}

size_t complex_size(const value_t *value)
{
    code_t c = {};
    putcomplex(&c, value);
    return c.size;
}

void buf_complex(buf_t *b, const value_t *value, uint64_t declared)
{
    code_t c = {b->at, buf_left(b), 0, 0, declared};
    putcomplex(&c, value);
    b->at += c.size < c.room ? c.size : c.room;
}
