// zelobj: reads object files and relocation listing files.
//
// zo_read turns a file's bytes into plain records, one for each record of the file, in the file's order. Everything else
// works on these records: zo_verify looks for faults, zo_print makes text of them, a linker could resolve them. The code
// is a second opinion on the format and shares nothing with the assembler that writes it.
//
// All strings and vectors are owned by the record that holds them. Nothing here throws on bad input: a body that cannot
// be decoded leaves its record with a reason in `error`, a broken frame ends the reading with a reason in the file's.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

// clang-format off
enum zo_type : uint8_t {
    ZO_TEXT = 1, ZO_PSECT, ZO_RELOC, ZO_SYM, ZO_START, ZO_END, ZO_IDENT, ZO_XPSECT, ZO_SEGMENT, ZO_XSYM, ZO_SIGNAT,
    ZO_FNINFO, ZO_FNCONF, ZO_SEGSTART, ZO_PSECTLIM, ZO_LISTRELOC, ZO_LR_TEXT, ZO_LR_RELOC, ZO_COND_EXPR, ZO_DABS,
    ZO_UNKNOWN, ZO_FNALIGN, ZO_PSECTBOUND, ZO_LAST = ZO_PSECTBOUND,
};
// clang-format on

enum : size_t { ZO_HEAD = 3, ZO_BODY_MAX = 512, ZO_BODY_WRITTEN = 509 };   // bytes: what is read, what is written

// Psect flags.
enum : uint16_t {
    ZO_F_GLOBAL = 0x0010,
    ZO_F_PURE = 0x0020,
    ZO_F_OVRLD = 0x0040,
    ZO_F_ABS = 0x0080,
    ZO_F_BIT = 0x0400,
    ZO_F_NOTE = 0x1000,
};

// Symbol flags.
// clang-format off
enum : uint16_t {
    ZO_S_LINE = 4, ZO_S_FILE = 5, ZO_S_UNDEF_LOCAL = 6, ZO_S_LOCAL = 7, ZO_S_GLOBAL = 16, ZO_S_UNDEF = 22, ZO_S_ALIAS = 24,
};
// clang-format on

// Postfix code. A leaf pushes a value, the unary operators change the top, a binary operator takes its left operand
// from the top and its right operand from below.
// clang-format off
enum : uint8_t {
    ZO_OP_END = 0, ZO_OP_LOW = 1, ZO_OP_HIGH = 2, ZO_OP_CONST = 3, ZO_OP_ADD = 4, ZO_OP_SUB, ZO_OP_MUL, ZO_OP_DIV, ZO_OP_SHL,
    ZO_OP_SHR, ZO_OP_AND, ZO_OP_OR, ZO_OP_XOR, ZO_OP_NOT = 13, ZO_OP_NEG = 14, ZO_OP_PSECT = 16, ZO_OP_MOD = 17,
    ZO_OP_CHECK_END = 18, ZO_OP_CHECK = 19, ZO_OP_DEFINED = 20, ZO_OP_SYMBOL = 32, ZO_OP_SEG_PSECT = 144,
    ZO_OP_SEG_SYMBOL = 160,
};
// clang-format on

struct zo_token {
    uint8_t op;
    uint32_t number;    // of ZO_OP_CONST
    std::string name;   // of the leaves that name something
};
using zo_expr = std::vector<zo_token>;   // in the file's order; leaves exactly one value on the stack

// A field's type byte, in RELOC and LR_RELOC: what is added to it, and its width.
enum zo_kind : uint8_t { ZO_ADD_PSECT = 1, ZO_ADD_SYMBOL = 2, ZO_COMPLEX = 3, ZO_CHECK, ZO_BAD_KIND };
zo_kind zo_field_kind(uint8_t type);
unsigned zo_field_bits(uint8_t type);   // 0 for a range check
bool zo_field_in_bits(uint8_t type);    // the width is told in bits, not in bytes

struct zo_ident {
    std::array<uint8_t, 6> order;
    std::string chip;
    uint8_t major, minor;
};
constexpr uint32_t ZO_FILE_RELATIVE = 1;   // value of a file entry whose name begins at the installation
constexpr std::array<uint8_t, 6> ZO_ORDER = {0, 1, 2, 3, 0, 1};
constexpr uint8_t ZO_MAJOR = 3, ZO_MINOR = 11;   // of the format
struct zo_psect {
    uint16_t flags;
    std::string name;
};
struct zo_xpsect {
    uint32_t size;
    uint16_t reloc;
    uint8_t space, delta;
    std::string name, class_name, with;   // the last two empty if there is none
    bool reserved;                        // a byte that should be 0 isn't; likewise below
};
struct zo_psectlim {
    uint16_t limit;
    std::string name;
    bool reserved;
};
struct zo_psectbound {
    uint8_t tag;
    uint16_t flags;
    uint32_t base, top;   // bytes
    uint8_t space, delta;
    std::string name, class_name;
};
struct zo_symbol {
    uint32_t value;
    uint16_t flags;
    std::string psect, name;
};
struct zo_sym {
    std::vector<zo_symbol> symbols;
};
struct zo_text {
    uint32_t offset;
    std::string psect;
    std::vector<uint8_t> data;
};   // offset in bytes
struct zo_reloc_entry {
    uint16_t offset;   // in the data of the TEXT before, in bytes
    uint8_t type;
    std::string name;   // psect or symbol of a simple entry; the thing checked by a range check
    zo_expr value;      // of a complex entry or range check
    zo_expr limit;      // of a range check
};
struct zo_reloc {
    std::vector<zo_reloc_entry> entries;
};
struct zo_signat {
    uint16_t signature;
    std::string name;
};
enum zo_fn : uint8_t { ZO_FNCALL = 1, ZO_FNARG, ZO_FNINDIR, ZO_FNADDR, ZO_FNSIZE, ZO_FNROOT, ZO_FNBREAK = 9 };
struct zo_fninfo_entry {
    uint8_t subcode;
    std::string function, name;
    uint32_t number, autosize;
};   // by subcode
struct zo_fninfo {
    std::vector<zo_fninfo_entry> entries;
};
struct zo_fnconf {
    std::string names[3];
    uint16_t number;
};
struct zo_fnalign {
    uint16_t group;
    std::vector<std::string> names;
};
struct zo_dabs_entry {
    uint8_t space;
    uint32_t address, size;
    std::string name;
};
struct zo_dabs {
    std::vector<zo_dabs_entry> entries;
};
struct zo_start {
    uint32_t offset;
    std::string psect;
};
struct zo_end {
    bool reserved;
};
struct zo_listreloc {
    std::string relocs, listing;
};
struct zo_cond_expr {
    zo_expr condition;
};
struct zo_lr_text {
    std::string text;
};
struct zo_lr_reloc {
    uint32_t base;
    uint8_t type, columns;
    zo_expr value;
    bool reserved;
};
struct zo_other {
};   // SEGMENT, XSYM, SEGSTART, Unknown: passed over; and a body with an error

struct zo_record {
    zo_type type;
    size_t at;                      // offset of the frame in the file
    std::span<const uint8_t> raw;   // the body, in the buffer given to zo_read
    std::string error;              // why the body could not be decoded; else empty
    std::variant<zo_other, zo_ident, zo_psect, zo_xpsect, zo_psectlim, zo_psectbound, zo_sym, zo_text, zo_reloc, zo_signat,
                 zo_fninfo, zo_fnconf, zo_fnalign, zo_dabs, zo_start, zo_end, zo_listreloc, zo_cond_expr, zo_lr_text,
                 zo_lr_reloc>
        body;
};

struct zo_file {
    std::vector<zo_record> records;
    std::string error;      // why the reading ended before the file's end; else empty
    bool decoded() const;   // no error, here or in any record
};

// The buffer must stay as long as the raw bodies are looked at.
zo_file zo_read(std::span<const uint8_t> bytes);

// cursor. Reads on from a place. Behind the end, all is 0 and `error` is set.
struct zo_cursor {
    std::string_view bytes;
    size_t at = 0;
    std::string error = {};   // why a read failed first; else empty

    bool bad() const { return !error.empty(); }
    bool more() const { return !bad() && at < bytes.size(); }
    void fail(std::string reason);
    uint32_t number(unsigned count);      // of so many bytes, at most 4
    std::string_view text();              // up to a 0, which is taken, too
    std::string_view part(size_t size);   // so many bytes
    std::string_view rest();
};

// words. Puts the words of the files named in it as `@FILE` in their places. `what` such a file is called in an error text, which
// is given back, empty on success.
bool zo_split_words(const std::string &text, std::vector<std::string> &words);   // false if a quote isn't closed
std::string zo_expand(const std::vector<std::string> &from, std::vector<std::string> &to, const std::string &what);

// archive. An object in a file: the file's name, for a member "archive(member)", and the bytes, in the buffer of the file.
struct zo_member {
    std::string name;
    std::span<const uint8_t> bytes;
};
bool zo_read_file(const std::string &path, std::vector<uint8_t> &bytes);   // false: errno tells why
std::string_view zo_view(std::span<const uint8_t> bytes);                  // as characters
bool zo_is_archive(std::span<const uint8_t> bytes);
// The file itself, or the members of an archive as `ar` makes it. Gives back an error text, empty on success; members in front of
// the damage are there.
std::string zo_members(const std::string &path, std::span<const uint8_t> bytes, std::vector<zo_member> &members);

const char *zo_type_name(uint8_t type);   // "TEXT" and so on; type 1 to 23

// What is wrong with a file, a line each with the record's number and name; empty if nothing is.
std::vector<std::string> zo_verify(const zo_file &file);

// elf
enum : uint32_t { ZO_ELF_PROGBITS = 1, ZO_ELF_SYMTAB = 2, ZO_ELF_NOTE = 7, ZO_ELF_NOBITS = 8 };   // types of sections
enum : uint32_t { ZO_ELF_ALLOC = 2, ZO_ELF_EXECUTABLE = 4 };                                      // their flags
enum : uint32_t { ZO_ELF_ABSOLUTE = 0xFFF1 };                                                     // as a symbol's section
enum : uint32_t { ZO_ELF_DATA = 0x800000 };                                                       // where data memory begins
struct zo_elf_section {
    std::string_view name;
    uint32_t type, flags, address, size, link;
    std::string_view bytes;   // none of a section that has none in the file
};
struct zo_elf_symbol {
    std::string_view name;   // never empty
    uint32_t value, section;
    bool global;
};
struct zo_elf {   // looks into the file's bytes
    std::vector<zo_elf_section> sections;
    std::vector<zo_elf_symbol> symbols;   // defined ones
};
bool zo_is_elf(std::string_view file);
std::string zo_read_elf(std::string_view file, zo_elf &elf);   // an error text, empty on success

// tables, for people.
std::string zo_symbol_table(const zo_file &file, bool by_address);   // else by name
std::string zo_symbol_table(const zo_elf &elf, bool by_address);
struct zo_size {
    std::string psect, class_name;   // of a linked program: "program", "data", or "settings" for configuration and the like
    uint64_t bytes;
};
std::vector<zo_size> zo_sizes(const zo_file &file);   // of psects that aren't empty
std::vector<zo_size> zo_sizes(const zo_elf &elf);
std::string zo_size_table(const std::vector<zo_size> &sizes);    // psects, and the sums of classes
std::string zo_class_table(const std::vector<zo_size> &sizes);   // these alone

struct zo_style {
    bool offsets = false;      // file offsets of records
    bool disassembly = true;   // of program psects
    bool wide = false;         // data addresses have 14 bits, so `lfsr` has 10 of them in its second word
};
std::string zo_print(const zo_file &file, const zo_style &style);
std::string zo_infix(const zo_expr &expr);
std::string zo_name(const std::string &name);   // bare if it is an identifier, else quoted with escapes
std::string zo_number(uint32_t number);         // a digit below 10, else hexadecimal with 0x

// How the bits of an instruction are laid out, and so what its operands are; see zo_code.
// clang-format off
enum zo_form : uint8_t {
    ZO_PLAIN, ZO_FAST, ZO_TABLE, ZO_LIT6, ZO_LIT8, ZO_FSR_LIT, ZO_FILE_ACC, ZO_FILE_DEST, ZO_FILE_BIT, ZO_REL8, ZO_REL11, ZO_CALL,
    ZO_GOTO, ZO_LFSR, ZO_MOVFF, ZO_MOVFFL, ZO_MOVSF, ZO_MOVSFL, ZO_MOVSS,
};
// clang-format on

// An instruction taken apart. `a` and `b` are its operands in the order in which they are written, with an address for a branch,
// and the low byte of a file operand; of a destination or access `file` and `banked` tell. The mode of a table access is `a`.
struct zo_code {
    const char *name;   // null if the word is no instruction
    zo_form form;
    unsigned words;
    uint32_t a, b;
    bool file, banked, fast;
};
// The instruction at the start of `code`, which has at least two bytes. `offset` is its place in the psect, in bytes.
zo_code zo_decode(std::span<const uint8_t> code, uint32_t offset, bool wide);
struct zo_instruction {
    unsigned words;
    std::string text;
};
zo_instruction zo_disassemble(std::span<const uint8_t> code, uint32_t offset, bool wide);

std::string zo_format(const char *format, ...) __attribute__((format(printf, 1, 2)));
