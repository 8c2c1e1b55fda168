// zellink: joins object files to one program.
//
// A link goes through the files of this folder in this order: `input` reads objects and archives, `reach` takes the members
// that are needed and leaves out what nothing reaches, `psects` joins what modules give of a psect, `symbols` knows names and
// works out expressions, `place` gives addresses, `fields` fills in what the assembler left open and makes the image,
// `output` writes it, `map` tells what lies where, `listing` and `annotation` finish the listings and the annotated sources of the modules. `link` is their order,
// `options` the command line.
//
// `flow` takes the linked code apart into functions; `calls` makes the call graph of them, and lays the areas of functions that
// FNCONF asks for over each other; `check`, with `tables` and `returns`, looks for slips that only the whole program shows.
//
// Places in records are bytes; addresses of psects and symbols count in units of the psect's delta. Nothing here throws or
// stops: what is wrong is told in `messages`, and the link goes on, so that one run tells everything.
#pragma once

#include <deque>
#include <optional>
#include <set>
#include <string_view>
#include <unordered_map>

#include "target.h"
#include "zelobj.h"

enum zl_space : uint8_t { ZL_PROGRAM = 0, ZL_DATA = 1, ZL_CONFIG = 4, ZL_IDLOC = 5, ZL_NOTE = 6, ZL_NOWHERE = 255 };

struct zl_module;
struct zl_group;

// A line of a source, from a place in a piece on.
struct zl_line {
    uint64_t offset;
    const std::string *file;   // null if none was told
    const std::string *line;   // decimal digits
};

// What one module gives of a psect.
struct zl_piece {
    const zl_module *module = nullptr;
    zo_xpsect x{0, 1, 0, 1, "", "", "", false};   // reloc and delta are at least 1
    uint16_t flags = 0;
    uint32_t limit = 0;              // 0: none
    uint64_t low = UINT64_MAX;       // first offset that is used
    uint64_t size = 0;               // end of what is used
    uint64_t base = 0;               // in the group
    ranges_t texts;                  // offsets of its bytes
    std::vector<zl_line> lines;      // in the order of the file
    std::set<zl_piece *> mentions;   // filled in by gc
    zl_group *group = nullptr;
    bool live = true;   // false: left out by gc
    uint64_t boundary() const { return uint64_t{x.reloc} * x.delta; }
    bool absolute() const { return flags & ZO_F_ABS; }
};

// The pieces of a psect, or the only one of a local psect.
struct zl_group {
    std::vector<zl_piece *> pieces;
    std::string name, class_name, with;
    uint8_t space = 0, delta = 1;
    uint64_t limit = UINT64_MAX;                   // last address that it may take, in bytes
    uint64_t size = 0, boundary = 1, wanted = 0;   // bytes; wanted: what its `size` says, 0 for none
    uint64_t address = 0;
    bool absolute = false, overlaid = false, placed = false;
    bool homeless = false;   // there was no room for it, which has been told
};

struct zl_symbol {
    std::string_view name;
    zl_piece *piece;            // null: an absolute value, or an address that `dabs` gives
    int64_t value;              // from the piece's begin, in units; or from the symbol that it stands for
    const std::string *alias;   // that symbol's name, or null
    zl_module *module;
    bool global;
    uint8_t space = ZL_NOWHERE;   // without a piece: of an address
};
using zl_symbols = std::unordered_map<std::string_view, zl_symbol>;

struct zl_module {
    std::string name;   // file, or archive(member)
    std::string path;   // of the file
    const zo_file *file = nullptr;
    std::map<std::string, zl_piece> pieces;
    std::vector<zl_piece *> order;
    zl_symbols locals;
};

struct zl_message {
    std::string where;   // "file:line", an object's name, or empty
    std::string text;
    bool warning = false;
};

struct zl_page {
    std::array<uint8_t, 256> bytes{};
    std::array<const zl_piece *, 256> owner{};   // null: nothing was put there
};

struct zl_options {
    std::string chip, output, format, map, chip_file;
    std::string output_name;   // what it will be known as
    std::vector<std::string> inputs, annotations;
    std::string installation;                    // its folder, if known
    std::map<size_t, std::string> input_names;   // what some of them are known as, by index
    std::map<std::string, ranges_t> classes;     // bytes
    std::map<std::string, uint32_t> addresses;   // of psects, in bytes
    std::set<std::string> keep;                  // psects and symbols that gc leaves in
    std::optional<uint32_t> vectors_at;          // of the table of interrupt vectors
    bool gc = false, quiet = false, call_graph = false, check = false, listing = false, vectors = false;
};

// An undefined symbol is told at the first few places that use it, and then by their number.
constexpr size_t ZL_PLACES_TOLD = 3;
using zl_missing = std::map<std::string, std::set<std::string>>;   // places by symbol

struct zl_linker {
    const zl_options &options;
    const target_t &target;
    bool draft = false;   // a link made only to see who calls whom
    std::vector<zl_message> messages{};
    std::deque<zl_module> modules{};
    std::map<std::string, zl_group> groups{};
    std::vector<zl_group *> order{};
    zl_symbols globals{};
    std::deque<std::string> names{};       // of symbols and files as no object has them
    std::map<uint8_t, ranges_t> used{};    // by zl_memory; in order, nothing touching
    std::map<uint32_t, zl_page> image{};   // by address / 256
    std::vector<const zl_piece *> left_out{};
    zl_missing missing{};
    std::map<uint32_t, uint32_t>
        operands{};                  // of instructions of program memory: which data address the file operand means
    std::set<uint32_t> mentions{};   // places in program memory whose address is used but for a branch or call
    bool has_start = false;
    uint32_t start = 0;
};

// Messages. `text` of an error says what is wrong and, behind a colon, what to do.
void zl_complain(zl_linker &l, const std::string &where, const std::string &text, bool warning = false);
void zl_complain(zl_linker &l, const zl_piece &p, uint64_t offset, const std::string &text,
                 bool warning = false);   // with source line and psect
// The lines that give a byte, in order of offsets: an `org` or `ds` stands at a place that may be another psect's.
std::vector<zl_line> zl_lines_of_bytes(const zl_piece &p);
std::string zl_line_of(const zl_piece &p, uint64_t offset);   // "file:line", or empty if the object doesn't tell
bool zl_failed(const zl_linker &l);
std::string zl_quoted(const std::string &name);

// input. The files in the order of the command line; archives with all their members.
struct zl_source {
    std::string name, path;       // archive(member), and its file
    std::vector<uint8_t> bytes;   // what the records look into
    zo_file file;
    bool member = false, wanted = true;   // of an archive: wanted only if something needs it
};
void zl_read_inputs(const zl_options &o, std::deque<zl_source> &sources, std::vector<zl_message> &messages);
void zl_add_input(const std::string &path, const std::vector<uint8_t> &bytes, std::deque<zl_source> &sources,
                  std::vector<zl_message> &messages);   // one that has been read

// reach
void zl_choose_members(std::deque<zl_source> &sources);
// The chip that all objects are for, or an empty string and a message.
std::string zl_common_chip(const std::deque<zl_source> &sources, std::vector<zl_message> &messages);
void zl_collect_garbage(zl_linker &l);

// Calls `use` with each symbol that a relocation names.
template <typename F> void zl_each_symbol_used(const zo_expr &expr, const F &use)
{
    for (const zo_token &t : expr)
        if (t.op == ZO_OP_SYMBOL || t.op == ZO_OP_SEG_SYMBOL)
            use(t.name);
}
template <typename F> void zl_each_symbol_used(const zo_reloc_entry &e, const F &use)
{
    if (zo_field_kind(e.type) == ZO_ADD_SYMBOL)
        use(e.name);
    zl_each_symbol_used(e.value, use);
    zl_each_symbol_used(e.limit, use);
}

// psects
void zl_collect(zl_linker &l, zl_module &m);   // pieces and their lines
void zl_join(zl_linker &l);                    // groups, and the pieces' places in them
uint64_t zl_rounded(uint64_t at, uint64_t boundary);

// symbols
struct zl_sum {
    int64_t value;
    bool data;           // a data address
    bool code = false;   // an address of program memory
};
void zl_define_all(zl_linker &l, zl_module &m);
void zl_compare_signatures(zl_linker &l);
const zl_symbol *zl_find(const zl_linker &l, const zl_module &m, const std::string &name);   // null if there is none
// Follows aliases. False if the chain ends nowhere.
bool zl_symbol_value(const zl_linker &l, const zl_symbol &s, zl_sum &sum, zl_piece **piece = nullptr);
uint64_t zl_address(const zl_piece &p);   // bytes
bool zl_is_value(const zo_symbol &s);     // neither a line, a file nor something undefined
// What an expression at a place of a piece comes to; 0 and a message if it has no value. `mentions` gets the addresses of program
// memory that it is made of.
zl_sum zl_evaluate(zl_linker &l, const zl_module &m, const zl_piece *p, uint64_t offset, const zo_expr &expr,
                   std::vector<int64_t> *mentions = nullptr);

// place
uint8_t zl_memory(uint8_t space);   // spaces that share the program's addresses are ZL_PROGRAM
struct zl_class {
    ranges_t ranges;
    bool at_start;   // a psect of it begins where the first range does
};
zl_class zl_class_of(const zl_linker &l, const zl_group &g);
void zl_reserve(ranges_t &used, range_t range);
ranges_t zl_gaps(const ranges_t &used, range_t range);
void zl_place(zl_linker &l);

// fields
void zl_emit(zl_linker &l);

// flow: the linked code of program memory, taken apart.
struct zl_call {
    uint32_t to, at;       // at: the instruction; not told if only the object's records know of the call
    unsigned pushed;       // return addresses that it finds on top of those of the function's begin, and adds
    bool jump, recorded;   // jump: the function is left for good; recorded: no instruction does it
};
struct zl_function {
    uint32_t entry = 0;
    std::string name;
    std::map<uint32_t, unsigned> code{};   // addresses of its instructions, with what is on the stack there
    std::vector<zl_call> calls{};          // in order of `at`, without those that FNBREAK cuts
    uint32_t bytes = 0;
};
struct zl_root {
    uint32_t entry;
    std::string what;   // "main", "interrupt at 0x8", "interrupt SRX at 0x48", or "root"
    bool interrupt;
};
struct zl_flow {
    const zl_linker &l;
    std::vector<uint8_t> bytes{};              // of program memory
    std::vector<const zl_piece *> owner{};     // null: nothing was put there
    std::map<uint32_t, std::string> names{};   // of places in program memory
    std::map<uint32_t, zl_function> functions{};
    std::vector<zl_root> roots{};
    bool vector_table = false;      // each source of interrupts has a vector of its own
    std::set<uint32_t> pointed{};   // functions that records tell to be called by address
};
// Where control goes from an instruction.
struct zl_next {
    std::vector<uint32_t> to;   // the next one, where a skip or a branch leads
    uint32_t callee = 0;
    bool calls = false, returns = false;
    bool computed = false;   // it goes, or calls, somewhere that only the run knows
};
zl_flow zl_take_apart(const zl_linker &l);
zo_code zl_code_at(const zl_flow &f, uint32_t address);   // `name` is null where there is no instruction
zl_next zl_next_of(const zl_flow &f, uint32_t address, const zo_code &c);

// Calls `visit` with each instruction that control reaches from `from`, those of functions that it calls among them if `deep`.
// `leaves` tells of an address that it is another function's begin.
template <typename V, typename L = bool (*)(uint32_t)>
void zl_walk(
    const zl_flow &f, uint32_t from, bool deep, const V &visit, const L &leaves = [](uint32_t) { return false; })
{
    std::set<uint32_t> seen{from};
    std::vector<uint32_t> open{from};
    while (!open.empty()) {
        const uint32_t at = open.back();
        open.pop_back();
        const zo_code c = zl_code_at(f, at);
        if (!c.name)
            continue;
        zl_next n = zl_next_of(f, at, c);
        visit(at, c, n);
        if (deep && n.calls)
            n.to.push_back(n.callee);
        for (uint32_t to : n.to)
            if (!leaves(to) && seen.insert(to).second)
                open.push_back(to);
    }
}
bool zl_function_address(const zl_flow &f, const zl_module &m, const std::string &name, uint32_t &address);
std::string zl_place_name(const zl_flow &f, uint32_t address);   // a label, a label and an offset, or a number
// The address that a one-byte file operand has, if the instruction has one and addresses the access bank; else UINT32_MAX.
uint32_t zl_access_address(const target_t &t, const zo_code &c);

// calls
struct zl_area {
    std::string function;
    const zl_module *module;   // by whose names the function is found
    uint32_t arguments, locals;
    uint64_t start;
};
struct zl_areas {
    std::string psect, locals_prefix, arguments_prefix;
    std::vector<zl_area> functions;   // those whose areas are used
    uint64_t size;
};
zl_areas zl_wanted_areas(zl_linker &l);
void zl_overlay(zl_linker &l, zl_areas &areas, const zl_flow &f);   // gives each its start
void zl_add_areas(zl_linker &l, const zl_areas &areas);             // as a module of their own
std::string zl_call_graph(zl_linker &l, const zl_flow &f);          // complains of what doesn't fit the stack

// check. Warns of what may be wrong in the program, and complains of what is.
void zl_check(zl_linker &l, const zl_flow &f);
// tables. Part of the check; `reached` are the instructions that control comes to, with their bytes.
void zl_check_tables(zl_linker &l, const zl_flow &f, const std::map<uint32_t, uint32_t> &reached);

// returns. Part of the check.
void zl_check_returns(zl_linker &l, const zl_flow &f);

// output
std::string zl_hex(const zl_linker &l);
std::string zl_binary(const zl_linker &l);
std::string zl_elf(const zl_linker &l);   // in a file of its own

// map
std::string zl_memory_table(const zl_linker &l, bool each_bank);   // else unused banks are one row
std::string zl_map(const zl_linker &l);

// listing. The listings of the modules that have one, with final numbers; complains of those that can't be finished.
struct zl_listing {
    std::string path, relocs, text;   // relocs: the file that it is made of, if that is another one
};
std::vector<zl_listing> zl_listings(zl_linker &l);

// annotation. The annotated sources that the options name, likewise.
std::vector<zl_listing> zl_annotations(zl_linker &l);

// options. Gives back an error text, empty on success; `help` and `version` are then set if that is what was asked for.
std::string zl_parse_options(const std::vector<std::string> &arguments, zl_options &o, bool &help, bool &version);

// link: the whole of it, from the modules to the image.
void zl_link(zl_linker &l, const std::deque<zl_source> &sources);

// For programs that link in memory: the errors, empty if there is none. The image is of use only then.
struct link_module {
    std::string name;
    zo_file file;
};
struct image_t {
    std::vector<uint8_t> program;             // program memory from address 0; 0xFF where nothing was put
    std::map<std::string, int64_t> symbols;   // of all modules, in addressing units
    std::map<uint32_t, std::string> data;     // names of data addresses
    uint32_t start = 0;                       // 0 if no module told one
};
std::vector<std::string> link_modules(const std::vector<link_module> &modules, const target_t &target, image_t &image);
