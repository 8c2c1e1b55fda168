// osdep: temporary files that clean up after themselves, and plain path helpers.
//
// Paths are NUL-terminated with '/' between components. New strings are cached ones, see stringcache; pointers into a path are
// those of common/path.h.
#pragma once

#include "common/path.h"

// Creates an empty file in /tmp and returns its name; it is removed when the process ends. Null if it can't be created.
const char *tmp_file_name();
// Has a file, or a directory with everything in it, removed when the process ends. `path` must stay alive.
void tmp_remove_at_exit(const char *path);

bool file_exists(const char *path);       // a directory counts; false for null
bool file_is_regular(const char *path);   // false for null
bool path_is_absolute(const char *path);
const char *path_basename(const char *path);                  // a new string behind the last '/'; no caller
const char *path_stem(const char *path);                      // a new string: the last component less its last extension
const char *path_dirname(const char *path);                   // a new string up to the last '/'; null without one
const char *path_concat(const char *dir, const char *name);   // a new string, one '/' between; null without a dir
