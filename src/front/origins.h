// origins: by which includes and expansions each node was reached, for messages that come when all has been read.
//
// The scanner tells when a file or a text begins and ends, and each line of a text. Nothing is kept, and nothing costs more than a
// test, unless somebody has asked for it.
#pragma once

#include <cstdint>
#include <vector>

struct macro_t;

struct line_origin_t {
    const macro_t *macro;   // null: an include
    const char *behind;     // of a macro: the line in its text ends here
    const char *file;       // of an include: where it stands
    int64_t line;
};

void origins_keep();   // from now on
bool origins_kept();

void origins_enter(const macro_t *macro);               // what comes is text of this macro,
void origins_include(const char *file, int64_t line);   // or of a file that is included here,
void origins_leave();                                   // or of what it was before that
void origins_line(const char *behind);                  // a line of a text is read next

// Inside out: of the line being read, and of what a node of this op_id comes from.
std::vector<line_origin_t> origins_here();
std::vector<line_origin_t> origins_of_node(uint32_t op_id);
