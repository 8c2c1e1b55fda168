// record: the frame of object and relocation listing files.
//
// A file is a run of records: two bytes of body length, a type, the body. A record is made in a buffer, which stops at its
// end: what doesn't fit is left out and marks the buffer. Everything goes to the one file that is open.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

// clang-format off
enum : uint8_t {
    REC_TEXT = 1, REC_PSECT = 2, REC_RELOC = 3, REC_SYM = 4, REC_START = 5, REC_END = 6, REC_IDENT = 7, REC_XPSECT = 8,
    REC_SIGNAT = 11, REC_FNINFO = 12, REC_FNCONF = 13, REC_PSECTLIM = 15, REC_LISTRELOC = 16, REC_LR_TEXT = 17,
    REC_LR_RELOC = 18, REC_COND_EXPR = 19, REC_DABS = 20, REC_FNALIGN = 22, REC_PSECTBOUND = 23,
};
// clang-format on
// Type bytes of relocation entries; the low nibble is the field's width, at most 15.
enum : unsigned {
    RELOC_PLAIN = 0xC0,
    RELOC_COMPLEX = 0xF0,
    RELOC_IN_BYTES = 0x3F,
    RELOC_CHECK = 0x30,
    RELOC_WIDTH_MAX = 15,
};
enum : size_t {
    REC_HEAD = 3,
    REC_SIZE = 512,   // of a record with its head, but for FNALIGN
    REC_BODY = REC_SIZE - REC_HEAD,
    FNALIGN_BODY = 512,
};

// One record in the making.
struct buf_t {
    uint8_t *at, *end;
    bool cut;   // something didn't fit
    uint8_t bytes[REC_HEAD + FNALIGN_BODY];
};

inline size_t buf_left(const buf_t *b) { return static_cast<size_t>(b->end - b->at); }
void buf_put(buf_t *b, uint64_t x, unsigned nbytes);
void buf_put_z(buf_t *b, const char *s);
void buf_flush(buf_t *b);   // writes the record if it has a body
// Makes room for an entry. False, and reported, if no record could take it.
bool buf_room(buf_t *b, size_t bytes, const char *what, const char *name);

void rec_reset(buf_t *b, uint8_t type, size_t size = REC_SIZE);   // an empty record
void rec_write(buf_t *b);   // writes the record and leaves it empty. Message 804, once for a file, behind a line of its name
// A record that is written as soon as it is complete; there is one at a time.
buf_t *rec_begin(uint8_t type, size_t size = REC_SIZE);
void rec_end(const char *what, const char *name);        // it is reported, with what it is about, and left out if it was cut
void rec_ident(const char *text);                        // IDENT
void rec_file_begin(FILE *to, const char *name);         // which is to be closed by guard_close
void rec_file_end();                                     // closes it; 804 if what was written has not arrived
void rec_too_long(const char *what, const char *name);   // the report of something that no record can take
// Numbers have 4 bytes, which are read with and without a sign. One that needs more is cut, and reported with message 2210.
inline bool rec_fits(int64_t n) { return n >= INT32_MIN && n <= int64_t{UINT32_MAX}; }
void rec_too_large(const char *what, const char *name, int64_t n);
