// A directive is read by one small rule, found through the table at the end by its token. Most act while they are read:
// they set a flag of a symbol or psect, or an option of the run. Those that take room in the program or speak at its
// place make a node instead, and act when that node is sized or emitted.
//
// Numbers of directives are of two kinds: number tokens, and expressions that must be constant where they stand. A symbol
// defined further down is not constant yet.
//
// Words inside a `psect` statement live in the name space of psects, but for expressions, whose symbols are plain ones.
#include "front/directives.h"

#include <initializer_list>

#include "chip/config.h"
#include "code/program.h"
#include "common/alert.h"
#include "common/srcpos.h"
#include "common/stringcache.h"
#include "common/xalloc.h"
#include "front/macro.h"
#include "front/parser.h"
#include "options.h"

static struct {
    vec_t<uint32_t> asmopt_stack;   // saved stmt_flags; null until used
} st;

// An expression that must be a constant from `least` to `most`; otherwise the message `number`. The value goes on as it is.
static bool parse_const(value_t *v, int64_t least, int64_t most, unsigned number)
{
    if (!parse_expr(v))
        return false;
    if (v->v_rtype != RT_CONST || v->v_offs < least || v->v_offs > most)
        alert_msg(number);
    return true;
}

// A number that goes into a field of the program or of the object file: whatever its bits are cut to, message 2210 says so.
static void check_field(const char *what, int64_t n, int64_t most)
{
    if (n < 0 || n > most)
        alert_msg(2210, what, 0LL, static_cast<long long>(most), static_cast<long long>(n));
}

static op_t *text_node(uint16_t type, uint16_t subop, const char *text)
{
    op_t *op = stmt_new_op(type);
    op->op_subop = subop;
    op->op_text = text;
    return op;
}

// What statements and the controls of `opt` share.

static bool do_title(bool sub)
{
    const char *text;
    if (!parse_string(&text))
        return false;
    text_node(T_TITLE, 0, text);
    (sub ? program.list_subtitle : program.list_title) = text;
    return true;
}

static bool do_include()
{
    const char *name;
    if (!parse_string(&name))
        return false;
    text_node(T_INCLUDE, 0, name);   // first, so that the node has this line's position
    lex_open(name);
    return true;
}

static void do_expand(bool on) { opt.list_expand = on || opt.list_all; }

static void set_page(int32_t *option, const char *what, int64_t n)
{
    check_field(what, n, INT32_MAX);
    *option = static_cast<uint64_t>(n) > INT32_MAX ? INT32_MAX : static_cast<int32_t>(n);
}

static bool do_page(int32_t *option, const char *what)
{
    int64_t n;
    if (!parse_int(&n))
        return false;
    set_page(option, what, n);
    return true;
}

static bool do_pagelength() { return do_page(&opt.form_length, "page length"); }
static bool do_pagewidth() { return do_page(&opt.page_width, "page width"); }

bool parse_callstack()
{
    int64_t n;
    if (!parse_int(&n))
        return false;
    check_field("call stack depth", n, UINT32_MAX);
    parse_state.callstack_depth = static_cast<uint32_t>(n);
    return true;
}

static void asmopt_switch(bool on)
{
    if (on)
        parse_state.stmt_flags &= ~static_cast<uint32_t>(OPF_NOOPT);
    else
        parse_state.stmt_flags |= OPF_NOOPT;
}

static void asmopt_push()
{
    if (!st.asmopt_stack)
        st.asmopt_stack = vec_make<uint32_t>();
    vec_add(st.asmopt_stack, parse_state.stmt_flags);
}

static void asmopt_pop()
{
    if (vec_size(st.asmopt_stack) == 0)
        alert_msg(1507);
    else
        parse_state.stmt_flags = vec_pop(st.asmopt_stack);
}

static bool list_option()
{
    value_t v;
    const int option = peek();
    switch (option) {
    case T_LO_C:
    case T_LO_N: {
        const bool columns = option == T_LO_C;
        take();
        if (!expect(T_EQUALS) || !parse_const(&v, 0, INT64_MAX, columns ? 859 : 861))
            return false;
        if (v.v_offs < (columns ? 49 : 15))
            alert_msg(columns ? 860 : 835);
        else
            set_page(columns ? &opt.page_width : &opt.form_length, columns ? "page width" : "page length", v.v_offs);
        return true;
    }
    case T_LO_T:
        take();
        return expect(T_EQUALS) && (accept(T_LO_ON) || expect(T_LO_OFF));
    case T_LO_R:
        take();
        if (!expect(T_EQUALS))
            return false;
        if (peek() != T_RADIXWORD)
            return syntax_error();
        opt.radix = yylval.subop;
        alert_msg(2069);
        take();
        return true;
    default:
        return syntax_error();
    }
}

// The options of list and nolist; there may be none, and they may begin with a comma.
static bool list_options()
{
    lex_mode = LM_LIST;
    if (accept(T_COMMA) || (peek() >= T_LO_C && peek() <= T_LO_OFF))
        do
            if (!list_option())
                return false;
        while (accept(T_COMMA));
    lex_mode = LM_PLAIN;
    return true;
}

// The list of controls of `opt` and `$`.

static void deprecated(const char *word) { alert_msg(2068, word); }

// The control `token` that has been taken. False on a syntax error. The asmopt_ words and the page sizes aren't deprecated.
static bool control(int token, bool on)
{
    switch (token) {
    case T_COND:
        deprecated(on ? "cond" : "nocond");
        return true;
    case T_TITLE:
    case T_SUBTITLE:
        deprecated(token == T_TITLE ? "title" : "subtitle");
        return do_title(token == T_SUBTITLE);
    case T_INCLUDE: {
        const bool ok = do_include();
        if (ok)
            deprecated("include");
        return ok;
    }
    case T_EXPAND:
        deprecated(on ? "expand" : "noexpand");
        do_expand(on);
        return true;
    case T_LIST:
        deprecated(on ? "list" : "nolist");
        opt.list_on = on || opt.list_all;
        return list_options();
    case T_CALLSTACK:
        deprecated("callstack");
        return parse_callstack();
    case T_ASMOPT_SWITCH:
        asmopt_switch(on);
        return true;
    case T_ASMOPT_STACK:
        if (on)
            asmopt_push();
        else
            asmopt_pop();
        return true;
    case T_PAGELENGTH:
        return do_pagelength();
    case T_PAGEWIDTH:
        return do_pagewidth();
    default:
        return syntax_error();
    }
}

static bool d_controls(uint16_t)
{
    lex_mode = LM_CONTROL;
    while (peek() != T_EOL && peek() != T_COMMENT) {
        const int token = peek();
        const bool on = yylval.subop != 0;
        take();
        if (!control(token, on))
            return false;
    }
    lex_mode = LM_PLAIN;
    return true;
}

// Listing and text.

static bool d_list(uint16_t) { return list_options(); }
static bool d_cond(uint16_t) { return true; }
static bool d_title(uint16_t) { return do_title(false); }
static bool d_subtitle(uint16_t) { return do_title(true); }
static bool d_include(uint16_t) { return do_include(); }
static bool d_expand(uint16_t on) { do_expand(on != 0); return true; }
static bool d_callstack(uint16_t) { return parse_callstack(); }
static bool d_pagelength(uint16_t) { return do_pagelength(); }
static bool d_pagewidth(uint16_t) { return do_pagewidth(); }

static bool d_messg(uint16_t is_error)
{
    const char *text;
    if (!parse_string(&text))
        return false;
    text_node(T_MESSG, is_error, text);
    return true;
}

static bool d_asmopt(uint16_t)
{
    lex_mode = LM_ASMOPT;
    const int word = peek();
    lex_mode = LM_PLAIN;
    switch (word) {
    case T_ON: asmopt_switch(true); break;
    case T_OFF: asmopt_switch(false); break;
    case T_PUSHWORD: asmopt_push(); break;
    case T_POPWORD: asmopt_pop(); break;
    default: return syntax_error();
    }
    take();
    return true;
}

static bool d_radix(uint16_t)
{
    if (peek() != T_RADIXWORD)
        return syntax_error();
    opt.radix = yylval.subop;
    take();
    return true;
}

// Conditions. Both arms are read; which of them counts is decided when all input has been read.

static bool condition(uint16_t type)
{
    value_t v;
    if (!parse_expr(&v))
        return false;
    value_eval(&v);
    op_t *op = stmt_new_op(type);
    op->op_opnd1.opnd_kind = OPND_LIT;
    op->op_opnd1.opnd_value = v;
    return true;
}

static bool d_if(uint16_t) { return condition(T_IF); }
static bool d_elsif(uint16_t) { return condition(T_ELSIF); }
static bool d_else(uint16_t) { stmt_new_op(T_ELSE); return true; }
static bool d_endif(uint16_t) { stmt_new_op(T_ENDIF); return true; }

// Symbols.

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

static bool d_extrn(uint16_t) { return each_name(make_extern); }
static bool d_global(uint16_t) { return each_name(make_global); }
static bool d_local(uint16_t) { return each_name(make_local); }
static bool d_public(uint16_t) { return each_name(make_public); }

bool parse_definition(symbol_t *s, int token)
{
    value_t v;
    if (!parse_expr(&v))
        return false;
    if (token == T_EQU && !(s->s_flags & S_UNDEF) && !value_equal(&v, &s->s_value))
        alert_msg(845, s->s_name);
    if (value_has_here(&v))
        alert_msg(2211, s->s_name);
    s->s_value = v;
    s->s_flags &= ~static_cast<uint64_t>(S_UNDEF);
    s->s_flags |= token == T_EQU ? S_EQU : S_SET;
    op_t *op = stmt_new_op(static_cast<uint16_t>(token));
    op->op_opnd1.opnd_value = value_sym(s);
    op->op_opnd2.opnd_value = v;
    return true;
}

static void dabs_add(int64_t space, int64_t address, int64_t size, symbol_t *s)
{
    check_field("memory space of dabs", space, UINT8_MAX);
    check_field("address of dabs", address, UINT32_MAX);
    check_field("size of dabs", size, UINT32_MAX);
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

static bool d_dabs(uint16_t)
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
            alert_msg(845, s->s_name);
    }
    dabs_add(space, address, size, s);
    return true;
}

// The call graph.

static bool d_fnaddr(uint16_t)
{
    symbol_t *s;
    if (!parse_name(&s))
        return false;
    s->s_flags |= S_FNADDR;
    return true;
}

static bool d_fnroot(uint16_t)
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

static bool d_fncall(uint16_t) { return fn_pair(&fn_t::s_calls); }
static bool d_fnarg(uint16_t) { return fn_pair(&fn_t::s_args); }
static bool d_fnbreak(uint16_t) { return fn_pair(&fn_t::s_breaks); }

static bool d_fnindir(uint16_t)
{
    symbol_t *s;
    int64_t signature;
    if (!parse_name(&s) || !expect(T_COMMA) || !parse_int(&signature))
        return false;
    check_field("signature", signature, UINT16_MAX);
    fn_t *fn = sym_fn(s);
    if (!fn->s_indirs)
        fn->s_indirs = set_new(nullptr);
    set_add(fn->s_indirs, static_cast<word_t>(signature));
    return true;
}

static bool d_signat(uint16_t)
{
    symbol_t *s;
    int64_t n;
    if (!parse_name(&s) || !expect(T_COMMA) || !parse_int(&n))
        return false;
    check_field("signature", n, UINT16_MAX);
    s->s_flags |= S_SIGNAT;
    sym_fn(s)->s_signat = static_cast<uint16_t>(n);
    return true;
}

static bool d_fnsize(uint16_t)
{
    symbol_t *s;
    value_t args, autos;
    if (!parse_name(&s) || !expect(T_COMMA) || !parse_expr(&args) || !expect(T_COMMA) || !parse_expr(&autos))
        return false;
    if (args.v_rtype != RT_CONST || args.v_offs < 0 || autos.v_rtype != RT_CONST || autos.v_offs < 0) {
        alert_msg(853);
        return true;
    }
    check_field("size of arguments", args.v_offs, UINT16_MAX);
    check_field("size of variables", autos.v_offs, UINT16_MAX);
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

static bool d_fnalign(uint16_t)
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

static bool d_fnconf(uint16_t)
{
    const char *words[3];
    int64_t number = program.fnconf_number;
    lex_mode = LM_FNCONF;
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
        check_field("number of fnconf", number, UINT16_MAX);
    }
    lex_mode = LM_PLAIN;
    for (int i = 0; i < 3; i++)
        program.fnconf_words[i] = words[i];
    program.fnconf_number = number;
    program.has_fnconf = true;
    return true;
}

// Data and position.

static bool d_db(uint16_t width)
{
    data_item_t *first = nullptr, **link = &first;
    do {
        value_t v;
        if (!parse_expr(&v))
            return false;
        *link = xnew<data_item_t>();
        (*link)->value = v;
        link = &(*link)->next;
    } while (accept(T_COMMA));
    op_t *op = stmt_new_op(T_DB);
    op->op_subop = width;
    op->op_data = first;
    return true;
}

static bool d_ds(uint16_t)
{
    value_t v;
    if (!parse_const(&v, 0, INT64_MAX, 854))
        return false;
    op_t *op = stmt_new_op(T_DS);
    op->op_opnd1.opnd_kind = OPND_LIT;
    op->op_opnd1.opnd_value = v;
    return true;
}

static bool d_org(uint16_t)
{
    value_t v;
    if (!parse_const(&v, 0, INT64_MAX, 855))
        return false;
    op_t *op = stmt_new_op(T_ORG);
    op->op_opnd1.opnd_kind = OPND_LIT;
    op->op_arg = static_cast<uint64_t>(v.v_offs);
    return true;
}

static bool d_align(uint16_t)
{
    value_t v;
    if (!parse_const(&v, 1, INT64_MAX, 856))
        return false;
    stmt_new_op(T_ALIGN)->op_arg = static_cast<uint64_t>(v.v_offs);
    return true;
}

// The higher-level source's position.

static bool d_line(uint16_t)
{
    if (accept(T_HASH)) {
        srcpos.line_follows = true;
        return true;
    }
    int64_t n;
    if (!parse_int(&n))
        return false;
    srcpos.line_follows = false;
    srcpos.src_line = n;
    if (n == srcpos.cur_line)
        srcpos.cur_line = n - 1;
    return true;
}

static bool d_file(uint16_t)
{
    if (peek() != T_STRING)
        return syntax_error();
    srcpos.src_file = yylval.str_len ? cache_string(yylval.str) : srcpos.phys_file;
    take();
    return true;
}

// `#`, `# n`, `# n "file"` and `# n "file" flags`, as a preprocessor leaves them. With flags, a file in angle brackets
// is no file.
static bool d_hash(uint16_t)
{
    if (peek() != T_INT) {
        srcpos.cur_line = srcpos.phys_line;
        srcpos.cur_file = srcpos.phys_file;
        return true;
    }
    const int64_t n = yylval.num;
    const char *file = nullptr;
    bool counts = true;
    take();
    if ((peek() == T_STRING || peek() == T_LPAREN) && !parse_string(&file))
        return false;
    if (file && peek() == T_INT) {
        counts = file[0] != '<' && !cache_ends_with(file, ">");
        while (accept(T_INT))
            ;
    }
    if (counts) {
        srcpos.cur_line = srcpos.src_line = n - 1;
        if (file)
            srcpos.cur_file = srcpos.src_file = cache_string(file);
    }
    return true;
}

static bool d_processor(uint16_t)
{
    lex_mode = LM_CHIP;
    if (peek() != T_CHIP)
        return syntax_error();
    if (!opt.chip_name || cache_string(yylval.str) != cache_string(opt.chip_name))
        alert_msg(2070);
    take();
    lex_mode = LM_PLAIN;
    return true;
}

// Statements of other assemblers that are read and mean nothing here.

static bool d_maxram(uint16_t)
{
    value_t v;
    return parse_expr(&v);
}

static bool d_badram(uint16_t)
{
    int64_t n;
    do
        if (!parse_int(&n) || (accept(T_MINUS) && !parse_int(&n)))
            return false;
    while (accept(T_COMMA));
    return true;
}

// Configuration words.
static bool d_config(uint16_t)
{
    lex_mode = LM_CONFIG;
    do {
        if (peek() != T_STRING)
            return syntax_error();
        const char *what = yylval.str;
        take();
        if (!expect(T_EQUALS))
            return false;
        if (peek() == T_STRING)
            cfg_prog_with_name(what, yylval.str);
        else if (peek() == T_INT)
            cfg_prog_with_value(what, static_cast<uint64_t>(yylval.num));
        else
            return syntax_error();
        take();
    } while (accept(T_COMMA));
    lex_mode = LM_PLAIN;
    return true;
}

// psect.

// flag=expr. The expression's names are plain symbols.
static bool flag_value(value_t *v)
{
    if (!expect(T_EQUALS))
        return false;
    lex_space = 0;
    const bool ok = parse_expr(v);
    lex_space = S_PSECT;
    return ok;
}

// A numeric flag: `bad` when it isn't a constant from 0 on, 2210 with `what` when it is above `most`, `again` when it had
// another value. 0: not set so far.
template <class T>
static bool numeric_flag(T psect_t::*field, const char *what, int64_t most, unsigned bad, unsigned again)
{
    value_t v;
    if (!flag_value(&v))
        return false;
    if (v.v_rtype != RT_CONST || v.v_offs < 0)
        alert_msg(bad);
    else
        check_field(what, v.v_offs, most);
    T *now = &(cur_psect->s_psect->*field), n = static_cast<T>(v.v_offs);
    if (*now != 0 && *now != n)
        alert_msg(again);
    else
        *now = n;
    return true;
}

// A flag that names a psect or class: `again` when it named another.
static bool name_flag(symbol_t *psect_t::*field, uint64_t space, unsigned again)
{
    symbol_t *s;
    if (!expect(T_EQUALS))
        return false;
    lex_space = space;
    const bool ok = parse_name(&s);
    lex_space = S_PSECT;
    if (!ok)
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
        check_field("psect flag \"group\"", v.v_offs, UINT32_MAX);
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
        return syntax_error();
    take();
    switch (flag) {
    case T_PSECTFLAG: cur_psect->s_flags |= bits; return true;
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

static bool d_psect(uint16_t)
{
    symbol_t *s;
    lex_space = S_PSECT;
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
    if (!(s->s_flags & S_LOCAL))
        s->s_flags |= S_GLOBAL;
    else if (s->s_flags & S_GLOBAL)
        alert_msg(857);
    if (s->s_flags & S_NOTE) {
        p->p_noexec = true;
        if (p->p_group || p->p_inline || p->p_keep || p->p_optim)
            alert_once(1519);
        p->p_group = p->p_optim = 0;
        p->p_inline = p->p_keep = false;
    }
    lex_space = 0;
    return true;
}

// The rules. Those of the first block are complete before the line's end, so that a comment behind them belongs to the
// statement that follows; behind the others it belongs to the statement itself.
static const struct {
    int token;
    stmt_end_t end;
    bool (*rule)(uint16_t subop);
} rules[] = {
    {T_LIST, END_CONTROL, d_list},
    {T_MESSG, END_CONTROL, d_messg},
    {T_INCLUDE, END_CONTROL, d_include},
    {T_COND, END_CONTROL, d_cond},
    {T_TITLE, END_CONTROL, d_title},
    {T_SUBTITLE, END_CONTROL, d_subtitle},
    {T_EXPAND, END_CONTROL, d_expand},
    {T_CALLSTACK, END_CONTROL, d_callstack},
    {T_ASMOPT, END_CONTROL, d_asmopt},
    {T_PAGELENGTH, END_CONTROL, d_pagelength},
    {T_PAGEWIDTH, END_CONTROL, d_pagewidth},
    {T_IF, END_COMMAND, d_if},
    {T_ELSIF, END_COMMAND, d_elsif},
    {T_ELSE, END_COMMAND, d_else},
    {T_ENDIF, END_COMMAND, d_endif},
    {T_EXTRN, END_COMMAND, d_extrn},
    {T_GLOBAL, END_COMMAND, d_global},
    {T_LOCAL, END_COMMAND, d_local},
    {T_PUBLIC, END_COMMAND, d_public},
    {T_RADIX, END_COMMAND, d_radix},
    {T_FNADDR, END_COMMAND, d_fnaddr},
    {T_FNINDIR, END_COMMAND, d_fnindir},
    {T_FNCALL, END_COMMAND, d_fncall},
    {T_FNBREAK, END_COMMAND, d_fnbreak},
    {T_FNARG, END_COMMAND, d_fnarg},
    {T_FNROOT, END_COMMAND, d_fnroot},
    {T_FNALIGN, END_COMMAND, d_fnalign},
    {T_FNCONF, END_COMMAND, d_fnconf},
    {T_SIGNAT, END_COMMAND, d_signat},
    {T_FNSIZE, END_COMMAND, d_fnsize},
    {T_DABS, END_COMMAND, d_dabs},
    {T_DB, END_COMMAND, d_db},
    {T_DS, END_COMMAND, d_ds},
    {T_ORG, END_COMMAND, d_org},
    {T_LINE, END_COMMAND, d_line},
    {T_FILE, END_COMMAND, d_file},
    {T_PROCESSOR, END_COMMAND, d_processor},
    {T_HASH, END_COMMAND, d_hash},
    {T_ALIGN, END_COMMAND, d_align},
    {T_MAXRAM, END_COMMAND, d_maxram},
    {T_BADRAM, END_COMMAND, d_badram},
    {T_PSECT, END_COMMAND, d_psect},
    {T_IRP, END_COMMAND, macro_irp},
    {T_IRPC, END_COMMAND, macro_irpc},
    {T_REPT, END_COMMAND, macro_rept},
    {T_OPT, END_COMMAND, d_controls},
    {T_DOLLAR, END_COMMAND, d_controls},
    {T_CONFIG, END_COMMAND, d_config},
};

bool parse_directive(int token, stmt_end_t *end)
{
    for (const auto &r : rules)
        if (r.token == token) {
            *end = r.end;
            return r.rule(yylval.subop);
        }
    return syntax_error();
}
