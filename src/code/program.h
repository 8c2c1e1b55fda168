// program: what the directives leave behind beside code lists and symbols, for the object file and the listing.
#pragma once

#include "code/sym.h"

struct dabs_t {
    uint32_t space;
    int64_t address, size;
    const char *name;   // "" if none
};

// A page of the listing: lines, where 0 means no page breaks, and columns, where 0 means that nobody has told any.
struct page_t {
    int32_t form_length, page_width;
};

struct program_t {
    vec_t<dabs_t *> dabs_list;          // null until used
    vec_t<vector_t *> fnalign_groups;   // one vector of symbols for each fnalign; null until used
    bool has_fnconf;
    const char *fnconf_words[3];
    int64_t fnconf_number;
    const char *list_title, *list_subtitle;   // null until told
    page_t page;                              // as options have it until told
    bool has_end_value;
    value_t end_value;      // operand of `end`
    const char *end_file;   // where it stands
    int64_t end_line;
};
extern program_t program;

void program_init();   // a program of which nothing has been read
