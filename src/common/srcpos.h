// srcpos: where the assembler stands in its input.
//
// A small record, low in the house: the scanner writes it line by line, the passes behind the parser set it node by
// node, and whoever makes a node or reports a message reads it. Nobody has to know the scanner for that.
#pragma once

#include <cstdint>

struct srcpos_t {
    // What messages and new nodes show. Normally the physical position; `# n "file"` lines change it.
    const char *cur_file;   // "" when no file is open
    int64_t cur_line;       // the line pointer of alert_set_location
    // The file being read and the number of lines read from it.
    const char *phys_file;
    int64_t phys_line;
    // The position in the higher-level source, told by `line`, `file` and `#`. src_line 0: none.
    const char *src_file;
    int64_t src_line;
    bool src_stale;              // `#` told it, or an include has ended since: cur_line has gone on, src_line hasn't
    bool line_follows;           // `line #` is in force: src_line copies phys_line for every statement
    const struct op_t *placed;   // a pass behind the parser has taken the position of this node last; null: none has
    uint32_t below;              // and gone on by so many lines: a node of data has those of a table
    // The node that a pass behind the parser is at, and which of its operands, from 1; null, 0: none.
    const struct op_t *node;
    unsigned operand;
    // Markers that stand anywhere in the raw current line.
    bool line_volatile;   // ";volatile"
    bool line_volsfr;     // ";volsfr"
    bool line_compiled;   // ";#"
};

extern srcpos_t srcpos;

// As long as one lives, messages show no line of the source: what they tell has to do with none.
struct srcpos_nowhere_t {
    const char *file = srcpos.cur_file;
    int64_t line = srcpos.cur_line;
    srcpos_nowhere_t() { srcpos.cur_file = "", srcpos.cur_line = 0; }
    ~srcpos_nowhere_t() { srcpos.cur_file = file, srcpos.cur_line = line; }
    srcpos_nowhere_t(const srcpos_nowhere_t &) = delete;
};

// Messages show another place while one of these lives.
struct srcpos_elsewhere_t {
    const char *file;
    int64_t line;
    srcpos_elsewhere_t(const char *at_file, int64_t at_line) : file(srcpos.cur_file), line(srcpos.cur_line)
    {
        srcpos.cur_file = at_file;
        srcpos.cur_line = at_line;
    }
    ~srcpos_elsewhere_t()
    {
        srcpos.cur_file = file;
        srcpos.cur_line = line;
    }
    srcpos_elsewhere_t(const srcpos_elsewhere_t &) = delete;
    srcpos_elsewhere_t &operator=(const srcpos_elsewhere_t &) = delete;
};
