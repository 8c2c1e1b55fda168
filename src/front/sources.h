// sources: finds the files that a program is read from.
#pragma once

#include <vector>

// Opens a source, or what an `include` names, for reading. -1 with errno set if it isn't there, or is a directory. *name becomes the
// path that it was found by.
int source_open(const char **name, bool included);

// Where what an `include` names is looked for if it isn't found as it is told, in that order.
std::vector<const char *> source_folders();
