// Procedural abstraction makes a program smaller: a run of instructions that stands in several places moves into a new procedure,
// and each place gets a call. Runs are the same when their text is the same; that needs no model of what instructions do.
// What may not be cut is a run that control enters or leaves other than at its ends.
//
// Nodes get a hash, and a candidate is a node from which a run of enough bytes may be cut out. Candidates with the same sum of
// hashes lie side by side after a sort, and those that are really equal make a group. A group's members are compared for the
// longest runs that they have in common, the group that saves most goes first, and since it takes nodes away, each group is
// looked at again when its turn comes.
//
// What is known of a node is found out before anything moves, and holds as long as the node isn't taken: a run that may be
// cut out never begins or ends within the reach of a skip, and nothing outside leads into it. So a node keeps its place among
// its neighbours, its being a join point, and those who lead to it. A place is the node's number in the whole program, which
// tells in one step whether a node lies in a run.
//
// What may bite: a node that is taken out stays as it was, for members of other groups may still point to it. Its flag says
// that it is gone, and every test asks for the flag first.
#include "optim/pa.h"

#include <cstdio>
#include <cstring>

#include "code/layout.h"
#include "code/sfrop.h"
#include "common/hash.h"
#include "common/stringcache.h"
#include "common/tally_table.h"
#include "common/xalloc.h"
#include "optim/changes.h"
#include "optim/edit.h"
#include "optim/labels.h"
#include "optim/node.h"
#include "optim/report.h"
#include "optim/templates.h"
#include "options.h"
#include "out/emasm.h"

constexpr uint32_t COST = 6;                  // bytes of a call and a return
constexpr uint32_t LONGEST = 20;              // nodes of a candidate's first run
constexpr uint32_t FIRST_MEMBERS = 19;        // of a group that are compared with the others
constexpr uint64_t MOST_STEPS = 20'000'000;   // of comparisons, which end after LONGEST nodes from then on
constexpr uint16_t NOP_NOT_BEHIND = 2;

// pa_flags
enum : uint32_t {
    PAF_TAKEN = 2,     // the node belongs to an abstraction, made or replaced
    PAF_JOIN = 4,      // of a node that isn't taken: a join point
    PAF_MOVABLE = 8,   // the place where the node stands allows that it goes
};

struct pa_node_t {
    op_t *pa_ref1;         // of a join point: the first node that leads to it
    const char *pa_text;   // interned
    uint32_t pa_refs;      // of a join point: nodes that lead to it
    uint32_t pa_place;     // number in the program, from 1; 0 for nodes made here
    uint32_t pa_hash;
    uint32_t pa_size;                  // bytes
    uint32_t pa_len, pa_sum, pa_crc;   // of a candidate: nodes of its run, sum of their hashes, CRC of them
    uint32_t pa_flags;
};

// A length that members of a group have in common.
struct length_t {
    uint32_t ss_len, ss_comlen, ss_saving, pairs;
    op_t *first;   // the first member of the first pair
};

struct pa_group_t {
    vec_t<op_t *> members;
    uint32_t g_len, g_comlen, g_saving, id;
    op_t *first;   // of the pair that gives the best length; null if there is none
};

static struct {
    uint32_t next_id, next_psect;
    uint64_t steps;
    bool surveyed;
    vec_t<symbol_t *> names;   // of the procedures and of their ends
    hash_of<const char *, const char *> texts;
    textbuf_t text;
    length_t *lengths;   // of the group that is evaluated
    uint32_t length_count, length_room;
    hash_of<uint32_t, uint32_t> by_length;   // place among them, from 1
} st;

static pa_node_t *pa(const op_t *op) { return op->op_pa; }
static bool taken(const op_t *op, uint32_t mask = PAF_TAKEN) { return (pa(op)->pa_flags & mask) != 0; }

// CRC-32 with the reflected polynomial, without a final inversion.
struct crc_table_t {
    uint32_t of[256] = {};
    constexpr crc_table_t()
    {
        for (uint32_t i = 0; i < 256; i++) {
            uint32_t c = i;
            for (int bit = 0; bit < 8; bit++)
                c = c & 1 ? c >> 1 ^ 0xEDB88320 : c >> 1;
            of[i] = c;
        }
    }
};
static constexpr crc_table_t crc_table;
constexpr uint32_t CRC_START = 0xFFFFFFFF;

static uint32_t crc_byte(uint32_t crc, unsigned char byte) { return crc >> 8 ^ crc_table.of[(crc ^ byte) & 0xFF]; }

static uint32_t crc_word(uint32_t crc, uint32_t word)
{
    for (int i = 0; i < 4; i++, word >>= 8)
        crc = crc_byte(crc, static_cast<unsigned char>(word));
    return crc;
}

static uint32_t crc_string(const char *s)
{
    uint32_t crc = CRC_START;
    while (*s)
        crc = crc_byte(crc, static_cast<unsigned char>(*s++));
    return crc;
}

static uint32_t hash_text(word_t key) { return crc_string(from_word<const char *>(key)); }

// Tests on nodes.

static bool is_flow(const op_t *op) { return op->op_type == T_GOTO || op_is_skip(op); }

static bool pa_flow(const op_t *a, const op_t *b)
{
    if (a->op_type != b->op_type || a->op_subop != b->op_subop)
        return false;
    switch (a->op_type) {
    case T_GOTO: return a->op_opnd1.opnd_value.v_offs == b->op_opnd1.opnd_value.v_offs;
    case T_BTFSC: return op_same_operands(a, b);
    case T_DECFSZ: return a->op_dest == b->op_dest && opnd_same(&a->op_opnd1, &b->op_opnd1);
    case T_CPFSEQ: return opnd_same(&a->op_opnd1, &b->op_opnd1);
    default: return false;
    }
}

static bool is_open_label(const op_t *op) { return op->op_type == T_NAME && !(op->op_sym->s_flags & S_DEFHERE); }

// Control can reach the node other than by falling into it.
static bool pa_join(const op_t *n)
{
    if (!taken(n))
        return pa(n)->pa_flags & PAF_JOIN;
    const op_t *before = n->op_prev;
    while (op_is_silent(before))
        before = before->op_prev;
    return (before->op_type != 0 && op_may_not_run(before)) || is_open_label(n);
}

static bool contested(const op_t *n) { return pa_join(n) && pa(n)->pa_refs != 1; }
static bool movable(const op_t *n) { return pa(n)->pa_flags & PAF_MOVABLE; }

// In a procedure, which runs one level deeper, the top of stack and the stack pointer are others.
static bool leads_away(const opnd_t *o) { return sfr_isTos(o) || sfr_isPc(o) || sfr_idOf(o) == SFR_STKPTR; }

// Data and conditions stay where they are, as does a jump to a place that isn't known.
static bool pa_abstractable(const op_t *n)
{
    if (!movable(n) || !op_free(n) || leads_away(&n->op_opnd1))
        return false;
    switch (n->op_type) {
    case T_PUSH:
    case T_RCALL:
    case T_CALL:
    case T_NOP:
    case T_TRAP:
    case T_DBOUT:
    case T_SETCNT:
    case T_DB:
    case T_DS:
    case T_ORG:
    case T_ALIGN:
    case T_IF:
    case T_ELSIF:
    case T_ELSE:
    case T_ENDIF:
    case T_MESSG: return false;
    case T_BRA:
    case T_BCC:
        if (!op_target(n))
            return false;
        break;
    case T_MOVFF:
    case T_MOVFFL:
        if (leads_away(op_opnd2(n)))
            return false;
        break;
    default: break;
    }
    const op_t *next = following(n);
    return next->op_type != T_NOP || next->op_subop != NOP_NOT_BEHIND;
}

// Runs. Their length counts nodes.

// The position of `x` in the run, from 1; 0 if it lies outside or control comes to it from elsewhere.
static uint32_t position(const op_t *run, uint32_t length, const op_t *x)
{
    const uint32_t k = pa(x)->pa_place - pa(run)->pa_place;
    return k < length && !taken(x) && !contested(x) ? k + 1 : 0;
}

static uint32_t bytes(const op_t *run, uint32_t length)
{
    uint32_t n = 0;
    for (; length > 0; length--, run = run->op_next)
        n += pa(run)->pa_size;
    return n;
}

// How much of the run may be cut out at best: `length` if all of it may. No node of it may have a flag of `mask`.
static uint32_t valid_part(const op_t *run, uint32_t length, uint32_t mask)
{
    if (op_may_not_run(run))
        return 0;
    const op_t *v = run;
    for (uint32_t i = 0; i < length; i++, v = v->op_next) {
        if (taken(v, mask))
            return i;
        if (v->op_type == T_NAME) {
            const op_t *from = pa(v)->pa_ref1;
            if (pa_join(v) && (!from || position(run, length, from) == 0 || (v->op_sym->s_flags & S_TAKEN)))
                return i;
        } else if (i == 1 && pa_join(v)) {
            return i;
        }
        if (is_flow(v)) {
            const op_t *t = op_target(v);
            if (!t || position(run, length, t) == 0)
                return i;
        }
    }
    while (v->op_type == T_NAME)
        v = v->op_next;
    return v->op_type != 0 && pa_join(v) ? length - 1 : length;
}

static bool pa_valid(const op_t *run, uint32_t length, uint32_t mask) { return valid_part(run, length, mask) == length; }

// Shortens the run from its end until it may be cut out.
static uint32_t valid_length(const op_t *run, uint32_t length, uint32_t mask)
{
    for (uint32_t part; length > 0 && (part = valid_part(run, length, mask)) < length;)
        length = part;
    return length;
}

static bool pa_equal(const op_t *a, const op_t *b, uint32_t length)
{
    if (length == 0)
        return true;
    if (a == b || taken(a) || taken(b))
        return false;
    const op_t *u = a, *v = b;
    for (uint32_t i = 1;; i++) {
        if (u->op_type == 0 || v->op_type == 0)
            return false;
        const op_t *t = op_target(u), *w = op_target(v);
        if (!t != !w)
            return false;
        if (t) {
            if (!pa_flow(u, v) || position(a, length, t) != position(b, length, w))
                return false;
        } else if (u->op_type != T_NAME || !pa(u)->pa_ref1) {
            if (pa(u)->pa_text != pa(v)->pa_text)
                return false;
        } else if (!pa(v)->pa_ref1 || pa(u)->pa_refs != 1 || pa(v)->pa_refs != 1 ||
                   position(a, length, pa(u)->pa_ref1) != position(b, length, pa(v)->pa_ref1)) {
            return false;
        }
        if (i == length)
            return true;
        u = u->op_next;
        v = v->op_next;
        if (u->op_type == 0 || v->op_type == 0 || taken(u) || taken(v) || u == b || v == a)
            return false;
    }
}

static bool common_pair(const op_t *u, const op_t *v)
{
    if (pa_flow(u, v) && movable(u) && movable(v)) {
        const op_t *t = op_target(u), *w = op_target(v);
        return t && w && pa_join(t) && pa_join(w) && u->op_offs - t->op_offs == v->op_offs - w->op_offs;
    }
    if (u->op_type == T_NAME || v->op_type == T_NAME)
        return u->op_type == v->op_type && pa_join(u) && pa_join(v) && pa(u)->pa_refs == 1 && pa(v)->pa_refs == 1;
    return pa(u)->pa_text == pa(v)->pa_text && pa_abstractable(u) && pa_abstractable(v);
}

// The length of the run of at least `least` bytes that begins the same at both nodes, or 0.
static uint32_t pa_common(const op_t *a, const op_t *b, uint32_t least)
{
    uint32_t n = 0, size = 0;
    for (const op_t *u = a, *v = b; u->op_type != 0 && v->op_type != 0 && !taken(u) && !taken(v) && common_pair(u, v);) {
        n++;
        size += pa(u)->pa_size;
        if (op_is_return(u))
            break;
        u = u->op_next;
        v = v->op_next;
        if (u == b || v == a || (n >= LONGEST && ++st.steps > MOST_STEPS))
            break;
    }
    if (size < least)
        return 0;
    n = valid_length(a, n, PAF_TAKEN);
    return bytes(a, n) >= least ? n : 0;
}

// What is known of each node.

// Whether the node may leave its place at all.
static bool may_leave(const op_t *op, bool psect_allows) { return psect_allows && op_callstack(op) != 0; }

// Gives the nodes of a list their records, and finds its join points.
static void survey(code_list_t *list, uint32_t *place)
{
    const bool allowed = psect_is_function(list->psect);
    bool skip = false, behind_skip = false;   // what the last instruction is
    for (op_t *op = list->head.op_next;; op = op->op_next) {
        op->op_pa = xnew<pa_node_t>();
        pa(op)->pa_place = ++*place;
        if (behind_skip || is_open_label(op))
            pa(op)->pa_flags |= PAF_JOIN;
        if (op->op_type == 0)
            break;
        if (may_leave(op, allowed))
            pa(op)->pa_flags |= PAF_MOVABLE;
        if (!op_is_silent(op)) {
            behind_skip = skip;
            skip = op_is_skip(op);
        }
    }
}

// Every node of the program gets a record, for a jump may lead anywhere. Until the last set is done no other module uses the
// place where it hangs.
static void survey_all()
{
    uint32_t place = 0;
    for (code_list_t *list : psect_list)
        survey(list, &place);
    for (code_list_t *list : psect_list)
        for (op_t *op = list->head.op_next; op->op_type != 0; op = op->op_next) {
            op_t *t = op_target(op);
            if (t && pa_join(t) && pa(t)->pa_refs++ == 0)
                pa(t)->pa_ref1 = op;
        }
    st.texts = hash_make<const char *, const char *>(5003, hash_text, hash_strcmp);
    st.by_length = hash_make<uint32_t, uint32_t>(100, nullptr, nullptr);
    st.surveyed = true;
}

static const char *intern(std::string_view text)
{
    st.text.length = 0;
    text_add(&st.text, text.data(), text.size());
    text_add(&st.text, "", 1);
    const char *known = hash_lookup(st.texts, st.text.at);
    if (!known) {
        known = xstrdup(st.text.at);
        hash_insert(st.texts, known, known);
    }
    return known;
}

static void describe(op_t *op, const symbol_t *psect)
{
    pa_node_t *n = pa(op);
    n->pa_text = intern(asm_op(op, ASM_COMPARE));
    n->pa_size = op->op_next->op_offs - op->op_offs;
    const op_t *t = is_flow(op) ? op_target(op) : nullptr;
    if (t && t->op_psect == psect)
        n->pa_hash =
            (t->op_offs - op->op_offs) | static_cast<uint32_t>(op->op_subop) << 16 | static_cast<uint32_t>(op->op_type) << 8;
    else
        n->pa_hash = crc_string(n->pa_text);
}

// Candidates.

// Whether a run of at least COST bytes may be cut out at `n`; then its length, sum and CRC are noted.
static bool find_run(op_t *n)
{
    uint32_t count = 0, size = 0;
    for (const op_t *op = n; count < LONGEST && op->op_type != 0; op = op->op_next) {
        if (is_flow(op) ? !movable(op) || !op_target(op) || !pa_join(op_target(op))
                        : !(pa_join(op) && pa(op)->pa_refs == 1) && !pa_abstractable(op))
            break;
        count++;
        size += pa(op)->pa_size;
    }
    if (size < COST)
        return false;
    const uint32_t all = count;
    count = valid_length(n, count, 0);
    if ((count <= 1 && all > 1) || bytes(n, count) < COST)
        return false;
    uint32_t sum = 0, crc = CRC_START, i = 0;
    size = 0;
    for (const op_t *op = n; i < count; op = op->op_next) {
        i++;
        size += pa(op)->pa_size;
        sum += pa(op)->pa_hash;
        crc = crc_word(crc, pa(op)->pa_hash);
        if (size > COST && pa_valid(n, i, 0))
            break;
    }
    pa(n)->pa_len = i;
    pa(n)->pa_sum = sum;
    pa(n)->pa_crc = crc;
    return true;
}

template <class T> static int compare(T a, T b) { return a < b ? -1 : a > b; }

static int by_run(op_t *a, op_t *b)
{
    const pa_node_t *p = pa(a), *q = pa(b);
    if (int c = compare(q->pa_len, p->pa_len))
        return c;
    if (int c = compare(p->pa_sum, q->pa_sum))
        return c;
    if (int c = compare(p->pa_crc, q->pa_crc))
        return c;
    if (int c = compare(op_source_line(a), op_source_line(b)))
        return c;
    return compare(a->op_id, b->op_id);
}

static int by_saving(pa_group_t *a, pa_group_t *b)
{
    const int c = compare(b->g_saving, a->g_saving);
    return c ? c : compare(b->id, a->id);
}

// Candidates that are equal to their neighbours become groups.
static vec_t<pa_group_t *> make_groups(vec_t<op_t *> candidates)
{
    vec_t<pa_group_t *> groups = vec_make<pa_group_t *>();
    for (uint32_t i = 0, next; i < vec_size(candidates); i = next) {
        op_t *f = vec_elementAt(candidates, i);
        for (next = i + 1; next < vec_size(candidates); next++) {
            op_t *c = vec_elementAt(candidates, next);
            if (pa(c)->pa_sum != pa(f)->pa_sum || pa(c)->pa_len != pa(f)->pa_len || !pa_equal(f, c, pa(f)->pa_len))
                break;
        }
        if (next - i < 2)
            continue;
        pa_group_t *g = xnew<pa_group_t>();
        g->members = vec_make<op_t *>(next - i);
        for (uint32_t k = i; k < next; k++)
            vec_add(g->members, vec_elementAt(candidates, k));
        g->id = ++st.next_id;
        vec_add(groups, g);
    }
    return groups;
}

// Counts a pair whose first member is `a` and whose common run has `k` nodes.
static void note_pair(op_t *a, uint32_t k)
{
    uint32_t at = hash_lookup(st.by_length, k);
    if (at == 0) {
        xreserve(st.lengths, st.length_count, st.length_count + 1, st.length_room, uint32_t{100});
        st.lengths[st.length_count] = {k, bytes(a, k) + 1 - COST, 0, 0, a};
        hash_insert(st.by_length, k, at = ++st.length_count);
    }
    length_t *record = &st.lengths[at - 1];
    record->ss_saving = record->ss_comlen * record->pairs++;
}

// Finds the length that saves most, of several the one that was found last.
static void evaluate(pa_group_t *g)
{
    st.length_count = 0;
    hash_clear(st.by_length.raw);
    const uint32_t count = vec_size(g->members);
    for (uint32_t i = 0; i < FIRST_MEMBERS && i + 1 < count; i++)
        for (uint32_t j = i + 1; j < count; j++) {
            op_t *a = vec_elementAt(g->members, i);
            const uint32_t k = pa_common(a, vec_elementAt(g->members, j), COST);
            if (k != 0)
                note_pair(a, k);
        }
    g->first = nullptr;
    g->g_comlen = 0;
    const length_t *best = nullptr;
    for (uint32_t i = 0; i < st.length_count; i++)
        if (!best || st.lengths[i].ss_saving >= best->ss_saving)
            best = &st.lengths[i];
    if (!best)
        return;
    g->g_len = best->ss_len;
    g->g_comlen = best->ss_comlen;
    g->first = best->first;
    g->g_saving = 0;
    for (op_t *member : g->members)
        if (member != g->first && pa_equal(g->first, member, g->g_len))
            g->g_saving += g->g_comlen;
}

// Abstraction.

// What is made here takes its place from `like`, and is nobody's candidate.
static op_t *take_new(op_t *op, const op_t *like)
{
    op->op_flags |= OPF_MARK;
    op_set_callstack(op, op_callstack(like));
    op_take_position(op, like);
    op->op_pa = xnew<pa_node_t>();
    pa(op)->pa_flags = PAF_TAKEN;
    return op;
}

static op_t *link_new_label(const char *name, op_t *where, const op_t *like)
{
    op_t *op = take_new(edit_new_label(name), like);
    op->op_sym->s_flags = S_GLOBAL;
    op_set_refs(op, vec_make<op_t *>());
    sym_link(op->op_sym);
    op_insert_after(where, op);
    op->op_sym->s_owner = op->op_psect;
    if (!st.names)
        st.names = vec_make<symbol_t *>();
    vec_add(st.names, op->op_sym);
    return op;
}

void pa_keep_names()
{
    if (st.names)
        for (symbol_t *s : st.names)
            s->s_flags = (s->s_flags & ~uint64_t{S_GLOBAL}) | S_LOCAL;
}

// What takes the place of a run: a jump or a call to the procedure, linked before the run.
static op_t *replacement(op_t *run, op_t *procedure, bool ends_in_return)
{
    op_t *op =
        take_new(ends_in_return ? edit_new_jump(T_GOTO, 0, procedure) : edit_new_jump(T_CALL, TPL_CALL, procedure), run);
    op_set_remark(op, ";call to abstracted procedure");
    op_insert_after(run->op_prev, op);
    change_add(op);
    return op;
}

static void hand_comments_over(op_t *from, op_t *to)
{
    op_comments_append(from, to);
    op_comments_free(from);
}

static void take_out(op_t *c, uint32_t length, op_t *procedure, bool ends_in_return)
{
    change_step("abstraction", c);
    op_t *call = replacement(c, procedure, ends_in_return);
    for (op_t *op = c, *next; length > 0; length--, op = next) {
        next = op->op_next;
        hand_comments_over(op, call);
        pa(op)->pa_flags |= PAF_TAKEN;
        if (op->op_type == T_NAME) {
            list_delete_label(op);
            change_step("abstraction", call);
        } else {
            change_remove(op);
            op_unlink(op);
        }
    }
}

static void abstract(op_t *p, uint32_t length, vec_t<op_t *> others, symbol_t *psect)
{
    const op_t *last = p;
    for (uint32_t i = 1; i < length; i++)
        last = last->op_next;
    const bool ends_in_return = op_is_return(last);
    opt_fired("abstraction", CNT_NONE, p);
    const char *name = cache_printf("PL%u", sym_newlabel()->s_labelno);
    op_t *procedure = link_new_label(name, psect->s_psect->p_code->tail.op_prev, p);
    link_new_label(cache_printf("__end_of%s", name), procedure, p);
    op_t *call = replacement(p, procedure, ends_in_return), *where = procedure;
    op_take_source_line(call, p);
    uint32_t left = length;
    for (op_t *op = p, *next; left > 0; left--, op = next) {
        next = op->op_next;
        hand_comments_over(op, call);
        pa(op)->pa_flags |= PAF_TAKEN;
        op_drop_source_line(op);
        edit_move(op, where);
        if (op->op_type == T_NAME)
            op->op_sym->s_owner = op->op_psect;
        where = op;
    }
    if (!ends_in_return) {
        op_t *op = take_new(op_new(), where);
        op->op_type = T_RETURN;
        op->op_subop = TPL_RETURN;
        op_link_after(where, op);
        change_add(op);
    }
    for (op_t *c : others)
        if (pa_valid(c, length, PAF_TAKEN))
            take_out(c, length, procedure, ends_in_return);
}

// What is put at the end of the psect isn't run into, and begins at a whole word.
static bool has_room(const symbol_t *psect)
{
    return !psect_runs_on(psect) && psect->s_psect->p_code->tail.op_offs % 2 == 0;
}

// Abstracts what a group has in common, if there still is something.
static void abstract_group(pa_group_t *g)
{
    evaluate(g);
    if (!g->first)
        return;
    vec_t<op_t *> others = vec_make<op_t *>();
    tally_t *psects = tally_new(13, 1, nullptr, nullptr);
    for (op_t *member : g->members)
        if (member != g->first && pa_equal(g->first, member, g->g_len)) {
            vec_add(others, member);
            if (has_room(member->op_psect))
                tally_add(psects, to_word(member->op_psect.get()));
        }
    if (vec_size(others) == 0)
        return;
    symbol_t *psect = from_word<symbol_t *>(tally_top(psects));
    if (!psect && has_room(g->first->op_psect))
        psect = g->first->op_psect;
    if (!psect)
        return;
    if (!pa_valid(g->first, g->g_len, PAF_TAKEN))
        fputs("\tFAILED VERIFY\n", stderr);
    else
        abstract(g->first, g->g_len, others, psect);
}

// The psect that each run leaves behind, empty.
static symbol_t *new_psect()
{
    symbol_t *psect = psect_new(cache_printf("pa_nodes%u", st.next_psect++), P_GLOBAL);
    psect->s_psect->p_class = sym_enter("CODE", S_CLASS);
    return psect;
}

void pa_psects(vec_t<symbol_t *> set, vec_t<symbol_t *> code_psects)
{
    if (!opt.opt_space || opt.opt_debug || opt.no_pa || (opt.errata_mask & ERRATA_NO_PA))
        return;
    vec_add(code_psects, new_psect());
    if (!st.surveyed)
        survey_all();
    for (symbol_t *psect : set) {
        if (cache_starts_with(psect->s_name, "int") || list_empty(psect->s_psect->p_code))
            continue;
        size_psect(psect);
        for (op_t *op = psect->s_psect->p_code->head.op_next; op->op_type != 0; op = op->op_next)
            if (!(op->op_flags & OPF_SKIPPED))
                describe(op, psect);
    }
    vec_t<op_t *> candidates = vec_make<op_t *>();
    for (symbol_t *psect : set) {
        if (cache_starts_with(psect->s_name, "int"))
            continue;
        for (op_t *op = psect->s_psect->p_code->head.op_next; op->op_type != 0; op = op->op_next)
            if (find_run(op))
                vec_add(candidates, op);
    }
    vec_sort_by<op_t *, by_run>(candidates);
    vec_t<pa_group_t *> groups = make_groups(candidates);
    vec_sort_by<pa_group_t *, by_saving>(groups);
    for (pa_group_t *g : groups)
        evaluate(g);
    vec_sort_by<pa_group_t *, by_saving>(groups);
    for (pa_group_t *g : groups)
        abstract_group(g);
}
