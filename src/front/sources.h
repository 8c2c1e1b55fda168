// sources: finds the files that a program is read from.
#pragma once

#include <sys/types.h>

#include <vector>

struct opened_t {
    int fd;       // -1: none
    off_t size;   // of a regular file; otherwise -1
};

// Opens a source, or what an `include` names, for reading. No file, with errno set, if it isn't there, or is a directory. *name becomes
// the path that it was found by.
opened_t source_open(const char **name, bool included);

// Where what an `include` names is looked for if it isn't found as it is told, in that order.
std::vector<const char *> source_folders();
