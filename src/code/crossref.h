// crossref: the cross-reference file, which tells every use of a name with its line, for another tool to sort.
#pragma once

#include <cstddef>
#include <cstdio>

extern FILE *crf_stream;   // null if there is none; written by this module only

void crossref_open(
    const char *path);   // which must stay alive. Message 461 if it can't be made, or turns out to be an input
void crossref_close();   // message 461 if something has not arrived
void crossref_file(const char *name);                 // what follows is in this file
void crossref_use(const char *name, size_t length);   // in the current line
