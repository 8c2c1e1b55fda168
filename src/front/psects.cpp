// The statement `psect`: chooses the psect that statements go to, and sets its flags.
//
// Flags add up over all statements that name the psect; a number or name that differs from an earlier one is reported, and
// the first stays. Words inside the statement live in the name space of psects, but for the expressions behind flags, whose
// symbols are plain ones.
#include "front/psects.h"

#include "common/alert.h"
#include "common/stringcache.h"
#include "front/parser.h"

// flag=expr. The expression's names are plain symbols.
static bool flag_value(value_t *v)
{
    if (!expect(T_EQUALS))
        return false;
    const lex_space_t plain(0);
    return parse_expr(v);
}

// A numeric flag: `bad` when it isn't a constant from 0 on, 2210 with `what` when it is above `most`, `again` when it had
// another value. 0: not set so far.
template <class T> static bool numeric_flag(T psect_t::*field, const char *what, int64_t most, unsigned bad, unsigned again)
{
    value_t v;
    if (!flag_value(&v))
        return false;
    if (v.v_rtype != RT_CONST || v.v_offs < 0)
        alert_msg(bad);
    else
        parse_check_field(what, v.v_offs, most);
    T *now = &(cur_psect->s_psect->*field), n = static_cast<T>(v.v_offs);
    if (*now != 0 && *now != n)
        alert_msg(again);
    else
        *now = n;
    return true;
}

// flag=name, of a psect or class.
static bool flag_name(uint64_t space, symbol_t **s)
{
    if (!expect(T_EQUALS))
        return false;
    const lex_space_t names(space);
    return parse_name(s);
}

// A flag that names a psect or class: `again` when it named another.
static bool name_flag(symbol_t *psect_t::*field, uint64_t space, unsigned again)
{
    symbol_t *s;
    if (!flag_name(space, &s))
        return false;
    symbol_t **now = &(cur_psect->s_psect->*field);
    if (*now && *now != s)
        alert_msg(again);
    else
        *now = s;
    return true;
}

static bool group_flag()
{
    value_t v;
    if (!flag_value(&v))
        return false;
    if (v.v_rtype != RT_CONST)
        alert_msg(847);
    else
        parse_check_field("psect flag \"group\"", v.v_offs, UINT32_MAX);
    cur_psect->s_psect->p_group = static_cast<uint32_t>(v.v_offs);
    return true;
}

// optim=inline:pa:... : words between colons, any of which may be missing.
static bool optim_flag()
{
    psect_t *p = cur_psect->s_psect;
    if (!expect(T_EQUALS))
        return false;
    do {
        uint32_t bit = 0;
        switch (peek()) {
        case T_PF_INLINE: bit = PO_INLINE; break;
        case T_PF_PA: bit = PO_PA; break;
        case T_PF_JUMP: bit = PO_JUMP; break;
        case T_PF_PEEP: bit = PO_PEEP; break;
        case T_PF_REMOVE: bit = PO_REMOVE; break;
        case T_PF_CODECOV: bit = PO_CODECOV; break;
        default: break;
        }
        if (bit)
            take();
        p->p_optim |= bit;
    } while (accept(T_COLON));
    p->p_optim |= PO_GIVEN;
    p->p_inline = (p->p_optim & PO_INLINE) != 0;
    p->p_keep = (p->p_optim & PO_REMOVE) == 0;
    return true;
}

static bool psect_flag()
{
    psect_t *p = cur_psect->s_psect;
    const int flag = peek();
    const uint16_t bits = yylval.subop;
    if (flag != T_PSECTFLAG && (flag < T_PF_RELOC || flag > T_PF_CODECOV))
        return syntax_error("a psect flag");
    take();
    switch (flag) {
    case T_PSECTFLAG: p->p_flags |= bits; return true;
    case T_PF_SIZE: return numeric_flag(&psect_t::p_size, "psect flag \"size\"", UINT32_MAX, 864, 865);
    case T_PF_LIMIT: return numeric_flag(&psect_t::p_limit, "psect flag \"limit\"", UINT16_MAX, 1013, 1014);
    case T_PF_RELOC: return numeric_flag(&psect_t::p_reloc, "psect flag \"reloc\"", UINT16_MAX, 866, 867);
    case T_PF_DELTA: return numeric_flag(&psect_t::p_delta, "psect flag \"delta\"", UINT8_MAX, 868, 869);
    case T_PF_SPACE: return numeric_flag(&psect_t::p_space, "psect flag \"space\"", UINT8_MAX, 871, 872);
    case T_PF_CLASS: return name_flag(&psect_t::p_class, S_CLASS, 873);
    case T_PF_WITH: return name_flag(&psect_t::p_with, S_PSECT, 874);
    case T_PF_GROUP: return group_flag();
    case T_PF_OPTIM: return optim_flag();
    case T_PF_INLINE: p->p_inline = true; return true;
    case T_PF_KEEP: p->p_keep = true; return true;
    case T_PF_NOEXEC: p->p_noexec = true; return true;
    case T_PF_LOWDATA: p->p_lowdata = true; return true;
    case T_PF_MINOCG: p->p_optim |= PO_MINOCG; return true;
    case T_PF_CODECOV: p->p_optim |= PO_CODECOV; return true;
    default: return syntax_error();   // a word of optim= on its own
    }
}

bool d_psect(uint16_t)
{
    symbol_t *s;
    const lex_space_t names(S_PSECT);
    if (!parse_name(&s))
        return false;
    cur_psect = s;
    psect_t *p = s->s_psect;
    pending_comments_to(p->p_comments);
    if (accept(T_COMMA) || (peek() != T_EOL && peek() != T_COMMENT))
        do
            if (!psect_flag())
                return false;
        while (accept(T_COMMA));
    if (!(p->p_flags & P_LOCAL))
        p->p_flags |= P_GLOBAL;
    else if (p->p_flags & P_GLOBAL)
        alert_msg(857);
    if (p->p_flags & P_NOTE) {
        p->p_noexec = true;
        if (p->p_group || p->p_inline || p->p_keep || p->p_optim)
            alert_once(1519);
        p->p_group = p->p_optim = 0;
        p->p_inline = p->p_keep = false;
    }
    return true;
}
