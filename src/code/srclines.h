// srclines: the lines of the source as they were read, for who shows the program beside them.
//
// The scanner hands over each line, with what macros put in, in the order in which it reads them. Nothing is kept, and nothing
// costs more than a test a line, unless somebody has asked for it. Which line a node comes from needs no member of the node:
// nodes are numbered in the same order.
#pragma once

#include <cstddef>
#include <cstdint>

struct symbol_t;

enum : uint32_t { NO_LINE = UINT32_MAX };

struct srcline_t {
    const char *text;        // NUL behind it
    uint32_t length;         // bytes, without the end of the line
    uint32_t reading;        // of which it is a line
    uint32_t number;         // in the file. A line of an expansion has that of the call
    uint32_t first_node;     // the op_id of the first node that may come from it
    uint16_t depth;          // of expansions; 0: it stands in the file
    const symbol_t *psect;   // the current one before the line
    const char *told_file;   // where messages show it
    int64_t told_line;
};

// A file that was read. A file that is read twice has two.
struct reading_t {
    const char *file;
    uint32_t from;   // the line that includes it; NO_LINE: a source of the command line
};

struct srclines_t {
    bool kept;
    srcline_t *lines;
    uint32_t count, room;
    reading_t *readings;
    uint32_t reading_count, reading_room;
};
extern srclines_t srclines;   // for reading; only this module writes it

void srclines_keep();                                                 // from now on
void srclines_open(const char *file);                                 // the lines that come are of this file,
void srclines_close();                                                // and again of the one before
void srclines_add(const char *text, size_t length, unsigned depth);   // at the position of `srcpos`
void srclines_end();                                                  // all has been read

// The line that a node of this op_id comes from. NO_LINE: it was made when all had been read.
uint32_t srclines_of_node(uint32_t op_id);
