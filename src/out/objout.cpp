// The object file.
//
// A file is a run of records: two bytes of body length, a type, the body. Most of them say something about the module as
// a whole: its psects, its symbols, its call graph. The code itself is a run of TEXT records, each a piece of one psect
// with a start offset, and behind a TEXT perhaps a RELOC, whose entries tell what the linker has to put into it.
//
// The last steps of an operand's road are here (emobj.cpp tells the ones before). emit_bytes gets an instruction word and
// a normalised value with the width of the field that it goes to. There are three ways on:
//
//     a number         is added to the word; nothing else remains of it
//     a plain place    a psect's or an undefined symbol's address plus a small offset: the offset is added to the word,
//                      and an entry with the name has the linker add the address
//     anything else    the word goes out with an empty field, and an entry carries the whole expression as postfix code,
//                      whose result the linker stores in the field
//
// Buffers. TEXT, RELOC, SYM, DABS and FNINFO records are filled entry by entry and written when the next entry finds no
// room; each buffer has its own test, and where records break depends on it. An entry must refer to the TEXT right before
// its RELOC, so whichever of the two is full, both are written and a new TEXT begins at the current position. SYM has no
// such tie: line information is put there while code is emitted, and its records stand where they happen to fill up.
//
// What may bite. Names can be of any length and a record can't: every byte goes through `put`, `put_z` or `code_byte`,
// which stop at the end of the buffer, and a record or entry that couldn't be completed is reported and left out. A
// psect's flag word gives the low bits another meaning than a symbol's (S_UNDEF there says `common`), so the kind of a
// record must be known before its flags are asked. Symbols may be defined in terms of each other in a circle, so every
// walk along them has a limit.
#include "out/objout.h"

#include <cstdio>
#include <cstring>

#include "chip/chip.h"
#include "code/list.h"
#include "code/program.h"
#include "common/alert.h"
#include "common/srcpos.h"
#include "common/xalloc.h"
#include "options.h"
#include "out/emobj.h"

enum : uint8_t {
    REC_TEXT = 1, REC_PSECT = 2, REC_RELOC = 3, REC_SYM = 4, REC_START = 5, REC_END = 6, REC_IDENT = 7, REC_XPSECT = 8,
    REC_SIGNAT = 11, REC_FNINFO = 12, REC_FNCONF = 13, REC_PSECTLIM = 15, REC_LISTRELOC = 16, REC_LR_TEXT = 17,
    REC_LR_RELOC = 18, REC_COND_EXPR = 19, REC_DABS = 20, REC_FNALIGN = 22, REC_PSECTBOUND = 23,
};
// Subcodes of FNINFO entries.
enum : uint8_t { FN_CALL = 1, FN_ARG = 2, FN_INDIR = 3, FN_ADDR = 4, FN_SIZE = 5, FN_ROOT = 6, FN_BREAK = 9 };
// Flag values of SYM entries beside a symbol's own flags.
enum : uint16_t {
    SYMF_LINE = 4, SYMF_FILE = 5, SYMF_LOCAL_UNDEF = 6, SYMF_LOCAL = 7, SYMF_GLOBAL = 0x10, SYMF_UNDEF = 22, SYMF_ALIAS = 24,
    SYMF_MASK = 31,
};
// Tokens of postfix code that aren't kinds of values.
enum : uint8_t { TOKEN_NUMBER = 3, TOKEN_CHECK_END = 18, TOKEN_CHECK = 19 };
// Type bytes of relocation entries; their low nibble is the field's width, at most 15.
enum : unsigned {
    RELOC_PLAIN = 0xC0, RELOC_COMPLEX = 0xF0, RELOC_IN_BYTES = 0x3F, RELOC_CHECK = 0x30, RELOC_WIDTH_MAX = 15,
};
enum : uint8_t { PSECTBOUND_FORM = 13, FORMAT_MAJOR = 3, FORMAT_MINOR = 11 };
enum : uint64_t { PSECT_FLAGS = 0x14F0, PSECTBOUND_FLAGS = 0x04F0 };
enum : uint8_t { SPACE_DATA = 1, SPACE_IO = 2 };

enum : size_t {
    HEAD = 3,                                  // of a record
    BUF_SIZE = 512,                            // of a record with its head
    RELOC_HEAD = 3,                            // of a relocation entry
    RELOC_BODY_MAX = BUF_SIZE - HEAD - RELOC_HEAD,
    FNALIGN_BODY = 512, FNALIGN_NAME_MAX = 509,
};
enum : unsigned { POSTFIX_DEPTH = 1000, ALIAS_HOPS = 1000 };

// One record in the making.
struct buf_t {
    uint8_t *at, *end;
    bool cut;                                  // something didn't fit
    uint8_t bytes[HEAD + FNALIGN_BODY];
};

static struct {
    buf_t text, reloc, sym, dabs, fninfo;
    buf_t lr;                                  // text of the relocation listing
    buf_t rec;                                 // a record that is written as soon as it is complete
    uint8_t *text_data;                        // the first data byte in `text`
    const symbol_t *long_psect;                // the last psect reported for its name
    bool write_failed;
    bool in_rlf;                               // the relocation listing is being written
} st;

// Records.

static void rec_reset(buf_t *b, uint8_t type, size_t size = BUF_SIZE)
{
    b->bytes[2] = type;
    b->at = b->bytes + HEAD;
    b->end = b->bytes + size;
    b->cut = false;
}

static void put(buf_t *b, uint64_t x, unsigned nbytes)
{
    if (static_cast<size_t>(b->end - b->at) < nbytes) {
        b->cut = true;
        return;
    }
    for (; nbytes; nbytes--, x >>= 8)
        *b->at++ = static_cast<uint8_t>(x);
}

static void put_z(buf_t *b, const char *s)
{
    const size_t n = strlen(s) + 1;
    if (static_cast<size_t>(b->end - b->at) < n) {
        b->cut = true;
        return;
    }
    memcpy(b->at, s, n);
    b->at += n;
}

static bool buf_empty(const buf_t *b) { return b->at == b->bytes + HEAD; }

static void write_error()
{
    st.write_failed = true;
    alert_msg(804);
}

// Writes the record and leaves it empty.
static void rec_write(buf_t *b)
{
    const size_t size = static_cast<size_t>(b->at - b->bytes);
    b->bytes[0] = static_cast<uint8_t>(size - HEAD);
    b->bytes[1] = static_cast<uint8_t>((size - HEAD) >> 8);
    if (fwrite(b->bytes, 1, size, opt.out_stream) != size)
        write_error();
    b->at = b->bytes + HEAD;
}

static void too_long(const char *what, const char *name)
{
    alert_text("E", "%s \"%.60s%s\" is too long for the object file", what, name, strlen(name) > 60 ? "..." : "");
}

static buf_t *rec_begin(uint8_t type)
{
    rec_reset(&st.rec, type);
    return &st.rec;
}

// The record is reported, with what it is about, and left out if it isn't complete.
static void rec_end(const char *what, const char *name)
{
    if (st.rec.cut)
        too_long(what, name);
    else
        rec_write(&st.rec);
}

static void buf_flush(buf_t *b)
{
    if (!buf_empty(b))
        rec_write(b);
}

// Makes room for an entry. False, and reported, if no record could take it.
static bool buf_room(buf_t *b, size_t bytes, const char *what, const char *name)
{
    if (static_cast<size_t>(b->end - b->at) <= bytes)
        buf_flush(b);
    if (static_cast<size_t>(b->end - b->at) > bytes)
        return true;
    too_long(what, name);
    return false;
}

void obj_open_ident(const char *text)
{
    rec_reset(&st.text, REC_TEXT);
    rec_reset(&st.reloc, REC_RELOC);
    rec_reset(&st.sym, REC_SYM);
    rec_reset(&st.dabs, REC_DABS);
    rec_reset(&st.fninfo, REC_FNINFO);
    st.text_data = st.text.at;
    buf_t *b = rec_begin(REC_IDENT);
    put(b, 0x03020100, 4);
    put(b, 0x0100, 2);
    put_z(b, text);
    put(b, FORMAT_MAJOR, 1);
    put(b, FORMAT_MINOR, 1);
    rec_end("chip name", text);
}

// TEXT and RELOC.

void obj_text_flush()
{
    if (st.text.at != st.text_data)
        rec_write(&st.text);
    rec_reset(&st.text, REC_TEXT);
    st.text_data = st.text.at;
    buf_flush(&st.reloc);
}

static void text_head(buf_t *b, uint64_t offset)
{
    put(b, offset, 4);
    put_z(b, cur_psect->s_name);
}

void obj_text_begin()
{
    rec_reset(&st.text, REC_TEXT);
    text_head(&st.text, cur_psect->s_psect->p_curr);
    if (st.text.cut)
        st.text.at = st.text.end;   // so that no data finds room
    st.text_data = st.text.at;
}

// A new TEXT if `nbytes` don't fit any more. False if they never will.
static bool text_room(unsigned nbytes)
{
    if (static_cast<size_t>(st.text.end - st.text.at) > nbytes)
        return true;
    obj_text_flush();
    obj_text_begin();
    if (static_cast<size_t>(st.text.end - st.text.at) > nbytes)
        return true;
    if (st.long_psect != cur_psect)
        too_long("psect name", cur_psect->s_name);
    st.long_psect = cur_psect;
    return false;
}

// Room for a relocation entry; whatever is in TEXT goes out with the full buffer.
static void reloc_room(size_t bytes)
{
    if (static_cast<size_t>(st.reloc.end - st.reloc.at) < bytes) {
        obj_text_flush();
        obj_text_begin();
    }
}

static void reloc_head(unsigned type)
{
    put(&st.reloc, static_cast<uint64_t>(st.text.at - st.text_data), 2);
    put(&st.reloc, type, 1);
}

// Postfix code. One walk serves for counting (no room) and for writing; it is cut short when the code gets too long for
// any record, so that even a value whose symbols lead back to themselves ends.
struct code_t {
    uint8_t *to;
    size_t room, size;
    unsigned depth;
    bool silent;
};

static void code_byte(code_t *c, uint8_t byte)
{
    if (c->size < c->room)
        c->to[c->size] = byte;
    c->size++;
}

static void code_number(code_t *c, int64_t n)
{
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

// An undefined symbol that nothing declares is reported where it is first used, and is an external from then on.
static void undefined(symbol_t *s)
{
    alert_msg(800, s->s_name);
    s->s_flags |= S_GLOBAL;
}

static void code_here(code_t *c, int64_t offs)
{
    const psect_t *p = cur_psect->s_psect;
    const int64_t n = static_cast<int64_t>(p->p_curr / psect_delta(p) + static_cast<uint64_t>(offs));
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
    case RT_PSECT_SEG:
        code_name(c, v->v_rtype, v->v_sym->s_name);
        return;
    case RT_DEFINED:
        code_name(c, RT_DEFINED, v->v_name);
        return;
    case RT_TLABF:
    case RT_TLABB:
    case RT_SYM:
        if (!(v->v_sym->s_flags & S_UNDEF) && !sym_is_self(v->v_sym)) {
            putcomplex(c, &v->v_sym->s_value);
            return;
        }
        [[fallthrough]];
    case RT_SYM_SEG:
        // A reference that comes as far as here is to an undefined symbol or to one that is defined by itself.
        if (c->room && (v->v_rtype != RT_SYM_SEG || v->v_sym->s_flags & S_UNDEF) && !(v->v_sym->s_flags & S_GLOBAL) &&
            !c->silent && !(st.in_rlf && v->v_sym->s_flags & S_LOCAL))
            undefined(v->v_sym);
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

static void buf_complex(buf_t *b, const value_t *value, bool silent = false)
{
    code_t c = {b->at, static_cast<size_t>(b->end - b->at), 0, 0, silent};
    putcomplex(&c, value);
    b->at += c.size < c.room ? c.size : c.room;
}

static bool fits(int64_t n, unsigned bits)
{
    return n >= 0 && (bits >= 63 || n >> bits == 0);
}

// The relocation entry for a field that begins at the next byte of TEXT. True if the value's offset belongs into the word.
static bool add_reloc(const value_t *v, unsigned bits)
{
    const uint8_t kind = v->v_rtype & static_cast<uint8_t>(~RT_SEG);
    const bool to_undef = kind == RT_SYM && (v->v_sym->s_flags & S_UNDEF);
    const bool plain = (kind == RT_PSECT || to_undef) && fits(v->v_offs, bits);
    unsigned type = plain ? v->v_rtype | RELOC_PLAIN : unsigned{RELOC_COMPLEX};
    unsigned width = bits;
    if (bits % 8 == 0) {
        type &= RELOC_IN_BYTES;
        width = bits / 8;
    }
    if (width > RELOC_WIDTH_MAX) {
        alert_msg(808);
        return false;
    }
    const size_t body = (plain ? strlen(v->v_sym->s_name) : complex_size(v)) + 1;
    if (body > RELOC_BODY_MAX) {
        alert_msg(839);
        return false;
    }
    reloc_room(RELOC_HEAD + body + !plain);   // a complex entry asks for one byte more than it takes
    reloc_head(type + width);
    if (!plain) {
        buf_complex(&st.reloc, v);
        put(&st.reloc, 0, 1);
        return false;
    }
    if (to_undef && !(v->v_sym->s_flags & (S_GLOBAL | S_LOCAL)))
        undefined(v->v_sym);
    put_z(&st.reloc, v->v_sym->s_name);
    return true;
}

// The part of a number that goes into a field. A negative one and the address of a register in the access bank are cut
// to the field's width as a matter of course.
static uint64_t field_part(int64_t n, unsigned bits)
{
    const uint64_t mask = bits >= 64 ? ~uint64_t{0} : (uint64_t{1} << bits) - 1;
    const uint64_t part = static_cast<uint64_t>(n) & mask;
    if (part != static_cast<uint64_t>(n) && n >= 0 && !chip_isSfrCommonAddr(n))
        alert_msg(1352, static_cast<unsigned long long>(n), bits);
    return part;
}

void emit_bytes(uint64_t word, const value_t *value, unsigned nbytes, unsigned bits)
{
    if (text_room(nbytes)) {
        if (value && bits && (value->v_rtype == RT_CONST || add_reloc(value, bits)))
            word += field_part(value->v_offs, bits);
        put(&st.text, word, nbytes);
    }
    cur_psect->s_psect->p_curr += nbytes;
}

void obj_range_check(const value_t *value, const value_t *limit, const char *name)
{
    const size_t body = 1 + strlen(name) + 1 + complex_size(value) + complex_size(limit) + 1;
    if (body > RELOC_BODY_MAX) {
        alert_msg(801);
        return;
    }
    reloc_room(RELOC_HEAD + body);
    reloc_head(RELOC_CHECK);
    put(&st.reloc, TOKEN_CHECK, 1);
    put_z(&st.reloc, name);
    buf_complex(&st.reloc, value);
    buf_complex(&st.reloc, limit);
    put(&st.reloc, TOKEN_CHECK_END, 1);
}

void obj_cond_expr(const value_t *value)
{
    if (complex_size(value) + 1 > BUF_SIZE - HEAD) {
        alert_msg(839);
        return;
    }
    obj_text_flush();
    buf_t *b = rec_begin(REC_COND_EXPR);
    buf_complex(b, value);
    put(b, 0, 1);
    rec_write(b);
    obj_text_begin();
}

// SYM.

static void sym_entry(int64_t value, uint16_t flags, const char *owner, const char *name)
{
    if (!buf_room(&st.sym, 6 + strlen(owner) + 1 + strlen(name) + 1, flags == SYMF_FILE ? "file name" : "symbol", name))
        return;
    put(&st.sym, static_cast<uint64_t>(value), 4);
    put(&st.sym, flags, 2);
    put_z(&st.sym, owner);
    put_z(&st.sym, name);
}

void obj_file_entry(const char *file)
{
    sym_entry(opt.lib_paths, SYMF_FILE, "", file);
}

void obj_line_entry(uint64_t line)
{
    char digits[24];
    snprintf(digits, sizeof digits, "%llu", static_cast<unsigned long long>(line));
    const psect_t *p = cur_psect->s_psect;
    sym_entry(static_cast<int64_t>(p->p_curr / psect_delta(p)), SYMF_LINE, cur_psect->s_name, digits);
}

// Follows references to the last symbol, or to a value that is none. False if they go round in a circle.
static bool follow(value_t *v)
{
    for (unsigned hops = 0; value_is_reference(v) && !sym_is_self(v->v_sym); hops++) {
        if (hops == ALIAS_HOPS)
            return false;
        const uint64_t offs = static_cast<uint64_t>(v->v_offs);
        *v = v->v_sym->s_value;
        v->v_offs = static_cast<int64_t>(static_cast<uint64_t>(v->v_offs) + offs);
    }
    return true;
}

static void position_of(const symbol_t *s)
{
    srcpos.cur_file = s->s_deffile;
    srcpos.cur_line = s->s_defline;
}

void obj_symbol(const symbol_t *s, uint16_t flags)
{
    const char *owner = "";
    value_t v = s->s_value;
    if (!follow(&v)) {
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
        flags = SYMF_ALIAS;
        owner = v.v_sym->s_name;
    } else if (v.v_rtype != RT_SYM && v.v_rtype != RT_CONST) {
        position_of(s);
        alert_text("0", "value of symbol \"%s\" is an expression that other modules can't be told", s->s_name);
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
    const bool wanted = f & S_FNROOT || s->s_refs != 0 || (s->s_defop && vec_size(op_more(s->s_defop)->op_refs) != 0);
    if (f & S_UNDEF) {
        if (wanted)
            obj_symbol(s, f & S_LOCAL ? SYMF_LOCAL_UNDEF : SYMF_UNDEF);
    } else {
        obj_symbol(s, f & S_LOCAL ? uint16_t{SYMF_LOCAL} : static_cast<uint16_t>(f & SYMF_MASK));
    }
}

// FNINFO, SIGNAT, FNALIGN.

// Begins an entry with `extra` bytes behind the function's name.
static bool fn_begin(uint8_t code, const symbol_t *s, size_t extra)
{
    if (!buf_room(&st.fninfo, 1 + strlen(s->s_name) + 1 + extra, "function name", s->s_name))
        return false;
    put(&st.fninfo, code, 1);
    put_z(&st.fninfo, s->s_name);
    return true;
}

static void fn_names(uint8_t code, const symbol_t *s, set_t *others)
{
    if (!others)
        return;
    for (set_iterReset(others); set_iterHasNext(others);) {
        const symbol_t *other = from_word<const symbol_t *>(set_iterNext(others));
        if (fn_begin(code, s, strlen(other->s_name) + 1))
            put_z(&st.fninfo, other->s_name);
    }
    set_iterDone(others);
}

static void fn_indirs(const symbol_t *s, set_t *signatures)
{
    if (!signatures)
        return;
    for (set_iterReset(signatures); set_iterHasNext(signatures);) {
        const word_t signature = set_iterNext(signatures);
        if (fn_begin(FN_INDIR, s, 2))
            put(&st.fninfo, signature, 2);
    }
    set_iterDone(signatures);
}

static void signat(const symbol_t *s)
{
    buf_t *b = rec_begin(REC_SIGNAT);
    put(b, s->s_fn ? s->s_fn->s_signat : 0, 2);
    put_z(b, s->s_name);
    rec_end("symbol", s->s_name);
}

// What the call-graph directives told of a symbol.
static void call_graph(const symbol_t *s)
{
    const uint64_t f = s->s_flags;
    if (!(f & (S_GLOBAL | S_LOCAL)) || f & S_DABS)
        return;
    if (f & S_FNADDR)
        fn_begin(FN_ADDR, s, 0);
    if (f & S_SIGNAT)
        signat(s);
    if (f & S_FNROOT)
        fn_begin(FN_ROOT, s, 0);
    const fn_t *fn = s->s_fn;
    if (!fn)
        return;
    fn_names(FN_CALL, s, fn->s_calls);
    fn_names(FN_ARG, s, fn->s_args);
    fn_names(FN_BREAK, s, fn->s_breaks);
    fn_indirs(s, fn->s_indirs);
    if (f & S_FNSIZE && fn_begin(FN_SIZE, s, 8)) {
        put(&st.fninfo, fn->s_argsize, 4);
        put(&st.fninfo, fn->s_autosize, 4);
    }
}

static void fnalign_name(buf_t *b, const char *name, uint32_t group)
{
    const size_t full = strlen(name), n = full < FNALIGN_NAME_MAX ? full : size_t{FNALIGN_NAME_MAX};
    if (static_cast<size_t>(b->end - b->at) < n + 1) {
        rec_write(b);
        put(b, group, 2);
    }
    memcpy(b->at, name, n);
    b->at += n;
    *b->at++ = 0;
}

// The groups, joined where they share a function. `join` leads from a group to an earlier one that it was joined with,
// and so on to the one that stands for all of them. Each function is written once, in the order of the directives.
static void obj_fnalign()
{
    const vec_t<vector_t *> groups = program.fnalign_groups;
    const uint32_t n = vec_size(groups);
    if (n == 0)
        return;
    uint32_t *join = xnew<uint32_t>(n);
    const auto root = [join](uint32_t g) {
        for (; join[g] != g; g = join[g])
            join[g] = join[join[g]];
        return g;
    };
    const hash_of<symbol_t *, uint32_t> first = hash_make<symbol_t *, uint32_t>(4 * n + 1, nullptr, nullptr);
    for (uint32_t g = 0; g < n; g++) {
        join[g] = g;
        for (symbol_t *s : vec_t<symbol_t *>{vec_elementAt(groups, g)})
            if (!hash_insert(first, s, g + 1)) {
                const uint32_t a = root(hash_lookup(first, s) - 1), b = root(g);
                join[a < b ? b : a] = a < b ? a : b;
            }
    }
    vec_t<symbol_t *> *joined = xnew<vec_t<symbol_t *>>(n);
    for (uint32_t g = 0; g < n; g++) {
        vec_t<symbol_t *> &to = joined[root(g)];
        if (!to)
            to = vec_make<symbol_t *>();
        for (symbol_t *s : vec_t<symbol_t *>{vec_elementAt(groups, g)})
            if (hash_remove(first.raw, to_word(s)) != 0)
                vec_add(to, s);
    }
    uint32_t number = 0;
    for (uint32_t g = 0; g < n; g++) {
        if (!joined[g])
            continue;
        rec_reset(&st.rec, REC_FNALIGN, HEAD + FNALIGN_BODY);
        put(&st.rec, number, 2);
        for (const symbol_t *s : joined[g])
            fnalign_name(&st.rec, s->s_name, number);
        rec_write(&st.rec);
        number++;
    }
}

// Psects and symbols.

static const char *name_of(const symbol_t *s) { return s ? s->s_name : ""; }

static void obj_psect(const symbol_t *s)
{
    const psect_t *p = s->s_psect;
    buf_t *b = rec_begin(REC_PSECT);
    put(b, s->s_flags & PSECT_FLAGS, 2);
    put_z(b, s->s_name);
    rec_end("psect name", s->s_name);
    if (p->p_size || p->p_reloc || p->p_class || p->p_with || p->p_space || p->p_delta) {
        rec_begin(REC_XPSECT);
        put(b, p->p_size, 4);
        put(b, p->p_reloc, 2);
        put(b, 0, 2);
        put(b, p->p_space, 1);
        put(b, p->p_delta, 1);
        put(b, 0, 2);
        put_z(b, s->s_name);
        put_z(b, name_of(p->p_class));
        put_z(b, name_of(p->p_with));
        rec_end("name, class or \"with\" of psect", s->s_name);
    }
    if (p->p_limit) {
        rec_begin(REC_PSECTLIM);
        put(b, p->p_limit, 2);
        put(b, 0, 14);
        put_z(b, s->s_name);
        rec_end("psect name", s->s_name);
    }
    if (psect_is_abs(s) || p->p_base) {
        rec_begin(REC_PSECTBOUND);
        put(b, PSECTBOUND_FORM, 1);
        put(b, s->s_flags & PSECTBOUND_FLAGS, 2);
        put(b, p->p_base, 4);
        put(b, p->p_top, 4);
        put(b, p->p_space, 1);
        put(b, p->p_delta, 1);
        put_z(b, s->s_name);
        put_z(b, name_of(p->p_class));
        rec_end("name or class of psect", s->s_name);
    }
}

static void obj_psects()
{
    for (const symbol_t *s : psect_order())
        obj_psect(s);
}

static void obj_symbols()
{
    const vec_t<symbol_t *> all = sym_slot_order();
    cur_psect = nullptr;   // what a symbol stands for has no current location
    for (symbol_t *s : all)
        select_symbol(s);
    buf_flush(&st.sym);
    for (const symbol_t *s : all)
        call_graph(s);
    buf_flush(&st.sym);
    obj_fnalign();
}

static void obj_dabs()
{
    for (const dabs_t *d : program.dabs_list) {
        if (!buf_room(&st.dabs, strlen(d->name) + 18, "symbol", d->name))
            continue;
        put(&st.dabs, d->space, 1);
        put(&st.dabs, static_cast<uint64_t>(d->address), 4);
        put(&st.dabs, static_cast<uint64_t>(d->size), 4);
        put_z(&st.dabs, d->name);
    }
    buf_flush(&st.dabs);
}

// The final size of a psect, where its data don't tell it.
static void size_record(const symbol_t *s)
{
    psect_t *p = s->s_psect;
    if (p->p_space == 0 && p->p_reloc == 2)
        p->p_top += p->p_top & 1;
    if (p->p_space != SPACE_DATA && p->p_space != SPACE_IO && p->p_curr >= p->p_top)
        return;
    buf_t *b = rec_begin(REC_TEXT);
    put(b, p->p_top, 4);
    put_z(b, s->s_name);
    rec_end("psect name", s->s_name);
}

static void obj_code()
{
    for (const code_list_t *list : psect_list)
        emit_psect(list->psect);
    obj_text_flush();
    for (const code_list_t *list : psect_list)
        size_record(list->psect);
    buf_flush(&st.sym);
    obj_text_flush();
}

static void obj_start()
{
    value_t v = program.end_value;
    if (!follow(&v) || v.v_rtype != RT_PSECT) {
        alert_msg(802);
        return;
    }
    buf_t *b = rec_begin(REC_START);
    put(b, static_cast<uint64_t>(v.v_offs), 4);
    put_z(b, v.v_sym->s_name);
    rec_end("psect name", v.v_sym->s_name);
}

static void obj_finish()
{
    if (opt.list_enabled && opt.list_file && opt.rlf_file) {
        buf_t *b = rec_begin(REC_LISTRELOC);
        put_z(b, opt.rlf_file);
        put_z(b, opt.list_file);
        rec_end("listing file name", opt.list_file);
    }
    if (program.has_end_value)
        obj_start();
    buf_flush(&st.fninfo);
    put(rec_begin(REC_END), 0, 2);
    rec_write(&st.rec);
    if (fflush(opt.out_stream) != 0 && !st.write_failed)
        write_error();
}

static void obj_fnconf()
{
    if (!program.has_fnconf)
        return;
    buf_t *b = rec_begin(REC_FNCONF);
    for (const char *word : program.fnconf_words)
        put_z(b, word);
    put(b, static_cast<uint64_t>(program.fnconf_number), 2);
    rec_end("fnconf", program.fnconf_words[0]);
}

void obj_write(const char *chip)
{
    inline_symbols();
    obj_open_ident(chip);
    obj_fnconf();
    obj_psects();
    obj_symbols();
    obj_dabs();
    obj_code();
    obj_finish();
}

// The relocation listing.

void rlf_ident()
{
    if (!st.in_rlf)
        return;
    buf_flush(&st.lr);
    obj_open_ident("Velmora ZEL8");
}

void rlf_open()
{
    st.in_rlf = true;
    st.write_failed = false;
    rec_reset(&st.lr, REC_LR_TEXT);
    rlf_ident();
}

void rlf_text(const char *s, size_t length)
{
    while (st.in_rlf && length) {
        const size_t room = static_cast<size_t>(st.lr.end - st.lr.at), n = length < room ? length : room;
        memcpy(st.lr.at, s, n);
        st.lr.at += n;
        s += n;
        length -= n;
        if (n == room)
            rec_write(&st.lr);
    }
}

bool rlf_field(const value_t *value, uint64_t word, unsigned type, unsigned chars, bool silent)
{
    enum : size_t { FIELD_HEAD = 7 };
    if (!st.in_rlf || FIELD_HEAD + complex_size(value) + 1 > BUF_SIZE - HEAD)
        return false;
    buf_flush(&st.lr);
    buf_t *b = rec_begin(REC_LR_RELOC);
    put(b, word, 4);
    put(b, 0, 1);
    put(b, type | RELOC_CHECK, 1);
    put(b, chars & 0x0F, 1);
    buf_complex(b, value, silent);
    put(b, 0, 1);
    rec_write(b);
    return true;
}

void rlf_finish()
{
    if (!st.in_rlf)
        return;
    buf_flush(&st.lr);
    put(rec_begin(REC_END), 0, 2);
    rec_write(&st.rec);
    if (fclose(opt.out_stream) != 0 && !st.write_failed)
        write_error();
    st.in_rlf = st.write_failed = false;
}
