// Two orders meet in this module. Look-ups want a record at once: they go through an index with open addressing, whose
// slots keep the hash, the length and the name space beside the record, so that a probe touches no record that isn't the
// one. The object file wants the order of the bucket table described in the header: sym_slot_order makes it from the
// names when it is asked for.
//
// A slot leads to the newest record of a name and space. Records that it hides hang behind it, as the macro processor
// needs while a definition is read, and as a psect made with further flags does to one of the same name.
//
// The limit on the number of records is that of the bucket table. Only records in the table count.
#include "code/sym.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "code/crossref.h"
#include "code/list.h"
#include "code/word.h"
#include "common/alert.h"
#include "common/hash.h"
#include "common/srcpos.h"
#include "common/stringcache.h"
#include "common/xalloc.h"

constexpr uint32_t BUCKETS = 60493, FIRST_SLOTS = 4096;

struct slot_t {
    symbol_t *sym;   // null if the slot is empty
    uint32_t hash;
    uint32_t tag;   // length of the name and name space
};

static struct {
    slot_t *slots;
    uint32_t mask, used;   // number of slots less 1, slots in use
    uint32_t live;         // records in the table
    uint32_t seqno;        // of the last record made
    int32_t psects;        // number of psects made
    uint32_t labels;       // number of the last anonymous label
    size_t longest;
    hash_of<const char *, int64_t> inlined;
    xarena_t records;
} st;

vec_t<code_list_t *> psect_list;
symbol_t *cur_psect, *abs_psect;

// The index.

static uint32_t hash_name(const char *name, size_t len)
{
    constexpr uint64_t K = 0x9E3779B97F4A7C15u;
    uint64_t h = len * K;
    for (; len > 8; name += 8, len -= 8) {
        h = (h ^ word_bytes(name, 8)) * K;
        h ^= h >> 29;
    }
    h = (h ^ word_bytes(name, len)) * K;
    return static_cast<uint32_t>((h ^ h >> 32) * K >> 32);
}

static uint32_t slot_tag(size_t len, uint64_t flags)
{
    return static_cast<uint32_t>(len << 2 | (flags & S_PSECT ? 1 : 0) | (flags & S_CLASS ? 2 : 0));
}

// The slot of a name, or the empty one where it would go.
static slot_t *find_slot(const char *name, size_t len, uint32_t hash, uint32_t tag)
{
    for (uint32_t i = hash;; i++) {
        slot_t *slot = &st.slots[i & st.mask];
        if (!slot->sym || (slot->hash == hash && slot->tag == tag && memcmp(slot->sym->s_name, name, len) == 0))
            return slot;
    }
}

static void grow()
{
    const slot_t *old = st.slots;
    const uint32_t count = old ? st.mask + 1 : 0;
    st.mask = (count ? 2 * count : FIRST_SLOTS) - 1;
    st.slots = xnew<slot_t>(st.mask + 1);
    for (uint32_t i = 0; i < count; i++)
        if (old[i].sym) {
            uint32_t at = old[i].hash;
            while (st.slots[at & st.mask].sym)
                at++;
            st.slots[at & st.mask] = old[i];
        }
}

// Puts a record into the slot found for it.
static void fill_slot(slot_t *slot, symbol_t *s, uint32_t tag)
{
    s->s_chain = slot->sym;
    if (!slot->sym)
        st.used++;
    *slot = {s, s->s_hash, tag};
    if (++st.live == BUCKETS)
        alert_msg(309);
    if (2 * st.used > st.mask)
        grow();
}

static void empty_slot(slot_t *slot)
{
    uint32_t hole = static_cast<uint32_t>(slot - st.slots);
    st.used--;
    // Slots behind move up into the hole, unless that would put them before their place.
    for (uint32_t i = (hole + 1) & st.mask; st.slots[i].sym; i = (i + 1) & st.mask)
        if (((i - st.slots[i].hash) & st.mask) >= ((i - hole) & st.mask)) {
            st.slots[hole] = st.slots[i];
            hole = i;
        }
    st.slots[hole] = {};
}

static slot_t *slot_of(const symbol_t *s, uint32_t *tag)
{
    const size_t len = strlen(s->s_name);
    *tag = slot_tag(len, s->s_flags);
    return find_slot(s->s_name, len, s->s_hash, *tag);
}

void sym_rename(symbol_t *s, const char *name)
{
    s->s_name = name;
    s->s_hash = hash_name(name, strlen(name));
}

void sym_link(symbol_t *s)
{
    uint32_t tag;
    slot_t *slot = slot_of(s, &tag);
    fill_slot(slot, s, tag);
}

void sym_unlink(symbol_t *s)
{
    uint32_t tag;
    slot_t *slot = slot_of(s, &tag);
    symbol_t **link = &slot->sym;
    while (*link && *link != s)
        link = &(*link)->s_chain;
    if (!*link)
        return;
    *link = s->s_chain;
    s->s_chain = nullptr;
    st.live--;
    if (!slot->sym)
        empty_slot(slot);
}

// Records.

static symbol_t *make_record(const char *name, size_t len, uint32_t hash)
{
    const size_t size = sizeof(symbol_t) + len + 1;
    void *again = xspare(size);
    symbol_t *s = static_cast<symbol_t *>(again ? again : xalloc_from(st.records, size));
    char *copy = reinterpret_cast<char *>(s + 1);
    memcpy(copy, name, len);
    s->s_name = copy;
    s->s_hash = hash;
    s->s_deffile = srcpos.cur_file;
    s->s_defline = srcpos.cur_line;
    s->s_seqno = ++st.seqno;
    return s;
}

static void make_psect(symbol_t *s)
{
    s->s_psect = xnew<psect_t>();
    s->s_psect->p_number = st.psects++;
    s->s_psect->p_code = list_new(s);
    s->s_psect->p_comments = vec_make<const char *>();
    vec_add(psect_list, s->s_psect->p_code);
}

// The record of the name and space, made if there is none, or in any case.
static symbol_t *enter(const char *name, size_t len, uint64_t space, bool always)
{
    const uint32_t hash = hash_name(name, len), tag = slot_tag(len, space);
    slot_t *slot = find_slot(name, len, hash, tag);
    if (slot->sym && !always)
        return slot->sym;
    symbol_t *s = make_record(name, len, hash);
    if (len > st.longest)
        st.longest = len;
    s->s_flags = space;
    if (space == 0) {
        s->s_flags = S_UNDEF;
        s->s_value = value_sym(s);
    } else if (space == S_PSECT) {
        make_psect(s);
    }
    fill_slot(slot, s, tag);
    return s;
}

symbol_t *sym_enter(const char *name, size_t len, uint64_t space) { return enter(name, len, space, false); }

symbol_t *sym_enter(const char *name, uint64_t space) { return sym_enter(name, strlen(name), space); }

symbol_t *psect_new(const char *name, uint16_t flags)
{
    symbol_t *psect = enter(name, strlen(name), S_PSECT, true);
    psect->s_psect->p_flags = flags;
    return psect;
}

symbol_t *sym_find(const char *name, size_t len)
{
    return find_slot(name, len, hash_name(name, len), slot_tag(len, 0))->sym;
}

symbol_t *sym_find(const char *name) { return sym_find(name, strlen(name)); }

symbol_t *sym_new(const char *name)
{
    const size_t len = strlen(name);
    symbol_t *s = make_record(name, len, hash_name(name, len));
    s->s_value = value_sym(s);
    return s;
}

// Whether the program has one of the names that labels made by the optimiser get for this number.
static bool label_number_taken(uint32_t number)
{
    for (const char *form : {"L%u", "PL%u", "__end_ofPL%u", "iL%u"})
        if (sym_find(cache_printf(form, number)))
            return true;
    return false;
}

symbol_t *sym_newlabel()
{
    while (label_number_taken(++st.labels))
        ;
    symbol_t *s = sym_new(cache_printf("L%u", st.labels));
    s->s_labelno = st.labels;
    return s;
}

symbol_t *sym_define_abs(const char *name, int64_t value)
{
    symbol_t *s = sym_find(name);
    if (s)
        return s;
    s = sym_enter(name, 0);
    s->s_refs = 1;
    s->s_flags = S_SET | S_GLOBAL;
    s->s_value = value_const(value);
    return s;
}

symbol_t *sym_clone(const symbol_t *s)
{
    symbol_t *copy = xnew<symbol_t>();
    *copy = *s;
    copy->s_chain = nullptr;
    return copy;
}

void sym_free(symbol_t *s)
{
    const bool has_name = s->s_name == reinterpret_cast<const char *>(s + 1);   // a clone has another one's
    xgive_back(s, sizeof(symbol_t) + (has_name ? strlen(s->s_name) + 1 : 0));
}

fn_t *sym_fn(symbol_t *s)
{
    if (!s->s_fn)
        s->s_fn = xnew<fn_t>();
    return s->s_fn;
}

uint32_t sym_last_seqno() { return st.seqno; }

size_t sym_longest_name() { return st.longest; }

// Start.

void sym_init()
{
    st = {};
    grow();
    psect_list = vec_make<code_list_t *>();
    srcpos.cur_file = "(command line)";
    srcpos.cur_line = 0;

    static const char predefined[] = "__OSTRAND__";
    crossref_use(predefined, sizeof predefined - 1);
    symbol_t *s = sym_enter(predefined, 0);
    s->s_value = value_const(1);
    s->s_flags = S_SET;

    abs_psect = cur_psect = sym_enter("", S_PSECT);
    abs_psect->s_psect->p_flags = P_ABS | P_OVRLD | P_GLOBAL;
}

// Orders.

uint32_t sym_bucket(const char *name)
{
    uint32_t h = 0;
    for (; *name; name++)
        h = static_cast<unsigned char>(*name) + 2 * h;
    return h % BUCKETS;
}

static int compare_seqno(const symbol_t *a, const symbol_t *b)
{
    return (a->s_seqno > b->s_seqno) - (a->s_seqno < b->s_seqno);
}

static int compare_name(symbol_t *a, symbol_t *b)
{
    const int order = strcmp(a->s_name, b->s_name);
    return order ? order : compare_seqno(a, b);
}

vec_t<symbol_t *> sym_all()
{
    vec_t<symbol_t *> all = vec_make<symbol_t *>(st.live + 1);
    for (uint32_t i = 0; i <= st.mask; i++)
        for (symbol_t *s = st.slots[i].sym; s; s = s->s_chain)
            vec_add(all, s);
    return all;
}

struct kept_name_t {
    symbol_t *sym;
    uint32_t bucket, seqno, age;   // age: position in the bucket's chain among equals by number, newest first
};

static bool stands_before(const kept_name_t &a, const kept_name_t &b)
{
    return a.bucket != b.bucket ? a.bucket < b.bucket : a.seqno != b.seqno ? a.seqno > b.seqno : a.age < b.age;
}

// Dealt out by counting, since a table full of records is sorted in every run: to as many piles as there are records, each
// for a run of buckets. What remains is the order in each pile, and few hold more than two or three.
vec_t<symbol_t *> sym_slot_order()
{
    vec_t<symbol_t *> order = sym_all();
    const uint32_t count = vec_size(order);
    const auto pile = [count](const kept_name_t &p) { return static_cast<uint64_t>(p.bucket) * count / BUCKETS; };
    kept_name_t *found = xnew<kept_name_t>(count), *sorted = xnew<kept_name_t>(count);
    uint32_t *begins = xnew<uint32_t>(count + 1), n = 0;
    for (symbol_t *s : order) {
        found[n] = {s, sym_bucket(s->s_name), s->s_seqno, n};
        begins[pile(found[n++])]++;
    }
    for (uint32_t i = 1; i <= count; i++)   // where a pile ends, until its records are dealt
        begins[i] += begins[i - 1];
    while (n-- > 0)
        sorted[--begins[pile(found[n])]] = found[n];
    for (uint32_t i = 0; i < count; i++)
        std::sort(sorted + begins[i], sorted + begins[i + 1], stands_before);
    for (uint32_t i = 0; i < count; i++)
        vec_setAt(order, sorted[i].sym, i);
    xfree(begins);
    xfree(sorted);
    xfree(found);
    return order;
}

vec_t<symbol_t *> sym_name_order()
{
    vec_t<symbol_t *> order = sym_all();
    vec_sort_by<symbol_t *, compare_name>(order);
    return order;
}

static int compare_depth(symbol_t *a, symbol_t *b)
{
    const uint32_t x = a->s_psect->p_depth, y = b->s_psect->p_depth;
    return x != y ? (x > y ? -1 : 1) : compare_seqno(b, a);
}

// A psect stands one step further along than the longest way to it, and `with` leads on from each to one other. So psects
// are dealt with as soon as all that name them have been. False if some are left: they name each other in a circle.
static bool set_depths(vec_t<symbol_t *> psects)
{
    const uint32_t count = vec_size(psects);
    uint32_t *named_by = xnew<uint32_t>(count), done = 0;
    for (const symbol_t *s : psects) {
        s->s_psect->p_depth = 1;
        if (const symbol_t *with = s->s_psect->p_with)
            named_by[with->s_psect->p_number]++;
    }
    for (const symbol_t *first : psects)
        for (const symbol_t *s = first; s && named_by[s->s_psect->p_number] == 0; done++) {
            const psect_t *p = s->s_psect;
            named_by[p->p_number] = UINT32_MAX;   // done
            s = p->p_with;
            if (s) {
                s->s_psect->p_depth = std::max(s->s_psect->p_depth, p->p_depth + 1);
                named_by[s->s_psect->p_number]--;
            }
        }
    xfree(named_by);
    return done == count;
}

// Message 783, and the names of the circle that `s` lies in.
static void tell_circle(const symbol_t *s)
{
    constexpr int MOST = 8;
    const char *names = cache_printf("\"%s\"", s->s_name);
    const symbol_t *next = s->s_psect->p_with;
    for (int i = 1; i < MOST && next != s; i++, next = next->s_psect->p_with)
        names = cache_printf("%s with \"%s\"", names, next->s_name);
    if (alert_msg(783))
        alert_text("M", "psect %s with %s", names, next == s ? cache_printf("\"%s\"", s->s_name) : "...");
}

// The depths of psects some of which form a circle are what these walks leave.
static void report_circles(vec_t<symbol_t *> psects)
{
    const uint32_t count = vec_size(psects);
    bool told = false;
    for (const symbol_t *s : psects)
        s->s_psect->p_depth = 0;
    for (const symbol_t *first : psects) {
        uint32_t depth = 0;
        for (const symbol_t *s = first; s && s->s_psect->p_depth <= depth; s = s->s_psect->p_with) {
            // A circle that the walk runs into from outside never comes back to its start.
            if (depth > 0 && (s == first || depth == count)) {
                if (s == first || !told)
                    tell_circle(s);
                told = true;
                break;
            }
            s->s_psect->p_depth = ++depth;
        }
    }
}

vec_t<symbol_t *> psect_order()
{
    vec_t<symbol_t *> order = vec_make<symbol_t *>(vec_size(psect_list));
    for (const code_list_t *list : psect_list)
        vec_add(order, list->psect);
    if (!set_depths(order))
        report_circles(order);
    vec_sort_by<symbol_t *, compare_depth>(order);
    return order;
}

set_t *sym_set_new()
{
    return set_new([](word_t a, word_t b) { return compare_name(from_word<symbol_t *>(a), from_word<symbol_t *>(b)); });
}

// Symbols for inlined functions.

void inline_note(const symbol_t *symbol, const symbol_t *psect, int64_t value)
{
    if (!st.inlined)
        st.inlined = hash_make<const char *, int64_t>(13, hash_string, hash_strcmp);
    if (value == 1 && psect->s_psect->p_keep)
        value = 3;
    hash_insert(st.inlined, xsprintf("_inlined$%s", symbol->s_name), value);
}

void inline_symbols()
{
    if (st.inlined)
        for (const char *name : hash_keys(st.inlined))
            sym_define_abs(name, hash_lookup(st.inlined, name));
}
