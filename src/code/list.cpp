// Nodes come from the arena and return to a free list of this module, since the optimiser makes and deletes them at a high
// rate. A free node keeps an op_id of 0, by which somebody who still points to it can tell.
//
// A node takes its position when it is made. There are two: the line of the assembler source, which messages show, and
// the line of the higher-level source, if directives told one, which goes into the object file. Nodes that the optimiser
// makes have none of the second kind and take their neighbour's, so that a debugger finds no holes.
//
// Whole-line comments belong to what follows them. They wait here until the next node or psect takes them; when a node is
// deleted its comments move on to the next one, so that assembly output loses none.
#include "code/list.h"

#include <cstdlib>
#include <cstring>

#include "code/ops.h"
#include "common/alert.h"
#include "common/assertion.h"
#include "common/srcpos.h"
#include "common/stringcache.h"
#include "common/xalloc.h"
#include "env/osdep.h"
#include "options.h"

enum : uint32_t { OP_BLOCK = 256 };   // nodes are made by so many

static struct {
    op_t *nodes;   // those of the last block
    uint32_t nodes_left;
    op_t *free_nodes;   // chained through op_prev
    uint32_t last_id;
    uint32_t moves;                         // nodes that were unlinked intact, or linked behind a label
    vec_t<const char *> pending_comments;   // null, or not empty
    FILE *summary_comments;                 // null until there is one
} st;

const op_extra_t op_no_extra = {};
const opnd_t op_no_opnd = {};
bool skip_at_end;

code_list_t *list_new(symbol_t *psect)
{
    code_list_t *list = xnew<code_list_t>();
    list->psect = psect;
    list->head.op_next = &list->tail;
    list->tail.op_prev = &list->head;
    list->head.op_psect = psect;
    return list;
}

// Nodes.

static op_t *unused_node()
{
    if (op_t *op = st.free_nodes) {
        st.free_nodes = op->op_prev;
        const ref<op_extra_t> more = op->op_more;
        const ref<opnd_t> second = op->op_second;
        *op = {};
        op->op_more = more;
        op->op_second = second;
        if (more)
            *more = {};
        if (second)
            *second = {};
        return op;
    }
    if (st.nodes_left == 0) {
        st.nodes = xnew<op_t>(OP_BLOCK);
        st.nodes_left = OP_BLOCK;
    }
    return &st.nodes[OP_BLOCK - st.nodes_left--];
}

op_extra_t *op_extra_make(op_t *op)
{
    if (!op->op_more)
        op->op_more = xnew<op_extra_t>();
    return op->op_more;
}

opnd_t *op_opnd2_make(op_t *op)
{
    if (!op->op_second)
        op->op_second = xnew<opnd_t>();
    return op->op_second;
}

void op_set_opnd2(op_t *op, const opnd_t *o)
{
    if (o != op_opnd2(op))
        *op_opnd2_make(op) = *o;
}

void op_set_number(op_t *op, uint64_t number)
{
    uint64_t *n = xnew<uint64_t>();
    *n = number;
    op->op_number = n;
}

void op_set_remark(op_t *op, const char *text)
{
    if (text != op_remark(op))
        op_extra_make(op)->remark = text;
}

void op_set_refs(op_t *op, vec_t<op_t *> refs)
{
    if (refs.raw != op_refs(op).raw)
        op_extra_make(op)->refs = refs;
}

void op_set_place(op_t *op, const char *file, uint64_t line)
{
    op->op_in_file = file && *file ? cache_in_arena(file) : nullptr;
    op->op_short_line = line < WIDE_LINE ? static_cast<uint32_t>(line) : WIDE_LINE;
    if (line >= WIDE_LINE)
        op_extra_make(op)->line = line;
}

void op_set_source_line(op_t *op, const char *file, uint64_t line)
{
    if (file == op_source_file(op) && line == op_source_line(op))
        return;
    op_extra_t *extra = op_extra_make(op);
    extra->source_file = file;
    extra->source_line = line;
}

void op_note_position(op_t *op) { op_set_place(op, srcpos.cur_file, static_cast<uint64_t>(srcpos.cur_line)); }

uint64_t list_changes;

op_t *op_new()
{
    op_t *op = unused_node();
    op_note_position(op);
    if (srcpos.src_line != 0)
        op_set_source_line(op, srcpos.src_file, static_cast<uint64_t>(srcpos.src_line));
    else if (opt.line_records)
        op_set_source_line(op, op_file(op), op_line(op));
    if (st.pending_comments) {
        op_extra_make(op)->comments = st.pending_comments;
        st.pending_comments = {};
    }
    if (srcpos.line_volatile)
        op->op_flags |= OPF_VOLATILE;
    if (srcpos.line_volsfr)
        op->op_flags |= OPF_VOLATILE | OPF_NOOPT;
    if (srcpos.line_compiled) {
        op->op_flags |= OPF_COMPILED;
        op_set_place(op, op_source_file(op) ? op_source_file(op) : op_file(op), op_source_line(op));
    }
    op->op_id = ++st.last_id;
    return op;
}

uint32_t op_last_id() { return st.last_id; }

void op_link_after(op_t *where, op_t *node)
{
    op_t *next = where->op_next;
    if (where->op_type == T_NAME && node->op_type != T_NAME)
        st.moves++;
    node->op_prev = where;
    node->op_next = next;
    where->op_next = node;
    if (next)
        next->op_prev = node;
    node->op_psect = where->op_psect;
    list_touch(node->op_psect);
}

op_t *op_insert_after(op_t *where, op_t *node)
{
    op_link_after(where, node);
    if (!op_source_file(node) && !(opt.list_enabled && !opt.optimise))
        op_take_source_line(node, where);
    return node;
}

static void unlink_node(op_t *node)
{
    if (node->op_psect)
        list_touch(node->op_psect);
    if (node->op_prev)
        node->op_prev->op_next = node->op_next;
    if (node->op_next)
        node->op_next->op_prev = node->op_prev;
}

void op_unlink(op_t *node)
{
    st.moves++;
    unlink_node(node);
}

int op_delete(op_t *node)
{
    op_t *target = op_target(node);
    if (target)
        op_remove_ref(node, target);
    if (op_comments_any(node) && node->op_next) {
        op_comments_append(node, node->op_next);
        op_comments_free(node);
    }
    unlink_node(node);
    node->op_id = 0;
    node->op_prev = st.free_nodes;
    st.free_nodes = node;
    return 1;
}

int op_delete_if_live(op_t *node) { return node->op_id != 0 ? op_delete(node) : 0; }

op_t *op_ensure_label(op_t *node)
{
    op_t *before = node->op_prev;
    if (before->op_type == T_NAME)
        return before;
    op_t *label = op_insert_after(before, op_new());
    label->op_type = T_NAME;
    label->op_sym = sym_newlabel();
    label->op_sym->s_defop = label;
    label->op_sym->s_owner = label->op_psect;
    sym_add_ref(label->op_sym);
    return label;
}

// Runs of labels.
//
// A run of labels is walked, as it mostly is a short one. Of a long one, to each of whose labels something may lead, it is
// kept where it ends, and where it begins. That holds as long as the node there lives and stands at the run's edge, and
// nothing has been moved, or linked behind a label, since.

enum : int { SHORT_RUN = 8 };

static op_t *step_behind(const op_t *op) { return op->op_next; }
static op_t *step_before(const op_t *op) { return op->op_prev; }

// Where a run ends that is walked in the direction of STEP from one of its labels.
template <op_t *STEP(const op_t *)> struct run_ends_t {
    struct entry_t {
        uint32_t id, end_id, moves;   // id: of the label; 0: none
        op_t *end;
    };
    entry_t *entries;   // by op_id
    size_t room;

    static op_t *back(const op_t *op) { return STEP(op) == op->op_next ? op->op_prev : op->op_next; }

    op_t *known(const op_t *label) const
    {
        if (label->op_id >= room)
            return nullptr;
        const entry_t &e = entries[label->op_id];
        const bool holds = e.id == label->op_id && e.moves == st.moves && e.end->op_id == e.end_id &&
                           e.end->op_type != T_NAME && back(e.end)->op_type == T_NAME;
        return holds ? e.end : nullptr;
    }

    [[gnu::noinline]] op_t *end_of(op_t *label)   // or the common case would pay for its registers
    {
        op_t *op = label, *end = nullptr;
        for (; op->op_type == T_NAME && !(end = known(op)); op = STEP(op))
            ;
        if (!end)
            end = op;
        for (; label != op; label = STEP(label)) {
            const size_t at = label->op_id;
            xreserve(entries, room, at + 1, room, size_t{1024});
            entries[at] = {label->op_id, end->op_id, st.moves, end};
        }
        return end;
    }
};
static run_ends_t<step_behind> behind_runs;
static run_ends_t<step_before> before_runs;

op_t *past_labels(op_t *op)
{
    for (int i = 0; op->op_type == T_NAME; op = op->op_next)
        if (++i > SHORT_RUN)
            return behind_runs.end_of(op);
    return op;
}

op_t *before_labels(op_t *op)
{
    for (int i = 0; op && op->op_type == T_NAME; op = op->op_prev)
        if (++i > SHORT_RUN)
            return before_runs.end_of(op);
    return op;
}

bool op_is_silent(const op_t *op)
{
    switch (op->op_type) {
    case T_NAME:
    case T_NUMLABEL:
    case T_IF:
    case T_ELSE:
    case T_ELSIF:
    case T_ENDIF:
    case T_ENDM:
    case T_EQU:
    case T_SET:
    case T_TITLE:
    case T_INCLUDE:
    case T_MESSG:
    case T_ALIGN: return true;
    case T_DS: return op->op_opnd1.opnd_value.v_offs <= 0 || (op->op_flags & OPF_SKIPPED);
    default: return op->op_flags & OPF_SKIPPED;
    }
}

bool op_is_skip(const op_t *op) { return op->op_type == T_BTFSC || op->op_type == T_DECFSZ || op->op_type == T_CPFSEQ; }

bool after_skip(const op_t *op)
{
    op = op->op_prev;
    while (op && op_is_silent(op))
        op = op->op_type == T_NAME ? before_labels(const_cast<op_t *>(op)) : op->op_prev;
    return op && (op->op_type == 0 ? skip_at_end : op_is_skip(op));
}

op_t *op_past_silent(op_t *op)
{
    while (op && op_is_silent(op))
        op = op->op_next;
    return op;
}

static bool names_its_target(const op_t *op)
{
    switch (op->op_type) {
    case T_BRA:
    case T_BCC:
    case T_RCALL:
    case T_GOTO:
    case T_CALL: return true;
    default: return false;
    }
}

// The label that a jump or call leads to; null for all other kinds.
static op_t *label_of(const op_t *op)
{
    const value_t *v = &op->op_opnd1.opnd_value;
    return names_its_target(op) && v->v_rtype == RT_SYM && v->v_sym ? v->v_sym->s_defop : nullptr;
}

op_t *op_target(const op_t *node)
{
    switch (node->op_type) {
    case T_BTFSC:
    case T_DECFSZ:
    case T_CPFSEQ: {
        const op_t *skipped = op_past_silent(node->op_next);
        return skipped ? op_past_silent(skipped->op_next) : nullptr;
    }
    default: return label_of(node);
    }
}

void op_set_position(const op_t *node)
{
    srcpos.cur_file = op_file(node) ? op_file(node) : "";
    srcpos.cur_line = static_cast<int64_t>(op_line(node));
    srcpos.placed = node;
    srcpos.below = 0;
}

// References.

// A node may have become another kind since it was entered, one that has something else there.
static void note_ref_at(op_t *ref, uint32_t at)
{
    if (names_its_target(ref))
        ref->op_ref_at = at;
}

static void enter_ref(op_t *ref, op_t *label_node)
{
    vec_t<op_t *> &refs = op_extra_make(label_node)->refs;
    if (!refs)
        refs = vec_make<op_t *>(4);
    note_ref_at(ref, vec_size(refs));
    vec_add(refs, ref);
}

void op_add_new_ref(op_t *ref, op_t *label_node)
{
    enter_ref(ref, label_node);
    list_touch(label_node->op_psect);
}

void op_add_ref(op_t *ref, op_t *label_node)
{
    const vec_t<op_t *> refs = op_refs(label_node);
    if (!refs || vec_indexOf(refs, ref) < 0)
        op_add_new_ref(ref, label_node);
}

// Thousands may lead to one label, so nobody looks for a reference that is where it was entered. The order of references
// counts for nothing, so that the last one takes the place.
void op_remove_ref(op_t *ref, op_t *label_node)
{
    const vec_t<op_t *> refs = op_refs(label_node);
    const uint32_t count = vec_size(refs);
    if (count == 0)
        return;
    auto at = static_cast<uint32_t>(ref->op_ref_at);
    if (at >= count || vec_elementAt(refs, at) != ref) {
        const int64_t found = vec_indexOf(refs, ref);
        if (found < 0)
            return;
        at = static_cast<uint32_t>(found);
    }
    op_t *last = vec_elementAt(refs, count - 1);
    vec_setAt(refs, last, at);
    vec_pop(refs);
    note_ref_at(last, at);
    list_touch(label_node->op_psect);
}

void list_build_refs(symbol_t *psect)
{
    for (op_t *op = psect->s_psect->p_code->tail.op_prev; op->op_type != 0; op = op_step_back(op)) {
        if (op->op_type == T_NAME) {
            if (op->op_sym && (op->op_sym->s_flags & (S_GLOBAL | S_UNDEF)) == S_GLOBAL)
                op->op_sym->s_flags |= S_DEFHERE;
        } else if (op_t *label = label_of(op); label && label->op_type == T_NAME) {
            enter_ref(op, label);
        }
    }
}

void list_renew_refs(symbol_t *psect)
{
    for (op_t *op = psect->s_psect->p_code->head.op_next; op->op_type != 0; op = op_step(op)) {
        if (op->op_type != T_NAME)
            continue;
        const vec_t<op_t *> refs = op_refs(op);
        uint32_t kept = 0;
        for (op_t *ref : refs)
            if (ref->op_psect != psect)
                vec_setAt(refs, ref, kept++);
        while (vec_size(refs) > kept)
            vec_pop(refs);
    }
    for (op_t *op = psect->s_psect->p_code->tail.op_prev; op->op_type != 0; op = op_step_back(op))
        if (op_t *label = label_of(op); label && label->op_type == T_NAME && label->op_psect == psect)
            enter_ref(op, label);
}

void list_clear_refs(symbol_t *psect)
{
    for (op_t *op = psect->s_psect->p_code->head.op_next; op->op_type != 0; op = op_step(op))
        if (op->op_type == T_NAME) {
            if (op_refs(op))
                vec_removeAll(op_refs(op));
            if (op->op_sym) {
                uint64_t &flags = op->op_sym->s_flags;
                flags = (flags & ~uint64_t{S_TAKEN | S_WAS_TAKEN}) | (flags & S_TAKEN ? uint64_t{S_WAS_TAKEN} : 0);
            }
        }
}

// Comments.

static FILE *open_summary()
{
    const char *name = tmp_file_name();
    FILE *file = name ? fopen(name, "w+") : nullptr;
    if (!file)
        alert_msg(141, "temp", name ? name : "/tmp");
    return file;
}

static bool comments_are_printed() { return opt.asm_output || opt.list_enabled; }

bool op_keeps_remark(const char *text, size_t len)
{
    return comments_are_printed() || opt.optimise || (len >= 2 && text[0] == ';' && text[1] == '#');
}

void op_comment_add(const char *text, size_t len)
{
    if (len >= 2 && text[0] == ';' && text[1] == '!') {
        if (!st.summary_comments && !(st.summary_comments = open_summary()))
            return;
        fwrite(text, 1, len, st.summary_comments);
        putc('\n', st.summary_comments);
        return;
    }
    if (!comments_are_printed())
        return;
    if (!st.pending_comments) {
        st.pending_comments = vec_make<const char *>(4);
        vec_add(st.pending_comments, "\n");   // a blank line before the block
    }
    char *line = static_cast<char *>(xalloc(len + 2));
    memcpy(line, text, len);
    line[len] = '\n';
    vec_add(st.pending_comments, line);
}

void pending_comments_free()
{
    vec_destroy(st.pending_comments.raw);
    st.pending_comments = {};
}

void pending_comments_to(vec_t<const char *> v)
{
    vec_addAll(v.raw, st.pending_comments.raw);
    pending_comments_free();
}

void summary_comments_emit(FILE *to, bool strip, void (*also)(const char *line))
{
    if (!st.summary_comments)
        return;
    if (fflush(st.summary_comments) != 0 || ferror(st.summary_comments)) {
        const srcpos_nowhere_t nowhere;
        alert_msg(461, "temp", "of the summary comments");
    }
    rewind(st.summary_comments);
    char *line = nullptr;
    size_t room = 0;
    ssize_t len;
    while ((len = getline(&line, &room, st.summary_comments)) > 0) {
        const bool bare = strip && len > 2 && line[0] == ';';
        fwrite(line + (bare ? 2 : 0), 1, static_cast<size_t>(len) - (bare ? 2 : 0), to);
        if (bare && also)
            also(line + 2);
    }
    free(line);
}

void op_comments_copy(op_t *dst, const op_t *src)
{
    ASSERTION(dst != nullptr, "dst != NULL");
    ASSERTION(src != nullptr, "src != NULL");
    if (!op_comments_any(src))
        return;
    op_comments_free(dst);
    op_extra_make(dst)->comments = vec_copy(op_comments(src));
}

void op_comments_append(const op_t *src, op_t *dst)
{
    ASSERTION(src != nullptr, "src != NULL");
    ASSERTION(dst != nullptr, "dst != NULL");
    if (!op_comments_any(src))
        return;
    vec_t<const char *> &to = op_extra_make(dst)->comments;
    if (!to)
        to = vec_make<const char *>(4);
    vec_addAll(to.raw, op_comments(src).raw);
}

void op_comments_free(op_t *node)
{
    ASSERTION(node != nullptr, "np != NULL");
    if (!op_comments_any(node))
        return;
    vec_destroy(op_comments(node).raw);
    op_extra_make(node)->comments = {};
}

void op_comments_each(const op_t *node, void (*fn)(const char *text))
{
    ASSERTION(node != nullptr, "np != NULL");
    ASSERTION(fn != nullptr, "fp != NULL");
    for (const char *text : op_comments(node))
        fn(text);
}
