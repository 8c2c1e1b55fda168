// TEXT and RELOC.
//
// The last steps of an operand's road are here (encode.cpp tells the ones before). emit_bytes gets an instruction word and
// a normalised value with the width of the field that it goes to. There are three ways on:
//
//     a number         is added to the word; nothing else remains of it
//     a plain place    a psect's or an undefined symbol's address plus a small offset: the offset is added to the word,
//                      and an entry with the name has the linker add the address
//     anything else    the word goes out with an empty field, and an entry carries the whole expression as postfix code,
//                      whose result the linker stores in the field
//
// An entry must refer to the TEXT right before its RELOC, so whichever of the two is full, both are written and a new TEXT
// begins at the current position. A range check stands in RELOC before the word that it goes with is in TEXT: it finds room
// for all three, the check, the word and the word's own entry. Where names are so long that no RELOC holds both entries,
// the word goes out twice, for each of them.
#include "out/objtext.h"

#include <cstring>

#include "chip/chip.h"
#include "common/alert.h"
#include "out/postfix.h"
#include "out/record.h"

enum : uint8_t { TOKEN_CHECK_END = 18, TOKEN_CHECK = 19 };   // of postfix code
enum : size_t { RELOC_HEAD = 3, COMPLEX_SPARE = 1 };         // of an entry; a complex one asks for more than it takes

static struct {
    buf_t text, reloc;
    uint8_t *text_data;           // the first data byte in `text`
    const symbol_t *long_psect;   // the last psect reported for its name
    bool checked;                 // RELOC holds the range check of the word to come
} st;

void obj_text_init()
{
    rec_reset(&st.text, REC_TEXT);
    rec_reset(&st.reloc, REC_RELOC);
    st.text_data = st.text.at;
}

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
    buf_put(b, offset, 4);
    buf_put_z(b, cur_psect->s_name);
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
    if (buf_left(&st.text) > nbytes)
        return true;
    obj_text_flush();
    obj_text_begin();
    if (buf_left(&st.text) > nbytes)
        return true;
    if (st.long_psect != cur_psect)
        rec_too_long("psect name", cur_psect->s_name);
    st.long_psect = cur_psect;
    return false;
}

// Room in RELOC; whatever is in TEXT goes out with the full buffer.
static void reloc_room(size_t bytes)
{
    if (buf_left(&st.reloc) < bytes) {
        obj_text_flush();
        obj_text_begin();
    }
}

static void reloc_head(unsigned type)
{
    buf_put(&st.reloc, static_cast<uint64_t>(st.text.at - st.text_data), 2);
    buf_put(&st.reloc, type, 1);
}

static bool fits(int64_t n, unsigned bits) { return n >= 0 && (bits >= 63 || n >> bits == 0); }

static size_t plain_entry(const value_t *v) { return RELOC_HEAD + strlen(v->v_sym->s_name) + 1; }
static size_t complex_entry(const value_t *v) { return RELOC_HEAD + complex_size(v) + 1; }

// The relocation entry for the field of `word`, which is the next in TEXT. True if the value's offset belongs into the word.
static bool add_reloc(uint64_t word, const value_t *v, unsigned nbytes, unsigned bits)
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
    const size_t entry = plain ? plain_entry(v) : complex_entry(v), room = plain ? entry : entry + COMPLEX_SPARE;
    if (entry > REC_BODY) {
        alert_msg(839);
        return false;
    }
    if (st.checked && buf_left(&st.reloc) < room)
        buf_put(&st.text, word, nbytes);   // what the check belongs to
    reloc_room(room);
    reloc_head(type + width);
    if (!plain) {
        buf_complex(&st.reloc, v);
        buf_put(&st.reloc, 0, 1);
        return false;
    }
    if (to_undef && !(v->v_sym->s_flags & (S_GLOBAL | S_LOCAL)))
        undefined_symbol(v->v_sym);
    buf_put_z(&st.reloc, v->v_sym->s_name);
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
        if (value && bits && (value->v_rtype == RT_CONST || add_reloc(word, value, nbytes, bits)))
            word += field_part(value->v_offs, bits);
        buf_put(&st.text, word, nbytes);
    }
    st.checked = false;
    cur_psect->s_psect->p_curr += nbytes;
}

void obj_range_check(const value_t *value, const value_t *limit, const char *name, const value_t *field, unsigned nbytes)
{
    const size_t entry = RELOC_HEAD + 1 + strlen(name) + 1 + complex_size(value) + complex_size(limit) + 1;
    if (entry > REC_BODY) {
        alert_msg(801);
        return;
    }
    if (!text_room(nbytes))
        return;
    const size_t both = entry + complex_entry(field) + COMPLEX_SPARE;
    reloc_room(both <= REC_BODY ? both : entry);
    st.checked = true;
    reloc_head(RELOC_CHECK);
    buf_put(&st.reloc, TOKEN_CHECK, 1);
    buf_put_z(&st.reloc, name);
    buf_complex(&st.reloc, value);
    buf_complex(&st.reloc, limit);
    buf_put(&st.reloc, TOKEN_CHECK_END, 1);
}

void obj_cond_expr(const value_t *value)
{
    if (complex_size(value) + 1 > REC_BODY) {
        alert_msg(839);
        return;
    }
    obj_text_flush();
    buf_t *b = rec_begin(REC_COND_EXPR);
    buf_complex(b, value);
    buf_put(b, 0, 1);
    rec_write(b);
    obj_text_begin();
}
