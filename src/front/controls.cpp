// Statements that steer: the listing, the optimiser, the reading of the source. They act while they are read, and most of
// them have two forms: the statement, and an older one as a control in the list behind `opt` or `$`, which shares the
// statement's operands and is reported as deprecated.
//
// `asmopt off` marks every node from here on, by way of the flags that each new node gets; push and pop keep these flags.
#include "front/controls.h"

#include "code/program.h"
#include "common/alert.h"
#include "common/srcpos.h"
#include "front/parser.h"

static struct {
    vec_t<uint32_t> asmopt_stack;   // saved stmt_flags; null until used
} st;

static bool do_title(bool sub)
{
    const char *text;
    if (!parse_string(&text))
        return false;
    stmt_new_text(T_TITLE, 0, text);
    (sub ? program.list_subtitle : program.list_title) = text;
    return true;
}

bool d_title(uint16_t) { return do_title(false); }
bool d_subtitle(uint16_t) { return do_title(true); }

bool d_include(uint16_t)
{
    const char *name;
    if (!parse_string(&name))
        return false;
    const srcpos_t line = srcpos;
    lex_open(name);
    stmt_new_text(T_INCLUDE, 0,
                  name);   // at the head of the file, before its first line, so that no line is recorded for it
    srcpos.cur_file = line.cur_file;
    srcpos.cur_line = line.cur_line;
    srcpos.phys_file = line.phys_file;
    srcpos.phys_line = line.phys_line;
    return true;
}

bool d_expand(uint16_t on)
{
    lex_set_expand(on);
    return true;
}

bool d_cond(uint16_t) { return true; }

// Sets a member of program.page.
static void set_page(int32_t *member, const char *what, int64_t n)
{
    parse_check_field(what, n, INT32_MAX);
    *member = static_cast<uint64_t>(n) > INT32_MAX ? INT32_MAX : static_cast<int32_t>(n);
}

static bool do_page(int32_t *member, const char *what)
{
    int64_t n;
    if (!parse_int(&n))
        return false;
    set_page(member, what, n);
    return true;
}

bool d_pagelength(uint16_t) { return do_page(&program.page.form_length, "page length"); }
bool d_pagewidth(uint16_t) { return do_page(&program.page.page_width, "page width"); }

bool parse_callstack()
{
    int64_t n;
    if (!parse_int(&n))
        return false;
    parse_check_field("call stack depth", n, UINT32_MAX);
    parse_state.callstack_depth = static_cast<uint32_t>(n);
    return true;
}

bool d_callstack(uint16_t) { return parse_callstack(); }

bool d_radix(uint16_t)
{
    if (peek() != T_RADIXWORD)
        return syntax_error("dec, hex or oct");
    lex_set_radix(yylval.subop);
    take();
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

bool d_asmopt(uint16_t)
{
    const lex_mode_t mode(LM_ASMOPT);
    switch (peek()) {
    case T_ON: asmopt_switch(true); break;
    case T_OFF: asmopt_switch(false); break;
    case T_PUSHWORD: asmopt_push(); break;
    case T_POPWORD: asmopt_pop(); break;
    default: return syntax_error("on, off, push or pop");
    }
    take();
    return true;
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
            set_page(columns ? &program.page.page_width : &program.page.form_length, columns ? "page width" : "page length",
                     v.v_offs);
        return true;
    }
    case T_LO_T: take(); return expect(T_EQUALS) && (accept(T_LO_ON) || expect(T_LO_OFF));
    case T_LO_R:
        take();
        if (!expect(T_EQUALS))
            return false;
        if (peek() != T_RADIXWORD)
            return syntax_error("dec, hex or oct");
        lex_set_radix(yylval.subop);
        alert_msg(2069);
        take();
        return true;
    default: return syntax_error();
    }
}

// The options of list and nolist; there may be none, and they may begin with a comma.
static bool list_options()
{
    const lex_mode_t mode(LM_LIST);
    if (accept(T_COMMA) || (peek() >= T_LO_C && peek() <= T_LO_OFF))
        do
            if (!list_option())
                return false;
        while (accept(T_COMMA));
    return true;
}

bool d_list(uint16_t) { return list_options(); }

// The list of controls of `opt` and `$`.

static void deprecated(const char *word) { alert_msg(2068, word); }

// The control `token` that has been taken. False on a syntax error. The asmopt_ words and the page sizes aren't deprecated.
static bool control(int token, bool on)
{
    switch (token) {
    case T_COND: deprecated(on ? "cond" : "nocond"); return true;
    case T_TITLE:
    case T_SUBTITLE:
        deprecated(token == T_TITLE ? "title" : "subtitle");
        return token == T_TITLE ? d_title(0) : d_subtitle(0);
    case T_INCLUDE: {
        const bool ok = d_include(0);
        if (ok)
            deprecated("include");
        return ok;
    }
    case T_EXPAND: deprecated(on ? "expand" : "noexpand"); return d_expand(on);
    case T_LIST:
        deprecated(on ? "list" : "nolist");
        lex_set_list(on);
        return list_options();
    case T_CALLSTACK: deprecated("callstack"); return parse_callstack();
    case T_ASMOPT_SWITCH: asmopt_switch(on); return true;
    case T_ASMOPT_STACK:
        if (on)
            asmopt_push();
        else
            asmopt_pop();
        return true;
    case T_PAGELENGTH: return d_pagelength(0);
    case T_PAGEWIDTH: return d_pagewidth(0);
    default: return syntax_error();
    }
}

bool d_controls(uint16_t)
{
    const lex_mode_t mode(LM_CONTROL);
    while (peek() != T_EOL && peek() != T_COMMENT) {
        const int token = peek();
        const bool on = yylval.subop != 0;
        take();
        if (!control(token, on))
            return false;
    }
    return true;
}
