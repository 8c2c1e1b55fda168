// A number may be defined any number of times. For each there are two records at most that references can still mean: the
// one of its last definition, and the one that its next definition will take. The second is made by the first forward
// reference, so all references that wait for one label share a record, and the definition has nothing to look up: it
// moves the awaited record to the other place.
//
// Whether a label ever comes shows at the end of the input only. For that, every forward reference leaves a note with its
// position.
#include "code/tlab.h"

#include "code/list.h"
#include "common/alert.h"
#include "common/hash.h"
#include "common/srcpos.h"
#include "common/xalloc.h"

struct number_t {
    symbol_t *last, *awaited;   // null if there is none
};

struct reference_t {
    reference_t *next;
    symbol_t *record;
    const char *file;
    int64_t line;
};

static struct {
    hash_of<int64_t, number_t *> numbers;
    reference_t *first, **link;   // forward references, in order of appearance
} st;

void tlab_init()
{
    st.numbers = hash_make<int64_t, number_t *>(4093, nullptr, nullptr);
    st.first = nullptr;
    st.link = &st.first;
}

static number_t *number_entry(int64_t number)
{
    number_t *n = hash_lookup(st.numbers, number);
    if (!n) {
        n = xnew<number_t>();
        hash_insert(st.numbers, number, n);
    }
    return n;
}

static symbol_t *new_record(int64_t number)
{
    symbol_t *record = sym_new("");
    record->s_tlabno = number;
    return record;
}

symbol_t *tlab_define(int64_t number, op_t *op)
{
    number_t *n = number_entry(number);
    n->last = n->awaited ? n->awaited : new_record(number);
    n->awaited = nullptr;
    n->last->s_defop = op;
    n->last->s_owner = op->op_psect;
    return n->last;
}

symbol_t *tlab_lookup(int64_t number, bool forward)
{
    number_t *n = number_entry(number);
    if (!forward)
        return n->last;
    if (!n->awaited)
        n->awaited = new_record(number);
    reference_t *r = xnew<reference_t>();
    r->record = n->awaited;
    r->file = srcpos.cur_file;
    r->line = srcpos.cur_line;
    *st.link = r;
    st.link = &r->next;
    return n->awaited;
}

void tlab_finish()
{
    const char *file = srcpos.cur_file;
    const int64_t line = srcpos.cur_line;
    for (const reference_t *r = st.first; r; r = r->next)
        if (!r->record->s_defop) {
            srcpos.cur_file = r->file;
            srcpos.cur_line = r->line;
            alert_msg(803);
            r->record->s_value = value_const(0xFFFF);
        }
    srcpos.cur_file = file;
    srcpos.cur_line = line;
}
