// Macros work on text. A definition is read character by character into a body, in which a parameter's name has become a
// marker of two bytes. An expansion puts that body on the scanner's input stack, and the scanner replaces the markers line
// by line, so that a replaced text joins what stands beside it into one word. The parser sees lines, and never a macro.
//
// `rept`, `irp` and `irpc` are macros without a name that expand where they are defined, once for each round; the end of one
// round pushes the next.
//
// While a body is read, a record in the symbol table stands for each parameter and local name. It hides what else has the
// name and is taken out again when the definition ends; its value is the selector of its marker. The scanner has made a
// record already where the name is new, and that one serves: it goes with the definition, as nothing can refer to it.
//
// The name of a macro followed by `macro` is a call, and what was meant as its body is then read as statements. If the very
// line that defined the macro is read again, though, so is all of the definition: that is one error, and its text is passed
// over. For any other call of this kind the `endm` that it leaves over tells where to look.
//
// The arguments of an expansion and a block without a name go back when they are done with, as a program may have any number
// of them. Only where the way to each node is kept (origins) does it lead into the texts of such blocks, and they stay.
//
// What may bite: the words `macro`, `rept`, `irp`, `irpc` and `endm` count as such wherever they stand in a body's line,
// outside of strings and comments.
#include "front/macro.h"

#include <cstdio>
#include <cstring>
#include <strings.h>

#include "common/alert.h"
#include "common/srcpos.h"
#include "common/stringcache.h"
#include "common/xalloc.h"
#include "front/origins.h"
#include "front/parser.h"

enum macro_kind_t : uint8_t { KIND_MACRO, KIND_REPT, KIND_IRP, KIND_IRPC };

struct definition_place_t {
    const char *file;
    int64_t line;
};

struct macro_t {
    const char *m_name;
    definition_place_t m_place;      // where its text begins, as messages show it
    const char *m_body;              // lines, each ended by a newline
    size_t m_length;                 // of the body, bytes
    vec_t<uint32_t> m_dropped;       // where in the body a line isn't kept, `local`; null: nowhere
    vec_t<const char *> m_list;      // irp: the elements
    const char *m_chars;             // irpc: the characters
    int64_t m_count;                 // rept: rounds left. irp, irpc: index of the current element
    uint16_t m_nparams, m_nlocals;   // arguments to read at a call; local names
    macro_kind_t m_kind;
    bool m_within;   // the definition is text of an expansion, so its place is that of a call
};

struct macro_frame_t {
    macro_t *mf_macro;
    vec_t<const char *> mf_args;   // null: empty, or left out
    vec_t<const char *> mf_locals;
};

constexpr unsigned FRAMES = 30;        // expansions nest one less deep
constexpr unsigned MOST_NAMES = 127;   // parameters, and local names, of one macro
constexpr size_t LONGEST_BODY = 32767;
constexpr int64_t MOST_ROUNDS = 1 << 24;   // of a rept: no memory of the family has more places

// Selectors: 1 to 127 a parameter, with LOCAL_BIT set a local name. A newline ends a line wherever it stands, so the tenth
// parameter has another one; and a byte of the source that looks like a marker becomes a marker that stands for that byte.
constexpr unsigned char LITERAL_MARKER = 0, LOCAL_BIT = 0x80, TENTH = LOCAL_BIT;

// Text that grows. The same few buffers serve the whole run.
struct text_t {
    char *s;
    size_t length, room;
    size_t solid;   // its first bytes, that cut_blanks leaves: a selector may look like a blank
};

static struct {
    macro_frame_t stack[FRAMES];   // used from 1
    unsigned top;
    uint32_t local_counter;   // numbers the names made for local ones
    unsigned arg_highest;     // highest @n of the body being read
    bool capturing;           // a body is being read
    text_t body, arg;
    const macro_t *doubtful;   // a call of this macro had `macro` behind its name; null: none
    definition_place_t doubtful_at;
} ms;

static void put(text_t *t, char c)
{
    xreserve(t->s, t->length, t->length + 1, t->room, size_t{256});
    t->s[t->length++] = c;
}

static void put_marker(unsigned char selector)
{
    put(&ms.body, MACRO_MARKER);
    put(&ms.body, static_cast<char>(selector == '\n' ? TENTH : selector));
    ms.body.solid = ms.body.length;
}

// A character of the source into the body.
static void put_body(char c)
{
    if (c == MACRO_MARKER)
        put_marker(LITERAL_MARKER);
    else
        put(&ms.body, c);
}

static bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\f' || c == '\r' || c == '\b'; }

static const char *end_of_word(const char *p)
{
    while (lex_is_letter(*p) || lex_is_digit(*p))
        p++;
    return p;
}

static void cut_blanks(text_t *t)
{
    while (t->length > t->solid && is_blank(t->s[t->length - 1]))
        t->length--;
}

// A copy for as long as drop_texts hasn't had it.
static const char *copy_text(const char *s)
{
    const size_t size = strlen(s) + 1;
    return static_cast<const char *>(memcpy(xalloc_again(size), s, size));
}

static void drop_texts(vec_t<const char *> texts)
{
    for (const char *s : texts)
        if (s)
            xgive_back(const_cast<char *>(s), strlen(s) + 1);
}

// Arguments.

// Reads one raw argument from the line at *at, which moves on. It stays until the next one is read. Null: there is none.
static const char *macro_arg(const char **at)
{
    const char *p = *at;
    text_t *t = &ms.arg;
    bool gathered = false;
    t->length = 0;
    while (is_blank(*p))
        p++;
    for (; *p != '\n' && *p != ','; p++) {
        if (*p == ';') {
            gathered = gathered && t->length > 0;
            while (*p != '\n')
                p++;
            break;
        }
        gathered = true;
        if (*p == '!') {
            if (p[1] != '\n')
                put(t, *++p);
        } else if (*p == '<') {
            for (unsigned level = 1; level > 0;) {
                p++;
                if (*p == '\n') {
                    alert_msg(793);
                    p--;
                    break;
                }
                if (*p == '!' && p[1] != '\n') {
                    put(t, *++p);
                } else if (*p == '<') {
                    level++;
                } else if (*p == '>') {
                    if (--level > 0)
                        put(t, '>');
                } else {
                    put(t, *p);
                }
            }
        } else {
            put(t, *p);
        }
    }
    if (*p == ',')
        p++;
    *at = p;
    put(t, '\0');
    return gathered ? t->s : nullptr;
}

static const char *trim(const char *s) { return cache_trim_chars(s, "\t\n\v\f\r "); }

// Expansion.

static void macro_expand(macro_t *m)
{
    if (ms.top + 1 == FRAMES)
        alert_text("F", "macro \"%s\": expansions nested more than %u deep", m->m_name, FRAMES - 1);
    macro_frame_t *f = &ms.stack[ms.top + 1];
    f->mf_macro = m;
    f->mf_args = vec_make<const char *>();
    f->mf_locals = vec_make<const char *>();
    if (m->m_kind == KIND_MACRO) {
        const char *at = lex_line_rest();
        for (unsigned i = 0; i < m->m_nparams; i++) {
            const char *arg = macro_arg(&at);
            vec_add(f->mf_args, arg ? copy_text(arg) : nullptr);
        }
    } else if (m->m_kind == KIND_IRP) {
        vec_add(f->mf_args, vec_elementAt(m->m_list, static_cast<uint32_t>(m->m_count)));
    } else if (m->m_kind == KIND_IRPC) {
        vec_add(f->mf_args, cache_printf("%c", m->m_chars[m->m_count]));
    }
    for (unsigned i = 0; i < m->m_nlocals; i++) {
        char name[16];
        snprintf(name, sizeof name, "??%04u", ms.local_counter++);
        vec_add(f->mf_locals, copy_text(name));
    }
    ms.top++;
    lex_push_text(m->m_body, m->m_length);
    origins_enter(m);
}

// A block without a name is done with.
static void drop_block(macro_t *m)
{
    if (origins_kept())
        return;
    vec_destroy(m->m_dropped.raw);
    vec_destroy(m->m_list.raw);
    xgive_back(const_cast<char *>(m->m_body), m->m_length + 1);
    xgive_back(m, sizeof *m);
}

void macro_end()
{
    const macro_frame_t *f = &ms.stack[ms.top--];
    macro_t *m = f->mf_macro;
    if (m->m_kind == KIND_MACRO)   // the others' are cached
        drop_texts(f->mf_args);
    drop_texts(f->mf_locals);
    vec_destroy(f->mf_args.raw);
    vec_destroy(f->mf_locals.raw);
    bool again = false;
    switch (m->m_kind) {
    case KIND_MACRO: break;
    case KIND_REPT: again = --m->m_count > 0; break;
    case KIND_IRP: again = ++m->m_count < vec_size(m->m_list); break;
    case KIND_IRPC: again = m->m_chars[++m->m_count] != 0; break;
    }
    if (again)
        macro_expand(m);
    else if (m->m_kind != KIND_MACRO)
        drop_block(m);
}

const char *macro_subst(unsigned char selector)
{
    static const char literal[] = {MACRO_MARKER, 0};
    const macro_frame_t *f = &ms.stack[ms.top];
    if (selector == LITERAL_MARKER)
        return literal;
    if (selector > LOCAL_BIT)
        return vec_elementAt(f->mf_locals, selector - LOCAL_BIT - 1u);
    return vec_elementAt(f->mf_args, selector == TENTH ? 9 : selector - 1u);
}

macro_place_t macro_place(const macro_t *m, const char *behind)
{
    if (m->m_within)
        return {m->m_name, m->m_place.file, 0};
    int64_t line = m->m_place.line;
    for (const char *s = m->m_body; s < behind; s++)
        line += *s == '\n';
    for (const uint32_t at : m->m_dropped)
        line += at < static_cast<size_t>(behind - m->m_body);
    return {m->m_name, m->m_place.file, line};
}

// Definition.

// Names in force while a body is read: its parameters, or its local names.
struct names_t {
    const char *what;
    unsigned char local_bit;
    vec_t<symbol_t *> records;
    bool full;   // which has been told
};

static void drop(symbol_t *record)
{
    sym_unlink(record);
    sym_free(record);
}

// `s` stands in the line that is being read; `before`: the last record made ahead of it.
static void hide(names_t *names, symbol_t *s, uint32_t before, const char *macro)
{
    const bool is_new = s->s_seqno > before;
    if (vec_size(names->records) == MOST_NAMES) {
        if (!names->full)
            alert_text("E", "macro \"%s\" has more than %u %s", macro, MOST_NAMES, names->what);
        names->full = true;
        if (is_new)
            drop(s);
        return;
    }
    symbol_t *record = is_new ? s : sym_clone(s);
    record->s_flags = S_MACROARG;
    record->s_value = value_const(static_cast<int64_t>(vec_size(names->records) + 1) | names->local_bit);
    vec_add(names->records, record);
    if (!is_new)
        sym_link(record);
}

static void show(names_t *names)
{
    while (vec_size(names->records) > 0)
        drop(vec_pop(names->records));
    vec_destroy(names->records.raw);
}

// The names of a `local` line in a body, whose rest is at the scanner.
static void macro_local(names_t *locals, const char *macro)
{
    for (;;) {
        const uint32_t before = sym_last_seqno();
        int token = yylex();
        if (token == T_COMMA)
            token = yylex();
        if (token == T_EOL || token == T_COMMENT || token < 0)
            return;
        if (token != T_NAME) {
            alert_msg(797);
            continue;
        }
        if (yylval.sym->s_flags & S_MACROARG)
            alert_msg(798);
        hide(locals, yylval.sym, before, macro);
    }
}

// Copies a string from its opening quote on. A `\"` in it becomes a bare quote and doesn't end it.
static const char *copy_string(const char *p)
{
    put(&ms.body, *p++);
    for (; *p != '\n' && *p != '"'; p++) {
        if (*p == '\\' && p[1] == '"')
            p++;
        put_body(*p);
    }
    if (*p == '"')
        put(&ms.body, *p++);
    return p;
}

enum capture_t { GO_ON, DROP_LINE, BODY_ENDS };

// One word of a body. `p` stands behind it.
static capture_t capture_word(const char *word, const char **p, unsigned *depth, bool *psect_line, names_t *locals,
                              const char *macro)
{
    const size_t length = static_cast<size_t>(*p - word);
    const op_row_t *row = op_lookup_keyword(word, length);
    if (!row) {
        const symbol_t *s = sym_find(word, length);
        if (s && (s->s_flags & S_MACROARG)) {
            put_marker(static_cast<unsigned char>(s->s_value.v_offs));
            return GO_ON;
        }
    } else if (row->token == T_MACRO || row->token == T_REPT || row->token == T_IRP || row->token == T_IRPC) {
        ++*depth;
    } else if (row->token == T_ENDM) {
        if (--*depth == 0)
            return BODY_ENDS;
    } else if (row->token == T_PSECT) {
        *psect_line = true;
    } else if (row->token == T_LOCAL && !*psect_line) {
        lex_set_line_rest(*p);
        macro_local(locals, macro);
        return DROP_LINE;
    }
    for (; word < *p; word++)
        put(&ms.body, *word);
    return GO_ON;
}

// One line of a body.
static capture_t capture_line(const char *p, unsigned *depth, names_t *locals, const char *macro)
{
    text_t *body = &ms.body;
    bool psect_line = false;
    while (*p != '\n') {
        const char c = *p;
        if (c == '"') {
            p = copy_string(p);
        } else if (c == '&' && *depth == 1) {
            if (*++p == '&')
                put(body, *p++);
        } else if (c == '@' && *depth == 1) {
            p++;
            if (lex_is_digit(*p)) {
                const unsigned position = static_cast<unsigned>(*p++ - '0') + 1;
                put_marker(static_cast<unsigned char>(position));
                if (position > ms.arg_highest)
                    ms.arg_highest = position;
            }
        } else if (lex_is_digit(c)) {
            do
                put(body, *p++);
            while (lex_is_hex(*p));
        } else if (lex_is_letter(c)) {
            const char *word = p;
            p = end_of_word(p);
            const capture_t result = capture_word(word, &p, depth, &psect_line, locals, macro);
            if (result != GO_ON) {
                cut_blanks(body);
                return result;
            }
        } else if (c == ';') {
            if (p[1] == ';') {
                cut_blanks(body);
                break;
            }
            while (*p != '\n')
                put_body(*p++);
        } else {
            put_body(c);
            p++;
        }
    }
    put(body, '\n');
    return GO_ON;
}

// Reads the lines up to the `endm` that matches, and stores them as the body of `m`.
static void macro_capture(macro_t *m, names_t *locals)
{
    ms.capturing = true;
    unsigned depth = 1;
    bool too_long = false;
    ms.arg_highest = 0;
    ms.body.length = ms.body.solid = 0;
    for (capture_t result = GO_ON; result != BODY_ENDS;) {
        lex_skip_line();
        const char *line = lex_line_rest();
        if (!line) {
            if (alert_msg(791)) {
                const srcpos_elsewhere_t begin(m->m_place.file, m->m_place.line);
                alert_text("M", "\"%s\" begins here", m->m_name);
            }
            break;
        }
        result = capture_line(line, &depth, locals, m->m_name);
        if (result == DROP_LINE) {
            if (!m->m_dropped)
                m->m_dropped = vec_make<uint32_t>();
            vec_add(m->m_dropped, static_cast<uint32_t>(ms.body.length));
        }
        if (ms.body.length > LONGEST_BODY && !too_long) {
            alert_text("E", "macro \"%s\": body of more than %zu bytes", m->m_name, LONGEST_BODY);
            too_long = true;
        }
        if (too_long)
            ms.body.length = ms.body.solid = 0;
    }
    lex_skip_line();
    ms.capturing = false;
    // `endm` may stand behind other text of its line.
    if (ms.body.length > 0 && ms.body.s[ms.body.length - 1] != '\n')
        put(&ms.body, '\n');
    char *copy = static_cast<char *>(xalloc_again(ms.body.length + 1));
    if (ms.body.length > 0)
        memcpy(copy, ms.body.s, ms.body.length);
    m->m_length = ms.body.length;
    m->m_body = copy;
}

static void parameters(const macro_t *m, names_t *params)
{
    for (;;) {
        const char *word = lex_line_rest_here();
        while (word && is_blank(*word))
            word++;
        const int length = word ? static_cast<int>(end_of_word(word) - word) : 0;
        const uint32_t before = sym_last_seqno();
        int token = yylex();
        if (token == T_EOL || token == T_COMMENT || token == T_RPAREN || token < 0)
            return;
        if (token != T_NAME) {
            if (alert_msg(109) && length > 0 && op_lookup_keyword(word, static_cast<size_t>(length)))
                alert_text("M", "\"%.*s\" is a word of the language and can't be a parameter", length, word);
            return;
        }
        hide(params, yylval.sym, before, m->m_name);
        if (params->full)
            return;
        token = yylex();
        if (token != T_COMMA || m->m_kind != KIND_MACRO)
            return;
    }
}

// Reads parameters or elements, and the body. The statement's line is used up; a line end is the next token.
static void macro_define(macro_t *m)
{
    names_t params = {"parameters", 0, vec_make<symbol_t *>(), false};
    names_t locals = {"local names", LOCAL_BIT, vec_make<symbol_t *>(), false};
    if (m->m_kind != KIND_REPT)
        parameters(m, &params);
    m->m_nparams = static_cast<uint16_t>(vec_size(params.records));
    const char *at = lex_line_rest_here();
    if (m->m_kind == KIND_IRPC) {
        const char *text = at ? macro_arg(&at) : nullptr;
        m->m_chars = text ? trim(text) : "";
    } else if (m->m_kind == KIND_IRP) {
        m->m_list = vec_make<const char *>();
        for (const char *element; at && (element = macro_arg(&at));)
            if (*element != ';')
                vec_add(m->m_list, trim(element));
    }
    macro_capture(m, &locals);
    if (ms.arg_highest > m->m_nparams)
        m->m_nparams = static_cast<uint16_t>(ms.arg_highest);
    m->m_nlocals = static_cast<uint16_t>(vec_size(locals.records));
    show(&locals);
    show(&params);
}

static macro_t *block(macro_kind_t kind, const char *name)
{
    macro_t *m = static_cast<macro_t *>(xalloc_again(sizeof(macro_t)));
    m->m_kind = kind;
    m->m_name = name;
    m->m_place = {srcpos.cur_file, srcpos.cur_line};
    m->m_within = lex_in_expansion();
    return m;
}

// The definition of `m` is read once more.
static void pass_over(const macro_t *m)
{
    if (alert_msg(858))
        parse_note_first(m->m_name, m->m_place.file, m->m_place.line);
    names_t locals = {"local names", LOCAL_BIT, vec_make<symbol_t *>(), false};
    macro_capture(block(KIND_MACRO, m->m_name), &locals);
    show(&locals);
}

void macro_call(symbol_t *name)
{
    macro_t *m = name->s_macro;
    const char *word = lex_line_rest();
    while (is_blank(*word))
        word++;
    const op_row_t *row = op_lookup_keyword(word, static_cast<size_t>(end_of_word(word) - word));
    if (row && row->token == T_MACRO && !ms.capturing) {
        if (!lex_in_expansion() && srcpos.cur_line == m->m_place.line && strcmp(srcpos.cur_file, m->m_place.file) == 0)
            return pass_over(m);
        ms.doubtful = m;
        ms.doubtful_at = {srcpos.cur_file, srcpos.cur_line};
    }
    macro_expand(m);
}

void macro_explain_end()
{
    const macro_t *m = ms.doubtful;
    if (!m)
        return;
    const srcpos_elsewhere_t call(ms.doubtful_at.file, ms.doubtful_at.line);
    alert_text("M", "\"%s\" is a macro already, and this line calls it", m->m_name);
    parse_note_first(m->m_name, m->m_place.file, m->m_place.line);
    ms.doubtful = nullptr;
}

// A definition is complete: its place in the code list, and the line end that its statement waits for.
static bool defined_here()
{
    stmt_new_op(T_ENDM);
    end_line();
    return true;
}

bool macro_statement(symbol_t *name)
{
    if ((name->s_flags & (S_UNDEF | S_MACRO)) != S_UNDEF && alert_msg(858))
        parse_note_definition(name);
    macro_t *m = block(KIND_MACRO, name->s_name);
    macro_define(m);
    // References to the name as a plain symbol may exist. They keep its value.
    name->s_macro = m;
    name->s_flags = (name->s_flags & ~static_cast<uint64_t>(S_UNDEF)) | S_MACRO;
    return defined_here();
}

bool macro_rept(uint16_t)
{
    value_t v;
    macro_t *m = block(KIND_REPT, "rept");
    if (!parse_expr(&v))
        return false;
    m->m_count = v.v_offs;
    if (v.v_rtype != RT_CONST || v.v_offs < 0) {
        alert_msg(799);
        m->m_count = 1;
    } else if (v.v_offs > MOST_ROUNDS) {
        alert_text("E", "REPT argument must be <= %lld", static_cast<long long>(MOST_ROUNDS));
        m->m_count = 1;
    }
    if (peek() != T_EOL && peek() != T_COMMENT)
        syntax_error();
    macro_define(m);
    defined_here();
    if (m->m_count > 0 && m->m_length > 0)
        macro_expand(m);
    else
        drop_block(m);
    return true;
}

bool macro_irp(uint16_t)
{
    macro_t *m = block(KIND_IRP, "irp");
    macro_define(m);
    defined_here();
    if (vec_size(m->m_list) > 0)
        macro_expand(m);
    else
        drop_block(m);
    return true;
}

bool macro_irpc(uint16_t)
{
    macro_t *m = block(KIND_IRPC, "irpc");
    macro_define(m);
    defined_here();
    if (*m->m_chars)
        macro_expand(m);
    else
        drop_block(m);
    return true;
}
