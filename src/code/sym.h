// sym: the symbol table.
//
// One table holds everything that has a name: labels, constants, externals, macros, psects and psect classes. A record
// never moves and lives until the process ends; other modules hold pointers to records, never names.
//
// The order in which object records come out is the order of a table of 60493 buckets with a fixed hash, newest record
// first in each bucket. That hash is weak on names that differ in a few digits only, as a compiler's labels do. So names
// are looked up through an index of their own with a strong hash, and the bucket order is worked out once, at output.
#pragma once

#include <cstddef>
#include <cstdint>

#include "code/expr.h"
#include "common/set.h"
#include "common/vector.h"

struct op_t;
struct code_list_t;
struct psect_t;
struct macro_t;

// s_flags. Of the psect's and the class's records: S_PSECT or S_CLASS alone.
enum : uint64_t {
    S_GLOBAL = 0x10,
    S_PSECT = 0x100,   // the record is a psect
    S_UNDEF = 0x200,   // not defined (yet)
    S_LOCAL = 0x800,
    S_MACRO = 0x1000,   // the record is a macro
    S_MACROARG = 0x2000,
    S_CLASS = 0x8000,   // the record is a psect class
    S_EXTERN = 0x10000,
    S_DEFHERE = 0x20000,   // global label counted as defined in this module
    S_EQU = 0x40000,
    S_FNADDR = 0x80000,
    S_FNROOT = 0x100000,
    S_SIGNAT = 0x200000,
    S_SET = 0x400000,   // defined by `set`; also the predefined symbols
    S_FNSIZE = 0x2000000,
    S_DABS = 0x10000000,
    S_TAKEN = 0x40000000,       // label whose place is used by more than jumps and calls; worked out by the optimiser
    S_WAS_TAKEN = 0x80000000,   // the same as it was worked out before
    S_SPACE_MASK = S_PSECT | S_CLASS,   // tells the name spaces apart
};

enum : int16_t { REFS_KEEP = 32767 };   // s_refs of a symbol that never counts as unused; the count stops there
enum : uint8_t { SPACE_NOTE = 6 };

// p_flags: those of the psect directive, with the bits that the object file has.
enum psect_flag_t : uint16_t {
    P_GLOBAL = 0x10,
    P_PURE = 0x20,
    P_OVRLD = 0x40,
    P_ABS = 0x80,
    P_COMMON = 0x200,
    P_BIT = 0x400,
    P_LOCAL = 0x800,
    P_NOTE = 0x1000,
};

// p_optim
// clang-format off
enum : uint32_t {
    PO_GIVEN = 0x001, PO_INLINE = 0x008, PO_PA = 0x010, PO_JUMP = 0x020, PO_PEEP = 0x040, PO_REMOVE = 0x080,
    PO_MINOCG = 0x100, PO_CODECOV = 0x200,
};
// clang-format on

// What the call-graph directives told of a function; made when the first of them names it.
struct fn_t {
    set_t *s_calls, *s_args, *s_breaks;   // of symbol_t pointers, by name, ties by s_seqno; null until used
    set_t *s_indirs;                      // of signatures, ascending
    uint16_t s_signat, s_autosize, s_argsize;
};

struct symbol_t {
    const char *s_name;
    union {
        value_t s_value;    // what a plain symbol stands for
        psect_t *s_psect;   // of a psect
    };
    macro_t *s_macro;        // of a macro, which may have been used as a plain symbol before
    const char *s_deffile;   // where messages show its value: its last `equ` or `set`, or else where the record was made
    int64_t s_defline;
    symbol_t *s_owner;   // of a label: the psect that it lies in
    union {
        fn_t *s_fn;         // null unless a call-graph directive names it
        int64_t s_tlabno;   // of a temporary label's record, which has no name: its number
    };
    op_t *s_defop;       // of a label: the NAME node that defines it
    symbol_t *s_chain;   // the table's: the older record of the name and space that this one hides
    uint64_t s_flags;
    uint32_t s_seqno;     // counted up from 1 for every record; breaks ties in every sort
    uint32_t s_hash;      // of the name, of the look-up index
    int16_t s_refs;       // uses and definitions; see sym_add_ref
    uint32_t s_labelno;   // of an anonymous label
};

struct psect_t {
    uint64_t p_base, p_top, p_curr;   // bytes: lowest position, size, location counter of the size and emit passes
    uint64_t p_size, p_reloc;
    symbol_t *p_class, *p_with;
    code_list_t *p_code;
    vec_t<const char *> p_comments;
    uint32_t p_depth;   // in its chain of `with` psects, worked out at output
    int32_t p_number;   // from 0, in order of creation
    uint32_t p_group, p_optim;
    uint32_t p_walks;                // that the optimiser's driver has made over it
    uint32_t p_looker;               // the optimiser's last pass that has looked at it from elsewhere
    uint64_t p_changed;              // as list_changes, when its list was last altered
    uint64_t p_settled;              // the same when a pass over it had nothing to do; 0: none since it has changed itself
    vec_t<symbol_t *> p_looked_at;   // other psects that this pass looked at
    uint16_t p_flags, p_limit;
    uint8_t p_space;
    uint8_t p_delta;   // bytes per addressing unit; 0 until given, 1 from sizing on
    bool p_inline, p_keep, p_noexec, p_lowdata;
    uint8_t p_inlstate;   // of inlining: 0 not checked, 1 may be inlined, 2 may not
};

// An absolute psect: its labels are addresses.
inline bool psect_is_abs(const symbol_t *psect)
{
    return (psect->s_psect->p_flags & (P_ABS | P_OVRLD)) == (P_ABS | P_OVRLD);
}
// A number of addressing units, where it meets bytes: those are plain numbers.
struct units_t {
    uint64_t count;
};
// Bytes per addressing unit, also before the psect has been given its p_delta.
inline uint64_t psect_delta(const psect_t *p) { return p->p_delta ? p->p_delta : 1; }
inline units_t bytes_to_units(const psect_t *p, uint64_t bytes) { return {bytes / psect_delta(p)}; }   // whole ones
inline int64_t units_here(const psect_t *p)
{
    return static_cast<int64_t>(bytes_to_units(p, p->p_curr).count);
}   // of p_curr

extern vec_t<code_list_t *> psect_list;   // all psects, in order of creation
extern symbol_t *cur_psect;               // receives statements: the parser's; a pass behind it takes an in_psect_t
extern symbol_t *abs_psect;               // the built-in psect with the empty name

// As long as one lives, `psect` is the current one; null: there is none.
struct in_psect_t {
    symbol_t *before = cur_psect;
    explicit in_psect_t(symbol_t *psect) { cur_psect = psect; }
    ~in_psect_t() { cur_psect = before; }
    in_psect_t(const in_psect_t &) = delete;
    in_psect_t &operator=(const in_psect_t &) = delete;
};

void sym_init();
// Finds or makes a record. space: 0, S_PSECT or S_CLASS. Message 309 when the table is full.
symbol_t *sym_enter(const char *name, size_t len, uint64_t space);
symbol_t *sym_enter(const char *name, uint64_t space);
symbol_t *psect_new(const char *name, uint16_t flags);   // a new record, which hides any psect of the name
symbol_t *sym_find(const char *name, size_t len);        // plain symbols only; null if there is none
symbol_t *sym_find(const char *name);
symbol_t *sym_new(const char *name);   // a record in no table, whose value is a reference to itself
symbol_t *sym_newlabel();              // anonymous, in no table; "L%u" of a number that no name of the program made so uses
symbol_t *sym_define_abs(const char *name, int64_t value);
symbol_t *sym_clone(const symbol_t *s);   // a copy of every field, in no table
// Of a record that is in no table, which is found by its name once it is linked.
void sym_rename(symbol_t *s, const char *name);
void sym_link(symbol_t *s);              // into the table, hiding any record of the name and space
void sym_unlink(symbol_t *s);            // out of the table, showing what it hid
void sym_free(symbol_t *s);              // a record that is in no table and that nothing points to
uint32_t sym_last_seqno();               // of the record made last: those that come have higher ones
size_t sym_longest_name();               // characters, of all names entered
uint32_t sym_bucket(const char *name);   // 0 to 60492
vec_t<symbol_t *> sym_all();             // all records of the table, in no order; a new vector
vec_t<symbol_t *> sym_slot_order();      // the same records in bucket order
vec_t<symbol_t *> sym_name_order();      // the same records by name, ties by s_seqno, for assembly text
vec_t<symbol_t *> psect_order();         // psects as the object file has them; message 783
fn_t *sym_fn(symbol_t *s);               // s_fn, made at first use
set_t *sym_set_new();                    // a set of symbols by name, ties by s_seqno
inline void sym_add_ref(symbol_t *s)     // s_refs + 1, stopping at REFS_KEEP
{
    if (s->s_refs != REFS_KEEP)
        s->s_refs++;
}
// The object file's symbols "_inlined$<name>": value 1 is told as 3 for a function in a psect with p_keep.
void inline_note(const symbol_t *symbol, const symbol_t *psect, int64_t value);
void inline_symbols();   // makes those noted
