// A directive is read by one small rule, found through the table at the end by its token. Most act while they are read:
// they set a flag of a symbol or psect, or change how the rest is read. Those that take room in the program or speak at its
// place make a node instead, and act when that node is sized or emitted.
//
// Rules of a family stand together: what steers listing, optimiser and reading in controls.cpp, what tells something of
// symbols in declarations.cpp, `psect` in psects.cpp. Here are the others, data and conditions above all.
//
// Numbers of directives are of two kinds: number tokens, and expressions that must be constant where they stand. A symbol
// defined further down is not constant yet.
#include "front/directives.h"

#include "chip/config.h"
#include "code/data.h"
#include "code/srclines.h"
#include "common/alert.h"
#include "common/srcpos.h"
#include "common/stringcache.h"
#include "common/xalloc.h"
#include "front/controls.h"
#include "front/declarations.h"
#include "front/macro.h"
#include "front/parser.h"
#include "front/psects.h"
#include "options.h"

static bool d_messg(uint16_t is_error)
{
    const char *text;
    if (!parse_string(&text))
        return false;
    stmt_new_text(T_MESSG, is_error, text);
    return true;
}

// Conditions. Both arms are read; which of them counts is decided when all input has been read.

static bool condition(token_t type)
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
static bool d_else(uint16_t)
{
    stmt_new_op(T_ELSE);
    return true;
}
static bool d_endif(uint16_t)
{
    stmt_new_op(T_ENDIF);
    return true;
}

// Data and position.

// The table that is being written: the node and last run of the data read last, if more may join it.
static struct {
    op_t *node;   // null: none may
    data_run_t *last;
    const char *file;
    int64_t line;
} table;

// Whether nobody will ask which node this line has made, or for more of it than its numbers and its place.
static bool line_can_join()
{
    const bool asked = opt.list_enabled || opt.asm_output || opt.optimise || opt.xinst_optimise || opt.errata_mask ||
                       opt.line_records || srclines.kept;
    const bool told = srcpos.src_line != 0 || srcpos.line_follows || srcpos.line_volatile || srcpos.line_volsfr ||
                      srcpos.line_compiled || parse_state.stmt_flags || parse_state.callstack_depth;
    return !asked && !told && !lex_in_expansion();
}

// Whether nothing but lines that make no node stands between the table and this line of the same file.
static bool goes_on(uint16_t width)
{
    const op_t *op = table.node;
    const int64_t below = srcpos.cur_line - table.line;
    return op && op == cur_psect->s_psect->p_code->tail.op_prev && op->op_id == op_last_id() && op->op_subop == width &&
           table.file == srcpos.cur_file && below > 0 && below <= UINT8_MAX;
}

// The data of one statement: a node, or part of the one before.
static void add_data(uint16_t width, data_run_t *first)
{
    data_run_t *last = first;
    bool numbers = first->width != 0;
    for (; last->next; last = last->next)
        numbers = numbers && last->next->width != 0;
    const bool can_join = numbers && line_can_join();
    if (can_join && goes_on(width)) {
        first->below = static_cast<uint8_t>(srcpos.cur_line - table.line);
        table.last->next = first;
        parse_state.last_op = table.node;
    } else {
        op_t *op = stmt_new_op(T_DB);
        op->op_subop = width;
        op->op_data = first;
        table.node = can_join ? op : nullptr;
    }
    table.last = last;
    table.file = srcpos.cur_file;
    table.line = srcpos.cur_line;
}

static bool d_db(uint16_t width)
{
    data_begin();
    do {
        value_t v;
        if (!parse_expr(&v))
            return false;
        data_add(&v);
    } while (accept(T_COMMA));
    add_data(width, data_end());
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
    op_set_number(op, static_cast<uint64_t>(v.v_offs));
    return true;
}

static bool d_align(uint16_t)
{
    value_t v;
    if (!parse_const(&v, 1, INT64_MAX, 856))
        return false;
    op_set_number(stmt_new_op(T_ALIGN), static_cast<uint64_t>(v.v_offs));
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
    srcpos.src_stale = false;
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
        srcpos.src_stale = true;
        if (file)
            srcpos.cur_file = srcpos.src_file = cache_string(file);
        if (opt.source_name) {   // nobody wants to hear of lines of what the preprocessor made, not even behind an include
            srcpos.phys_line = srcpos.cur_line;
            srcpos.phys_file = srcpos.cur_file;
        }
    }
    return true;
}

static bool d_processor(uint16_t)
{
    const lex_mode_t mode(LM_CHIP);
    if (peek() != T_CHIP)
        return syntax_error("the name of a chip");
    if (!opt.chip_name || cache_string(yylval.str) != cache_string(opt.chip_name))
        alert_msg(2070);
    take();
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
    const lex_mode_t mode(LM_CONFIG);
    do {
        if (peek() != T_STRING)
            return syntax_error("a configuration setting or register");
        const char *what = yylval.str;
        take();
        if (!expect(T_EQUALS))
            return false;
        if (peek() == T_STRING)
            cfg_prog_with_name(what, yylval.str);
        else if (peek() == T_INT)
            cfg_prog_with_value(what, static_cast<uint64_t>(yylval.num));
        else
            return syntax_error("a value of the setting");
        take();
    } while (accept(T_COMMA));
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
    return syntax_error("a statement");
}
