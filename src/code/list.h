// list: the program in memory.
//
// Every statement that produces code, data, a label or a position change is one node, op_t, in the code list of its
// psect. The list is the only form of the program: the parser appends to it, the optimiser rewrites it, the output
// modules walk it. A list has a sentinel of op_type 0 at each end, so that no walk needs a test for null.
#pragma once

#include <cstdint>
#include <cstdio>

#include "code/ops.h"
#include "code/sym.h"
#include "common/ref.h"

enum opnd_kind_t : uint32_t { OPND_NONE = 0, OPND_LIT = 1, OPND_DATA = 2, OPND_CODE = 3, OPND_BIT = 4 };

struct opnd_t {
    opnd_kind_t opnd_kind : 8;
    access_t opnd_access : 24;   // of OPND_DATA: as op_access, or ACCESS_UNSET
    value_t opnd_value;
};

// op_flags
enum : uint32_t {
    OPF_VOLATILE = 0x02,
    OPF_MARK = 0x08,       // scratch
    OPF_SKIPPED = 0x10,    // in a false arm: linked, and passed over by every walk
    OPF_COMPILED = 0x20,   // the line held ";#"
    OPF_NOOPT = 0x40,
    OPF_ARM_OFF = 0x80,    // of `if` and its like: what follows doesn't count
    OPF_INDEXED = 0x100,   // the file operand was written in square brackets
    OPF_PINNED = 0x200,    // code counts on its place: it stays as it is, and as large (optim/pins.h)
    OPF_WORDS = 0xC00,     // of a pinned branch: its size
    OPF_WORD = 0x400,
    OPF_ALL = 0x3FFF,
    OPF_FIXED = OPF_COMPILED | OPF_NOOPT | OPF_PINNED,   // the optimiser must not touch the node
};

struct pa_node_t;
struct data_run_t;
struct op_extra_t;

// Programs of half a million nodes are ordinary, and most of the time goes into waiting for their memory. So a node has what
// most of them need, with references of four bytes: its links, the place that messages show, one operand. The second operand,
// which one of five has, is a record of its own, see op_opnd2, as is what few have, see op_extra. Items of data are packed,
// see data. A copy of a node shares these records, and is for reading.
struct op_t {
    token_t op_type;     // the statement's kind; T_NONE only in sentinels
    uint16_t op_subop;   // opcode template; item width of DB; 0 or 1 of MESSG
    uint32_t op_flags : 14;
    dest_t op_dest : 9;           // DEST_F or DEST_W
    access_t op_access : 9;       // ACCESS_B, ACCESS_C, or ACCESS_UNSET
    ref<op_t> op_next, op_prev;   // op_prev of a free node: the next free one
    ref<symbol_t> op_psect;
    uint32_t op_id;               // from 1; 0: free, or must not be deleted
    uint32_t op_offs;             // bytes from the psect's start; set by the size pass
    uint32_t op_short_line;       // op_line, or WIDE_LINE
    ref<const char> op_in_file;   // op_file; null for ""
    ref<op_extra_t> op_more;      // null: it has nothing of that
    ref<opnd_t> op_second;        // null: it has none
    union {                       // by kind:
        // ALIGN: bytes. ORG: units. NUMLABEL: the number; its record is op_opnd1.opnd_value.v_sym. See op_bytes and its like.
        ref<const uint64_t> op_number;
        ref<symbol_t> op_sym;      // NAME
        ref<const char> op_text;   // MESSG, TITLE, INCLUDE
        ref<data_run_t> op_data;   // DB: its items, see data
        uint32_t op_ref_at;        // jumps and calls: where they stand in op_refs of their label, if they still do
    };
    union {                         // scratch of the optimiser's modules:
        packed_uint64_t op_order;   // grows along the list, with gaps
        ref<pa_node_t> op_pa;       // what procedural abstraction knows of the node
        ref<op_t> op_ahead;         // a node behind this one: errata
    };
    opnd_t op_opnd1;
};
static_assert(!XALLOC_LOW || sizeof(op_t) == 76);

// What few nodes have; made when the first of it comes.
struct op_extra_t {
    vec_t<const char *> comments;   // whole-line comments before the statement; null, or not empty
    const char *remark;             // comment behind the statement
    vec_t<op_t *> refs;             // of a label: the nodes that lead to it; null unless built
    uint64_t line;                  // where op_short_line is WIDE_LINE
    const char *source_file;        // for debuggers; may be null
    uint64_t source_line;           // 0 unknown
    uint32_t callstack;
};
enum : uint32_t { WIDE_LINE = UINT32_MAX };   // a directive told a line that takes more than 32 bits

extern const op_extra_t op_no_extra;
inline const op_extra_t *op_extra(const op_t *op) { return op->op_more ? op->op_more : &op_no_extra; }
op_extra_t *op_extra_make(op_t *op);   // to write to

extern const opnd_t op_no_opnd;
inline const opnd_t *op_opnd2(const op_t *op) { return op->op_second ? op->op_second : &op_no_opnd; }
opnd_t *op_opnd2_make(op_t *op);   // to write to
void op_set_opnd2(op_t *op, const opnd_t *o);

inline uint64_t op_bytes(const op_t *op) { return *op->op_number; }    // of ALIGN
inline units_t op_units(const op_t *op) { return {*op->op_number}; }   // of ORG
inline uint64_t op_tlab(const op_t *op) { return *op->op_number; }     // of NUMLABEL
void op_set_number(op_t *op, uint64_t number);

inline const char *op_remark(const op_t *op) { return op_extra(op)->remark; }
void op_set_remark(op_t *op, const char *text);
inline vec_t<const char *> op_comments(const op_t *op) { return op_extra(op)->comments; }
inline vec_t<op_t *> op_refs(const op_t *op) { return op_extra(op)->refs; }
void op_set_refs(op_t *op, vec_t<op_t *> refs);
inline uint32_t op_callstack(const op_t *op) { return op_extra(op)->callstack; }
inline void op_set_callstack(op_t *op, uint32_t depth)
{
    if (depth != op_callstack(op))
        op_extra_make(op)->callstack = depth;
}

struct code_list_t {
    symbol_t *psect;
    op_t head, tail;
};

// The next node of a walk over a whole list, or the one before. Nodes mostly lie in the order of the list, so what comes in
// a while is asked for already: a large list doesn't fit the caches, and waiting for it would be most of the work.
inline op_t *op_step(const op_t *op)
{
    const char *ahead = reinterpret_cast<const char *>(op) + 16 * sizeof *op;
    __builtin_prefetch(ahead);
    return op->op_next;
}
inline op_t *op_step_back(const op_t *op)
{
    const char *ahead = reinterpret_cast<const char *>(op) - 16 * sizeof *op;
    __builtin_prefetch(ahead);
    return op->op_prev;
}

code_list_t *list_new(symbol_t *psect);   // empty: the sentinels are linked to each other
// Every alteration of a list has a number, from 1. Who links nodes or changes references through the functions here has told of
// it; list_touch is for nodes that are altered in place.
extern uint64_t list_changes;   // the last one
inline void list_touch(const symbol_t *psect) { psect->s_psect->p_changed = ++list_changes; }
inline bool list_empty(const code_list_t *l) { return l->head.op_next->op_type == 0; }

// A new node, not linked. It takes the input's current position and marks, and the comments that wait.
op_t *op_new();
uint32_t op_last_id();   // of the node made last
// Links `node` and returns it. A node without a source position takes that of `where`, unless the program is to be listed
// as it was written.
op_t *op_insert_after(op_t *where, op_t *node);
void op_link_after(op_t *where, op_t *node);   // links and no more; the node gets the psect of `where`
void op_unlink(op_t *node);                    // the node stays intact
int op_delete(op_t *node);                     // for good; its comments move to the next node. Returns 1
int op_delete_if_live(op_t *node);             // 0 if the node is free or must stay
op_t *op_ensure_label(op_t *node);             // the label node right before `node`, made if there is none
op_t *past_labels(op_t *op);                   // the first node from `op` on that is no label
op_t *before_labels(op_t *op);                 // the same, backward
// Stands between instructions and isn't what a skip skips: label, condition, padding that may be none, ...
bool op_is_silent(const op_t *op);
op_t *op_past_silent(op_t *op);   // the first node from `op` on that isn't silent; null for null
bool op_is_skip(const op_t *op);
// The nearest node before it that isn't silent is a skip. If any list ends in a skip, which other psects follow it is for the
// linker to say: then the first node of each may be the one that is skipped.
bool after_skip(const op_t *op);
extern bool skip_at_end;                  // a list does
op_t *op_target(const op_t *node);        // where a jump, call or skip leads, or null
void op_set_position(const op_t *node);   // messages show the node's position from now on
void op_note_position(op_t *node);        // messages about the node will show the present position

// The place for messages, and the source line for debuggers: 0 is unknown, and that file may be null.
inline const char *op_file(const op_t *op) { return op->op_in_file ? op->op_in_file : ""; }
inline uint64_t op_line(const op_t *op) { return op->op_short_line != WIDE_LINE ? op->op_short_line : op_extra(op)->line; }
inline const char *op_source_file(const op_t *op) { return op_extra(op)->source_file; }
inline uint64_t op_source_line(const op_t *op) { return op_extra(op)->source_line; }
void op_set_place(op_t *op, const char *file, uint64_t line);
void op_set_source_line(op_t *op, const char *file, uint64_t line);

// `node` gets the place of `from` for messages, or its source line for debuggers.
inline void op_take_position(op_t *node, const op_t *from)
{
    node->op_in_file = from->op_in_file;
    node->op_short_line = from->op_short_line;
    if (node->op_short_line == WIDE_LINE)
        op_extra_make(node)->line = op_line(from);
}
inline void op_take_source_line(op_t *node, const op_t *from)
{
    if (node->op_more || from->op_more)   // few have one
        op_set_source_line(node, op_source_file(from), op_source_line(from));
}
inline void op_drop_source_line(op_t *node) { op_set_source_line(node, nullptr, 0); }

// Reference lists. They are complete when those of all psects have been cleared and then built; op_delete keeps them true.
// Building enters what the psect's nodes refer to, and marks its global labels with S_DEFHERE. It doesn't look whether
// something is there already, so that it takes no longer when thousands refer to one label.
void list_build_refs(symbol_t *psect);
void list_clear_refs(symbol_t *psect);
void list_renew_refs(symbol_t *psect);              // those within the psect; what comes from other psects stays
void op_add_ref(op_t *ref, op_t *label_node);       // nothing happens if it is there already
void op_add_new_ref(op_t *ref, op_t *label_node);   // one that isn't; thousands may lead to one label
void op_remove_ref(op_t *ref, op_t *label_node);

// Comments. They are kept where they may come to be printed, and remarks also where the optimiser reads them, or they are
// the mark of a line that a compiler wrote.
bool op_keeps_remark(const char *text, size_t len);
// `text` runs for `len` characters; it is copied. One that begins ";!" is a summary comment and belongs to the
// whole program; any other waits for the next node.
void op_comment_add(const char *text, size_t len);   // message 141
void pending_comments_free();
void pending_comments_to(vec_t<const char *> v);   // appends, and drops them
// Writes the summary comments to `to`. With `strip` they lose their mark, and go to `also` as well, one line at a time
// with its newline; null: nowhere else.
void summary_comments_emit(FILE *to, bool strip, void (*also)(const char *line) = nullptr);
void op_comments_copy(op_t *dst, const op_t *src);   // replaces those of dst, if src has any
void op_comments_append(const op_t *src, op_t *dst);
void op_comments_free(op_t *node);
void op_comments_each(const op_t *node, void (*fn)(const char *text));   // no caller
inline bool op_comments_any(const op_t *node) { return static_cast<bool>(op_comments(node)); }
