// The relocation listing: records of text, with records of fields between them.
#include "out/rlf.h"

#include <cstring>

#include "code/sym.h"
#include "out/postfix.h"
#include "out/record.h"

static struct {
    buf_t text;
    bool open;
} st;

void rlf_ident()
{
    if (!st.open)
        return;
    buf_flush(&st.text);
    rec_ident("Velmora ZEL8");
}

void rlf_open(FILE *to, const char *name)
{
    rec_file_begin(to, name);
    st.open = true;
    rec_reset(&st.text, REC_LR_TEXT);
    rlf_ident();
}

void rlf_text(const char *s, size_t length)
{
    while (st.open && length) {
        const size_t room = buf_left(&st.text), n = length < room ? length : room;
        memcpy(st.text.at, s, n);
        st.text.at += n;
        s += n;
        length -= n;
        if (n == room)
            rec_write(&st.text);
    }
}

bool rlf_field(const value_t *value, uint64_t word, unsigned type, unsigned chars, bool silent)
{
    enum : size_t { FIELD_HEAD = 7 };
    if (!st.open || FIELD_HEAD + complex_size(value) + 1 > REC_BODY)
        return false;
    buf_flush(&st.text);
    buf_t *b = rec_begin(REC_LR_RELOC);
    buf_put(b, word, 4);
    buf_put(b, 0, 1);
    buf_put(b, type | RELOC_CHECK, 1);
    buf_put(b, chars & 0x0F, 1);
    buf_complex(b, value, silent ? 0 : S_GLOBAL | S_LOCAL);
    buf_put(b, 0, 1);
    rec_write(b);
    return true;
}

void rlf_finish()
{
    if (!st.open)
        return;
    buf_flush(&st.text);
    buf_t *b = rec_begin(REC_END);
    buf_put(b, 0, 2);
    rec_write(b);
    rec_file_end();
    st.open = false;
}
