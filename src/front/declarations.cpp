// Statements that tell something of symbols: who sees them, what they stand for, where they lie in data memory, and what
// calls what. They act while they are read and take no room; only `equ` and `set` leave a node, for the listing.
#include "front/declarations.h"

#include "code/program.h"
#include "common/alert.h"
#include "common/srcpos.h"
#include "common/xalloc.h"
#include "front/parser.h"

// A list of names, each of which may have a meaningless `c:` before it.
static bool each_name(void (*fn)(symbol_t *s))
{
    symbol_t *s;
    do {
        if (accept(ACCESS_C) && !expect(T_COLON))
            return false;
        if (!parse_name(&s))
            return false;
        fn(s);
        s->s_refs = REFS_KEEP;
    } while (accept(T_COMMA));
    return true;
}

static void make_extern(symbol_t *s)
{
    if (!(s->s_flags & S_UNDEF))
        alert_msg(862);
    s->s_flags |= S_EXTERN | S_GLOBAL;
}

static void make_global(symbol_t *s) { s->s_flags |= S_GLOBAL; }
static void make_local(symbol_t *s) { s->s_flags |= S_LOCAL; }

static void make_public(symbol_t *s)
{
    if (s->s_flags & S_EXTERN)
        alert_msg(863);
    s->s_flags |= S_GLOBAL;
}

bool d_extrn(uint16_t) { return each_name(make_extern); }
bool d_global(uint16_t) { return each_name(make_global); }
bool d_local(uint16_t) { return each_name(make_local); }
bool d_public(uint16_t) { return each_name(make_public); }

bool parse_definition(symbol_t *s, int token)
{
    value_t v;
    if (!parse_expr(&v))
        return false;
    if (token == T_EQU && !(s->s_flags & S_UNDEF) && !value_equal(&v, &s->s_value))
        parse_defined_twice(s);
    if (value_has_here(&v))
        alert_msg(2211, s->s_name);
    s->s_value = v;
    s->s_deffile = srcpos.cur_file;
    s->s_defline = srcpos.cur_line;
    s->s_flags &= ~static_cast<uint64_t>(S_UNDEF);
    s->s_flags |= token == T_EQU ? S_EQU : S_SET;
    op_t *op = stmt_new_op(static_cast<token_t>(token));
    op->op_opnd1.opnd_value = value_sym(s);
    op_opnd2_make(op)->opnd_value = v;
    return true;
}

// Addresses in data memory.

static void dabs_add(int64_t space, int64_t address, int64_t size, symbol_t *s)
{
    parse_check_field("memory space of dabs", space, UINT8_MAX);
    parse_check_field("address of dabs", address, UINT32_MAX);
    parse_check_field("size of dabs", size, UINT32_MAX);
    dabs_t *d = xnew<dabs_t>();
    d->space = static_cast<uint8_t>(space);
    d->address = address;
    d->size = size;
    d->name = s ? s->s_name : "";
    if (!program.dabs_list)
        program.dabs_list = vec_make<dabs_t *>();
    vec_add(program.dabs_list, d);
    if (s) {
        s->s_value = value_const(address);
        s->s_flags &= ~static_cast<uint64_t>(S_UNDEF);
        s->s_flags |= S_DABS | S_GLOBAL;
        sym_add_ref(s);
    }
}

bool d_dabs(uint16_t)
{
    int64_t space, address, size;
    symbol_t *s = nullptr;
    if (!parse_int(&space) || !expect(T_COMMA) || !parse_int(&address) || !expect(T_COMMA) || !parse_int(&size))
        return false;
    if (accept(T_COMMA)) {
        if (!parse_name(&s))
            return false;
        const value_t place = value_const(address);
        if (!(s->s_flags & S_UNDEF) && !value_equal(&s->s_value, &place))
            parse_defined_twice(s);
    }
    dabs_add(space, address, size, s);
    return true;
}

// The call graph.

bool d_fnaddr(uint16_t)
{
    symbol_t *s;
    if (!parse_name(&s))
        return false;
    s->s_flags |= S_FNADDR;
    return true;
}

bool d_fnroot(uint16_t)
{
    symbol_t *s;
    if (!parse_name(&s))
        return false;
    s->s_flags |= S_FNROOT;
    return true;
}

static bool fn_pair(set_t *fn_t::*set)
{
    symbol_t *s, *member;
    if (!parse_name(&s) || !expect(T_COMMA) || !parse_name(&member))
        return false;
    fn_t *fn = sym_fn(s);
    if (!(fn->*set))
        fn->*set = sym_set_new();
    set_add(fn->*set, to_word(member));
    return true;
}

bool d_fncall(uint16_t) { return fn_pair(&fn_t::s_calls); }
bool d_fnarg(uint16_t) { return fn_pair(&fn_t::s_args); }
bool d_fnbreak(uint16_t) { return fn_pair(&fn_t::s_breaks); }

bool d_fnindir(uint16_t)
{
    symbol_t *s;
    int64_t signature;
    if (!parse_name(&s) || !expect(T_COMMA) || !parse_int(&signature))
        return false;
    parse_check_field("signature", signature, UINT16_MAX);
    fn_t *fn = sym_fn(s);
    if (!fn->s_indirs)
        fn->s_indirs = set_new(nullptr);
    set_add(fn->s_indirs, static_cast<word_t>(signature));
    return true;
}

bool d_signat(uint16_t)
{
    symbol_t *s;
    int64_t n;
    if (!parse_name(&s) || !expect(T_COMMA) || !parse_int(&n))
        return false;
    parse_check_field("signature", n, UINT16_MAX);
    s->s_flags |= S_SIGNAT;
    sym_fn(s)->s_signat = static_cast<uint16_t>(n);
    return true;
}

bool d_fnsize(uint16_t)
{
    symbol_t *s;
    value_t args, autos;
    if (!parse_name(&s) || !expect(T_COMMA) || !parse_expr(&args) || !expect(T_COMMA) || !parse_expr(&autos))
        return false;
    if (args.v_rtype != RT_CONST || args.v_offs < 0 || autos.v_rtype != RT_CONST || autos.v_offs < 0) {
        alert_msg(853);
        return true;
    }
    parse_check_field("size of arguments", args.v_offs, UINT16_MAX);
    parse_check_field("size of variables", autos.v_offs, UINT16_MAX);
    if (args.v_offs > UINT16_MAX || autos.v_offs > UINT16_MAX)
        return true;
    fn_t *fn = sym_fn(s);
    if (args.v_offs > fn->s_argsize)
        fn->s_argsize = static_cast<uint16_t>(args.v_offs);
    if (autos.v_offs > fn->s_autosize)
        fn->s_autosize = static_cast<uint16_t>(autos.v_offs);
    s->s_flags |= S_FNSIZE;
    return true;
}

bool d_fnalign(uint16_t)
{
    symbol_t *s;
    vec_t<symbol_t *> group = vec_make<symbol_t *>();
    do {
        if (!parse_name(&s))
            return false;
        vec_add(group, s);
        if (vec_size(group) == 1 && peek() != T_COMMA)
            return syntax_error();
    } while (accept(T_COMMA));
    if (!program.fnalign_groups)
        program.fnalign_groups = vec_make<vector_t *>();
    vec_add(program.fnalign_groups, group.raw);
    return true;
}

bool d_fnconf(uint16_t)
{
    const char *words[3];
    int64_t number = program.fnconf_number;
    const lex_mode_t mode(LM_FNCONF);
    for (int i = 0; i < 3; i++) {
        if (i > 0 && !expect(T_COMMA))
            return false;
        if (peek() != T_STRING)
            return syntax_error();
        words[i] = yylval.str;
        take();
    }
    if (accept(T_COMMA)) {
        if (!parse_int(&number))
            return false;
        parse_check_field("number of fnconf", number, UINT16_MAX);
    }
    for (int i = 0; i < 3; i++)
        program.fnconf_words[i] = words[i];
    program.fnconf_number = number;
    program.has_fnconf = true;
    return true;
}
