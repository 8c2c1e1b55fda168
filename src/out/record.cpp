// Records, byte by byte.
//
// What may bite: names can be of any length and a record can't. So every byte goes through buf_put, buf_put_z or the postfix
// writer, which stop at the end of the buffer, and a record that couldn't be completed is reported and left out.
#include "out/record.h"

#include <cstdio>
#include <cstring>

#include "common/alert.h"
#include "common/fileguard.h"
#include "common/srcpos.h"

enum : uint8_t { FORMAT_MAJOR = 3, FORMAT_MINOR = 11 };

static struct {
    buf_t rec;   // the record that is written as soon as it is complete
    FILE *out_stream;
    const char *out_file;   // its name
    bool write_failed;
} st;

void rec_reset(buf_t *b, uint8_t type, size_t size)
{
    b->bytes[2] = type;
    b->at = b->bytes + REC_HEAD;
    b->end = b->bytes + size;
    b->cut = false;
}

void buf_put(buf_t *b, uint64_t x, unsigned nbytes)
{
    if (buf_left(b) < nbytes) {
        b->cut = true;
        return;
    }
    for (; nbytes; nbytes--, x >>= 8)
        *b->at++ = static_cast<uint8_t>(x);
}

void buf_put_z(buf_t *b, const char *s)
{
    const size_t n = strlen(s) + 1;
    if (buf_left(b) < n) {
        b->cut = true;
        return;
    }
    memcpy(b->at, s, n);
    b->at += n;
}

static bool buf_empty(const buf_t *b) { return b->at == b->bytes + REC_HEAD; }

// Told once for a file.
static void write_error()
{
    if (st.write_failed)
        return;
    st.write_failed = true;
    guard_perror(st.out_file);
    const srcpos_nowhere_t nowhere;
    alert_msg(804);
}

void rec_write(buf_t *b)
{
    const size_t size = static_cast<size_t>(b->at - b->bytes);
    b->bytes[0] = static_cast<uint8_t>(size - REC_HEAD);
    b->bytes[1] = static_cast<uint8_t>((size - REC_HEAD) >> 8);
    if (fwrite(b->bytes, 1, size, st.out_stream) != size)
        write_error();
    b->at = b->bytes + REC_HEAD;
}

void rec_too_long(const char *what, const char *name)
{
    alert_text("E", "%s \"%.60s%s\" is too long for the object file", what, name, strlen(name) > 60 ? "..." : "");
}

void rec_too_large(const char *what, const char *name, int64_t n)
{
    char text[100];
    snprintf(text, sizeof text, "%s \"%.60s\"", what, name);
    alert_msg(2210, text, static_cast<long long>(INT32_MIN), static_cast<long long>(UINT32_MAX), static_cast<long long>(n));
}

buf_t *rec_begin(uint8_t type, size_t size)
{
    rec_reset(&st.rec, type, size);
    return &st.rec;
}

void rec_end(const char *what, const char *name)
{
    if (st.rec.cut)
        rec_too_long(what, name);
    else
        rec_write(&st.rec);
}

void buf_flush(buf_t *b)
{
    if (!buf_empty(b))
        rec_write(b);
}

bool buf_room(buf_t *b, size_t bytes, const char *what, const char *name)
{
    if (buf_left(b) <= bytes)
        buf_flush(b);
    if (buf_left(b) > bytes)
        return true;
    rec_too_long(what, name);
    return false;
}

void rec_ident(const char *text)
{
    buf_t *b = rec_begin(REC_IDENT);
    buf_put(b, 0x03020100, 4);
    buf_put(b, 0x0100, 2);
    buf_put_z(b, text);
    buf_put(b, FORMAT_MAJOR, 1);
    buf_put(b, FORMAT_MINOR, 1);
    rec_end("chip name", text);
}

void rec_file_begin(FILE *to, const char *name)
{
    st.out_stream = to;
    st.out_file = name;
    st.write_failed = false;
}

void rec_file_end()
{
    if (!guard_close(st.out_stream))
        write_error();
    st.out_stream = nullptr;
}
