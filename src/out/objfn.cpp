// FNINFO, SIGNAT and FNALIGN.
#include "out/objfn.h"

#include <cstring>

#include "code/program.h"
#include "common/hash.h"
#include "common/xalloc.h"
#include "out/record.h"

// Subcodes of FNINFO entries.
enum : uint8_t { FN_CALL = 1, FN_ARG = 2, FN_INDIR = 3, FN_ADDR = 4, FN_SIZE = 5, FN_ROOT = 6, FN_BREAK = 9 };
enum : size_t { FNALIGN_NAME_MAX = 509 };

static struct {
    buf_t buf;
} st;

void obj_fn_init() { rec_reset(&st.buf, REC_FNINFO); }
void obj_fn_flush() { buf_flush(&st.buf); }

// Begins an entry with `extra` bytes behind the function's name.
static bool fn_begin(uint8_t code, const symbol_t *s, size_t extra)
{
    if (!buf_room(&st.buf, 1 + strlen(s->s_name) + 1 + extra, "function name", s->s_name))
        return false;
    buf_put(&st.buf, code, 1);
    buf_put_z(&st.buf, s->s_name);
    return true;
}

static void fn_names(uint8_t code, const symbol_t *s, set_t *others)
{
    if (!others)
        return;
    for (set_iterReset(others); set_iterHasNext(others);) {
        const symbol_t *other = from_word<const symbol_t *>(set_iterNext(others));
        if (fn_begin(code, s, strlen(other->s_name) + 1))
            buf_put_z(&st.buf, other->s_name);
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
            buf_put(&st.buf, signature, 2);
    }
    set_iterDone(signatures);
}

static void signat(const symbol_t *s)
{
    buf_t *b = rec_begin(REC_SIGNAT);
    buf_put(b, s->s_fn ? s->s_fn->s_signat : 0, 2);
    buf_put_z(b, s->s_name);
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
        buf_put(&st.buf, fn->s_argsize, 4);
        buf_put(&st.buf, fn->s_autosize, 4);
    }
}

static void fnalign_name(buf_t *b, const char *name, uint32_t group)
{
    const size_t full = strlen(name), n = full < FNALIGN_NAME_MAX ? full : size_t{FNALIGN_NAME_MAX};
    if (buf_left(b) < n + 1) {
        rec_write(b);
        buf_put(b, group, 2);
    }
    memcpy(b->at, name, n);
    b->at += n;
    *b->at++ = 0;
}

// The groups, joined where they share a function. `join` leads from a group to an earlier one that it was joined with,
// and so on to the one that stands for all of them. Each function is written once, in the order of the directives.
static void fnalign()
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
        buf_t *b = rec_begin(REC_FNALIGN, REC_HEAD + FNALIGN_BODY);
        buf_put(b, number, 2);
        for (const symbol_t *s : joined[g])
            fnalign_name(b, s->s_name, number);
        rec_write(b);
        number++;
    }
}

void obj_functions(vec_t<symbol_t *> all)
{
    for (const symbol_t *s : all)
        call_graph(s);
    fnalign();
}
