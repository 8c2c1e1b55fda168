// A number may be defined any number of times. For each there are two records at most that references can still mean: the
// one of its last definition, and the one that its next definition will take. The second is made by the first forward
// reference, so all references that wait for one label share a record, and the definition has nothing to look up: it
// moves the awaited record to the other place.
//
// Whether a label ever comes shows at the end of the input only. For that, every forward reference leaves a note with its
// position.
#include "code/tlab.h"

#include "code/data.h"
#include "code/list.h"
#include "code/ops.h"
#include "common/alert.h"
#include "common/hash.h"
#include "common/srcpos.h"
#include "common/stringcache.h"
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
    bool used;                    // there is a temporary label, or a reference to one
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
    st.used = true;
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

static bool is_reference(const value_t *v) { return v->v_rtype == RT_TLABF || v->v_rtype == RT_TLABB; }

// Depth is bounded by the size of a tree.
static void refer_to_labels(value_t *v)
{
    if (is_reference(v)) {
        if (v->v_sym->s_defop) {
            v->v_rtype = RT_SYM;
            sym_add_ref(v->v_sym);
        } else {
            value_t number = v->v_sym->s_value;   // the missing label has been reported
            const value_t addend = value_const(v->v_offs);
            value_binary(OPC_PLUS, &number, &addend);
            *v = number;
        }
        return;
    }
    const bool binary = rtype_is_binary(v->v_rtype);
    if (!binary && !rtype_is_unary(v->v_rtype))
        return;
    value_t *kids = xnew<value_t>(binary ? 2 : 1);
    for (int i = 0; i <= binary; i++) {
        kids[i] = v->v_kids[i];
        refer_to_labels(&kids[i]);
    }
    v->v_kids = kids;
}

void tlab_to_labels()
{
    uint32_t count = 0;
    for (const code_list_t *list : psect_list)
        for (op_t *op = list->head.op_next; op->op_type != 0; op = op->op_next) {
            if (op->op_type == T_NUMLABEL) {
                symbol_t *s = op->op_opnd1.opnd_value.v_sym;
                op->op_type = T_NAME;
                op->op_opnd1.opnd_value = {};
                op->op_sym = s;
                const char *name;
                do
                    name = cache_printf("?t%u", ++count);
                while (sym_find(name));   // the program may have such a name
                sym_rename(s, name);
                s->s_fn = nullptr;
                s->s_owner = list->psect;
                s->s_flags &= ~static_cast<uint64_t>(S_UNDEF);
                sym_add_ref(s);
                sym_link(s);
            } else if (st.used) {
                refer_to_labels(&op->op_opnd1.opnd_value);
                if (op->op_second)
                    refer_to_labels(&op->op_second->opnd_value);
                data_each_value(op, refer_to_labels);
            }
        }
}
