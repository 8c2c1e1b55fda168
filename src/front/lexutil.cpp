// The road of a character: a file is read in blocks, a line is found in the block by its newline and scanned where it
// lies, and a token leaves with its value in `yylval`. Nothing is copied on that road but names and strings that live on.
//
// Every line ends in a newline in memory, also one that ends in CR LF and the last one of a file that has none: the
// newline is the one character that no token can cross, so the scanner tests for it and for nothing else, and never
// needs to know a line's length. `at` stands in the line; it is null when the line has been used up and the next token
// begins a new one.
//
// Keywords don't depend on case and symbols do. What counts as a keyword depends on the statement: a rule of the parser has
// `lex_mode` and `lex_space` by scope guard while it asks for the tokens that matter, and asks for no token earlier than it
// needs it.
//
// A file may begin with the mark by which editors say that a text is UTF-8, and end in the Ctrl-Z by which others say that it
// ends. Neither is part of its text.
//
// What may bite: `lex_open` is called in the middle of a line, whose rest is still to be scanned. It moves the position to the
// new file, which is what the node of an `include` has to take; whoever scans the rest sets it back, so that messages about
// the line show it, and it moves again when the first line is read.
#include "front/lexutil.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <strings.h>
#include <unistd.h>

#include "code/crossref.h"
#include "code/srclines.h"
#include "common/alert.h"
#include "common/srcpos.h"
#include "common/stringcache.h"
#include "common/xalloc.h"
#include "env/cmode.h"
#include "front/chars.h"
#include "front/macro.h"
#include "front/origins.h"
#include "front/sources.h"
#include "options.h"

yylval_t yylval;
uint32_t lex_mode;
uint64_t lex_space;

constexpr unsigned MAX_DEPTH = 100;   // input contexts, included files and expansions together; one more is fatal
constexpr size_t BLOCK = 65536;
constexpr char BYTE_ORDER_MARK[] = "\xEF\xBB\xBF";
constexpr char CTRL_Z = 0x1A;
constexpr size_t MAX_LINE = size_t{1} << 27;       // a line without end, as /dev/zero has, is taken for a read error
constexpr size_t MAX_EXPANDED = size_t{1} << 24;   // an argument that doubles at every level gets there in no time

// A source or included file, or the text of a macro's expansion.
struct input_ctx_t {
    int fd;              // of a file
    char *buf;           // a file's block, or a text's line with its markers replaced; kept for the next context here
    size_t capacity;     // of buf, the last byte for a missing newline
    size_t begin, end;   // the unread part of a file's block
    const char *text, *text_end;   // the unread part of a text; null for a file
    bool at_eof;
    bool fresh;        // no line of the file has been read yet
    bool unfinished;   // the line that was read last had no newline
    const char *ctx_file;
    int64_t ctx_line;           // phys_line to go back to when the context above ends
    const char *ctx_src_file;   // src_file likewise
    bool ctx_list;              // list_on likewise
};

static struct {
    input_ctx_t stack[MAX_DEPTH];
    unsigned depth;   // contexts on the stack
    const char *at;
    const char *line;       // the current line, also when it has been used up
    const char *line_end;   // its newline
    const char *token;      // the token scanned last, which may be of an earlier line
    bool ended;             // all input has been read
    uint32_t src_next;      // source file to open
    unsigned radix;         // of numbers that don't tell it
    bool list_on;           // listing is on here. Nothing asks for it: the listing shows the code lists as a whole
    bool list_expand;       // and stays on in expansions
} lx;

// Files and lines.

// Room for `room` bytes and a newline in the buffer, whose first `kept` stay.
static void keep_room(input_ctx_t *c, size_t kept, size_t room) { xreserve(c->buf, kept, room + 1, c->capacity, size_t{0}); }

// Reads more behind the unread part of `c`. False at the end of the file or on an error, which is reported.
static bool read_more(input_ctx_t *c)
{
    if (c->at_eof)
        return false;
    if (c->begin > 0) {
        memmove(c->buf, c->buf + c->begin, c->end - c->begin);
        c->end -= c->begin;
        c->begin = 0;
    }
    if (c->end + 1 == c->capacity)
        keep_room(c, c->end, 2 * c->capacity);
    ssize_t n;
    do
        n = read(c->fd, c->buf + c->end, c->capacity - 1 - c->end);
    while (n < 0 && errno == EINTR);
    if (n > 0) {
        c->end += static_cast<size_t>(n);
        if (c->end < MAX_LINE)
            return true;
        errno = EFBIG;
    }
    c->at_eof = true;
    if (n != 0) {
        alert_msg(140, lx.depth > 1 ? "include" : "", c->ctx_file);
        c->end = c->begin;
    }
    return false;
}

// Reads the first block of an open file, so that a failing device shows at once. A small file is read whole, and needs no second
// look for its end.
static bool read_first(input_ctx_t *c, const opened_t &source)
{
    keep_room(c, 0, BLOCK);
    const size_t room = c->capacity - 1;
    ssize_t n = read(source.fd, c->buf, room);
    if (n < 0) {
        int why = errno;
        close(source.fd);
        errno = why;
        return false;
    }
    c->fd = source.fd;
    c->begin = 0;
    c->end = static_cast<size_t>(n);
    c->at_eof = n == 0 || (n == source.size && c->end < room);
    c->text = nullptr;
    return true;
}

// The context that is about to be pushed; what to come back to is noted in the one below it.
static input_ctx_t *next_context()
{
    if (lx.depth == MAX_DEPTH)
        alert_text("F", "include files nested more than %u deep", MAX_DEPTH - 1);
    input_ctx_t *c = &lx.stack[lx.depth];
    if (lx.depth > 0) {
        c[-1].ctx_line = srcpos.phys_line;
        if (opt.source_name)
            c[-1].ctx_file = srcpos.phys_file;
        // Where `#` told a file, the way back leads to the file that was read. One that `file` told stays in force.
        c[-1].ctx_src_file = srcpos.src_file == srcpos.cur_file ? c[-1].ctx_file : srcpos.src_file;
        c[-1].ctx_list = lx.list_on;
    }
    return c;
}

static void stand_at_head(const input_ctx_t *c)
{
    srcpos.cur_file = srcpos.phys_file = c->ctx_file;
    srcpos.cur_line = srcpos.phys_line = 0;
    srcpos.src_line = 0;
    srcpos.src_stale = false;
    if (opt.line_records)
        srcpos.src_file = c->ctx_file;
}

static void cant_open(const char *name)
{
    if (lx.depth > 0) {
        alert_msg(140, "include", name);
        return;
    }
    const srcpos_nowhere_t nowhere;   // the line that was read last is another source's
    if (alert_msg(140, "", name) && *name == '-')
        alert_text("M", "\"%s\" stands behind a source, where it is taken for one more: options come first", name);
}

bool lex_open(const char *name)
{
    input_ctx_t *c = next_context();
    const char *path = name;
    const opened_t source = source_open(&path, lx.depth > 0);
    if (source.fd < 0 || !read_first(c, source)) {
        cant_open(name);
        return false;
    }
    name = path;
    crossref_file(name);
    c->ctx_file = cache_string(name);
    c->fresh = true;
    if (lx.depth++ > 0)
        origins_include(c[-1].ctx_file, c[-1].ctx_line);
    stand_at_head(c);
    if (srclines.kept)
        srclines_open(c->ctx_file);
    return true;
}

void lex_push_text(const char *text, size_t length)
{
    input_ctx_t *c = next_context();
    c->text = text;
    c->text_end = text + length;
    c->ctx_file = srcpos.phys_file;
    lx.list_on = lx.list_on && lx.list_expand;
    lx.depth++;
    lx.at = nullptr;
}

// The context on top is used up: back to the one below, or on to the next source file. False at the end of all input.
static bool lex_pop()
{
    if (lx.depth > 0) {
        const input_ctx_t *ended = &lx.stack[--lx.depth];
        if (ended->text) {
            lx.list_on = ended[-1].ctx_list;
            origins_leave();
            macro_end();
            return true;
        }
        close(ended->fd);
        if (srclines.kept)
            srclines_close();
        if (lx.depth > 0) {
            origins_leave();
            const input_ctx_t *c = &lx.stack[lx.depth - 1];
            srcpos.cur_line = srcpos.phys_line = c->ctx_line;
            srcpos.src_stale = true;
            if (opt.line_records) {
                srcpos.src_line = c->ctx_line;
                srcpos.src_file = c->ctx_src_file;
            }
            lx.list_on = c->ctx_list;
            srcpos.cur_file = srcpos.phys_file = c->ctx_file;
            crossref_file(c->ctx_file);
            return true;
        }
    }
    srcpos.cur_file = "";
    if (lx.src_next >= opt.src_count)
        return false;
    const char *name = cache_string(opt.src_files[lx.src_next++]);
    srcpos.src_file = opt.source_name ? opt.source_name : name;
    return lex_open(name);
}

// The markers that stand anywhere in the raw line `s` to `end`, also in strings.
static void find_markers(const char *s, const char *end)
{
    srcpos.line_volatile = srcpos.line_volsfr = srcpos.line_compiled = false;
    while ((s = static_cast<const char *>(memchr(s, ';', static_cast<size_t>(end - s))))) {
        s++;
        size_t left = static_cast<size_t>(end - s);
        if (*s == '#')
            srcpos.line_compiled = true;
        else if (left >= 8 && memcmp(s, "volatile", 8) == 0)
            srcpos.line_volatile = true;
        else if (left >= 6 && memcmp(s, "volsfr", 6) == 0)
            srcpos.line_volsfr = true;
    }
}

// The next line of a text becomes the current one. False if there is none.
static bool fill_from_text(input_ctx_t *c)
{
    if (c->text == c->text_end)
        return false;
    const char *s = c->text, *newline = static_cast<const char *>(memchr(s, '\n', static_cast<size_t>(c->text_end - s)));
    c->text = newline + 1;
    origins_line(c->text);
    const char *marker = static_cast<const char *>(memchr(s, MACRO_MARKER, static_cast<size_t>(newline - s)));
    if (!marker) {
        lx.at = s;
        lx.line_end = newline;
        return true;
    }
    size_t length = 0;
    for (; marker; marker = static_cast<const char *>(memchr(s, MACRO_MARKER, static_cast<size_t>(newline - s)))) {
        const char *replaced = macro_subst(static_cast<unsigned char>(marker[1]));
        const size_t before = static_cast<size_t>(marker - s), behind = replaced ? strlen(replaced) : 0;
        if (length + before + behind > MAX_EXPANDED)
            alert_text("F", "line of more than %zu bytes after its macro's arguments are put in", MAX_EXPANDED);
        keep_room(c, length, length + before + behind);
        memcpy(c->buf + length, s, before);
        if (behind)
            memcpy(c->buf + length + before, replaced, behind);
        length += before + behind;
        s = marker + 2;
    }
    const size_t rest = static_cast<size_t>(newline - s);
    keep_room(c, length, length + rest);
    memcpy(c->buf + length, s, rest);
    c->buf[length + rest] = '\n';
    lx.at = c->buf;
    lx.line_end = c->buf + length + rest;
    return true;
}

// The next line of a file becomes the current one. False if there is none.
static bool fill_from_file(input_ctx_t *c)
{
    char *newline;
    do
        newline = static_cast<char *>(memchr(c->buf + c->begin, '\n', c->end - c->begin));
    while (!newline && read_more(c));
    if (c->fresh && c->end - c->begin >= 3 && memcmp(c->buf + c->begin, BYTE_ORDER_MARK, 3) == 0)
        c->begin += 3;
    while (!newline && c->end > c->begin && c->buf[c->end - 1] == CTRL_Z)
        c->end--;
    if (!newline && c->begin == c->end)
        return false;
    if (c->fresh) {
        c->fresh = false;
        stand_at_head(c);
    }
    c->unfinished = !newline;
    if (c->unfinished) {
        newline = c->buf + c->end;
        *newline = '\n';
    }
    lx.at = c->buf + c->begin;
    c->begin = c->unfinished ? c->end : static_cast<size_t>(newline - c->buf) + 1;
    if (!c->unfinished && newline > lx.at && newline[-1] == '\r')
        *--newline = '\n';
    lx.line_end = newline;
    srcpos.phys_line++;
    srcpos.cur_line++;
    return true;
}

static void keep_line()
{
    unsigned expansions = 0;
    while (lx.stack[lx.depth - 1 - expansions].text)   // at the foot is a file
        expansions++;
    srclines_add(lx.at, static_cast<size_t>(lx.line_end - lx.at), expansions);
}

// Makes the next line the current one. False at the end of all input.
static bool lex_fill()
{
    input_ctx_t *c;
    for (;;) {
        c = lx.depth > 0 ? &lx.stack[lx.depth - 1] : nullptr;
        if (c && (c->text ? fill_from_text(c) : fill_from_file(c)))
            break;
        if (!lex_pop()) {
            lx.ended = true;
            return false;
        }
    }
    lx.line = lx.at;
    find_markers(lx.at, lx.line_end);
    if (srclines.kept)
        keep_line();
    if (c->text)
        return true;
    if (srcpos.line_compiled)
        srcpos.src_line++;
    else if (opt.line_records)
        srcpos.src_line = srcpos.cur_line;
    if (c->unfinished)
        alert_msg(337);
    return true;
}

void lex_init()
{
    lex_mode = LM_PLAIN;
    lex_space = 0;
    lx.depth = 0;
    lx.at = nullptr;
    lx.ended = false;
    lx.src_next = 0;
    lx.radix = 10;
    lx.list_on = false;
    lx.list_expand = opt.list_all;
}

void lex_set_radix(unsigned radix) { lx.radix = radix; }
void lex_set_list(bool on) { lx.list_on = on || opt.list_all; }
void lex_set_expand(bool on) { lx.list_expand = on || opt.list_all; }

bool lex_in_expansion() { return lx.depth > 0 && lx.stack[lx.depth - 1].text; }

void lex_skip_line() { lx.at = nullptr; }

const char *lex_line_rest() { return lx.at || (!lx.ended && lex_fill()) ? lx.at : nullptr; }

const char *lex_line_rest_here() { return lx.at; }

void lex_set_line_rest(const char *at) { lx.at = at; }

bool lex_line(lex_line_t *line)
{
    if (lx.depth == 0 || !lx.line)
        return false;
    *line = {lx.line, static_cast<size_t>(lx.line_end - lx.line), 0, 0};
    if (lx.token < lx.line || lx.token > lx.line_end)
        return true;
    line->token = static_cast<size_t>(lx.token - lx.line);
    line->token_length = lx.at > lx.token && lx.at <= lx.line_end ? static_cast<size_t>(lx.at - lx.token) : 1;
    return true;
}

bool lex_is_letter(char c) { return class_of(c) & C_LETTER; }
bool lex_is_digit(char c) { return class_of(c) & C_DIGIT; }
bool lex_is_hex(char c) { return class_of(c) & C_HEX; }

// Numbers.

// The value of `len` digits in `radix`. Message 223 gives 0; message 788 gives the value so far.
static int64_t convert(const char *s, size_t len, unsigned radix)
{
    uint64_t n = 0;
    for (const char *end = s + len; s < end; s++) {
        if (!(class_of(*s) & C_HEX)) {
            alert_msg(788, *s);
            break;
        }
        unsigned digit = *s <= '9' ? static_cast<unsigned>(*s - '0') : static_cast<unsigned>((*s | 0x20) - 'a') + 10;
        if (digit >= radix) {
            alert_msg(223);
            return 0;
        }
        n = n * radix + digit;
    }
    return static_cast<int64_t>(n);
}

// Most numbers are a few decimal digits with nothing behind them that could make something else of them. False if not.
static bool scan_decimal()
{
    constexpr int MOST = 18;   // digits of any number that fits
    const char *p = lx.at;
    int64_t n = 0;
    for (; lex_is_digit(*p) && p - lx.at < MOST; p++)
        n = n * 10 + (*p - '0');
    if (p == lx.at || *p == '.' || class_of(*p) & (C_LETTER | C_HEX | C_DIGIT))
        return false;
    lx.at = p;
    yylval.num = n;
    return true;
}

// Scans the number whose first character is *lx.at. `radix` is what a prefix gave, or 0; `quoted` says that the number
// stands between quotes.
static int scan_number(unsigned radix, bool quoted)
{
    const char *s = lx.at, *p = s;
    bool maybe_float = radix == 0, decided_float = false, binary_form = false;
    bool has_point = false, has_exponent = false;
    if (radix == 0 && *p == '0') {
        if ((p[1] | 0x20) == 'x') {
            radix = 16;
            maybe_float = false;
            s = p += 2;
        } else if ((p[1] | 0x20) == 'b') {
            binary_form = true;
            maybe_float = false;
            p += 2;
        }
    }
    if (quoted && *p != '\n')
        p++;   // whatever stands behind the quote is the number's first character
    for (;; p++) {
        if (class_of(*p) & C_HEX) {
            if ((*p | 0x20) == 'e')
                has_exponent = true;
            else if (!lex_is_digit(*p))
                maybe_float = false;
            if (*p != '0' && *p != '1')
                binary_form = false;
        } else if (*p == '.' && maybe_float) {
            has_point = true;
        } else {
            break;
        }
    }
    const char *end = p;   // of the digits
    const char last = p > s ? p[-1] : '0';
    if (*p == '\'' && quoted) {
        p++;
    } else if ((*p == '+' || *p == '-') && maybe_float && (last | 0x20) == 'e') {
        do
            p++;
        while (lex_is_digit(*p));
        end = p;
        decided_float = true;
    } else if ((*p | 0x20) == 'h') {
        p++;
        radix = 16;
    } else if ((*p | 0x20) == 'o' || (*p | 0x20) == 'q') {
        p++;
        if (radix)
            alert_msg(794);
        radix = 8;
    } else if (radix == 0 && (last == 'b' || last == 'f')) {
        lx.at = p;
        yylval.num = convert(s, static_cast<size_t>(end - 1 - s), 10);
        return last == 'f' ? T_TLABF : T_TLABB;
    } else if (radix == 0 && last == 'B') {
        radix = 2;
        end--;
    }
    lx.at = p;
    if (decided_float || (radix == 0 && maybe_float && (has_point || has_exponent))) {
        // The standard conversion wants a terminated copy; a float of some hundred digits is cut at no harm.
        char text[512];
        size_t len = static_cast<size_t>(end - s) < sizeof text ? static_cast<size_t>(end - s) : sizeof text - 1;
        memcpy(text, s, len);
        text[len] = 0;
        char *rest;
        yylval.flt = strtod(text, &rest);
        if (*rest)
            alert_msg(794);
        return T_FLOAT;
    }
    if (binary_form && radix == 0) {
        s += 2;
        radix = 2;
    }
    yylval.num = convert(s, static_cast<size_t>(end - s), radix ? radix : lx.radix);
    return T_INT;
}

// Strings and words.

static int scan_string(char delimiter)
{
    const char *s = ++lx.at;
    while (*lx.at != delimiter && *lx.at != '\n')
        lx.at++;
    yylval.str_len = static_cast<size_t>(lx.at - s);
    yylval.str = xstrndup(s, yylval.str_len);
    if (*lx.at == delimiter)
        lx.at++;
    else
        alert_msg(968);
    return T_STRING;
}

static int keyword(const op_row_t *row)
{
    yylval.subop = row->subop;
    return row->token;
}

// Scans the word that begins at lx.at, whose first character isn't a digit unless in LM_CHIP. 0: no token, for a lexical error
// that has been reported or a macro whose text now follows.
static int scan_word()
{
    const char *s = lx.at, *p = s + 1;
    const uint8_t first = class_of(*s);
    if ((first & C_LETTER) || lex_mode == LM_CHIP)
        while (class_of(*p) & C_WORD)
            p++;
    lx.at = p;
    const size_t len = static_cast<size_t>(p - s);
    const op_row_t *row = nullptr;
    if (lex_mode != LM_PLAIN || lex_space != 0) {
        switch (lex_mode) {
        case LM_FNCONF:
        case LM_CONFIG:
            yylval.str = xstrndup(s, len);
            yylval.str_len = len;
            return T_STRING;
        case LM_CONTROL: row = op_lookup_control(s, len); break;
        case LM_CHIP: yylval.str = cache_upper(cache_substring(s, len)); return T_CHIP;
        case LM_LIST: row = op_lookup_listopt(s, len); break;
        default: break;
        }
        if (!row && lex_space != 0)
            row = op_lookup_psectflag(s, len);
        if (!row && lex_mode == LM_ASMOPT)
            row = op_lookup_switch(s, len);
        if (row)
            return keyword(row);
    }
    if (*s != '_' || len == 1 || s[1] == '_') {
        row = op_lookup_keyword(s, len);
        if (row && !(lex_space != 0 && row->token == T_CONFIG))
            return keyword(row);
    }
    if (!(first & C_LETTER)) {
        alert_msg(844);
        return 0;
    }
    if (lex_space == 0 && crf_stream)
        crossref_use(s, len);
    symbol_t *sym = sym_enter(s, len, lex_space);
    if ((sym->s_flags & (S_MACRO | S_PSECT)) == S_MACRO) {
        while (class_of(*p) & C_BLANK)
            p++;
        if (strncasecmp(p, "equ", 3) == 0 || strncasecmp(p, "set", 3) == 0)
            alert_msg(843);
        else
            macro_call(sym);
        return 0;
    }
    yylval.sym = sym;
    return T_NAME;
}

// The letter-and-quote forms of the older assembler. 0 if there is none here.
static int scan_quoted_form()
{
    if (lx.at[1] != '\'' || !cmode_is(CMODE_ZMASM))
        return 0;
    unsigned radix = 0;
    switch (*lx.at | 0x20) {
    case 'a': lx.at++; return scan_string('\'');
    case 'b': radix = 2; break;
    case 'd': radix = 10; break;
    case 'h': radix = 16; break;
    case 'o': radix = 8; break;
    default: return 0;
    }
    lx.at += 2;
    return scan_number(radix, true);
}

static int op_token(int token, uint16_t subop, int length)
{
    lx.at += length;
    yylval.subop = subop;
    return token;
}

int yylex()
{
    for (;;) {
        if (!lx.at && (lx.ended || !lex_fill()))
            return -1;
        const char c = *lx.at, next = c == '\n' ? c : lx.at[1];
        lx.token = lx.at;
        int token;
        switch (c) {
        case ' ':
        case '\t':
        case '\f':
            do
                lx.at++;
            while (class_of(*lx.at) & C_BLANK);
            continue;
        case '\n': lx.at = nullptr; return T_EOL;
        case '"':
        case '\'': return scan_string(c);
        case ';':
            yylval.str = lx.at;
            yylval.str_len = static_cast<size_t>(lx.line_end - lx.at);
            return T_COMMENT;
        case '#': return op_token(T_HASH, 0, 1);
        case '(': return op_token(T_LPAREN, 0, 1);
        case ')': return op_token(T_RPAREN, 0, 1);
        case '[': return op_token(T_LBRACKET, 0, 1);
        case ']': return op_token(T_RBRACKET, 0, 1);
        case ':': return op_token(T_COLON, 0, 1);
        case ',': return op_token(T_COMMA, 0, 1);
        case '-': return op_token(T_MINUS, OPC_MINUS, 1);
        case '+': return op_token(T_PLUS, OPC_PLUS, 1);
        case '*': return op_token(T_STAR, OPC_MUL, 1);
        case '=': return op_token(T_EQUALS, OPC_EQ, 1);
        case '/': return op_token(T_DIV, OPC_DIV, 1);
        case '&': return op_token(T_AND, OPC_AND, 1);
        case '^': return op_token(T_OR, OPC_XOR, 1);
        case '|': return op_token(T_OR, OPC_OR, 1);
        case '~': return op_token(T_NOT, OPC_NOT, 1);
        case '<':
            if (next == '>')
                return op_token(T_RELOP, OPC_NE, 2);
            if (next == '=')
                return op_token(T_RELOP, OPC_LE, 2);
            if (next == '<')
                return op_token(T_SHIFT, OPC_SHL, 2);
            return op_token(T_RELOP, OPC_LT, 1);
        case '>':
            if (next == '=')
                return op_token(T_RELOP, OPC_GE, 2);
            if (next == '>')
                return op_token(T_SHIFT, OPC_SHR, 2);
            return op_token(T_RELOP, OPC_GT, 1);
        case '$':
        case '@':
            lx.at++;
            if (class_of(next) & C_HEX)
                return scan_number(16, false);
            return T_DOLLAR;
        case '%':
            if (lex_is_digit(next)) {
                lx.at++;
                return scan_number(2, false);
            }
            token = scan_word();
            break;
        case '.':
            if (lex_is_digit(next) && cmode_is(CMODE_ZMASM)) {
                lx.at++;
                return scan_number(10, false);
            }
            token = scan_word();
            break;
        default:
            if (lex_is_digit(c) && lex_mode != LM_CHIP)
                return lx.radix == 10 && scan_decimal() ? int{T_INT} : scan_number(0, false);
            token = next == '\'' ? scan_quoted_form() : 0;
            if (!token)
                token = scan_word();
            break;
        }
        if (token)
            return token;
    }
}
