// fileguard: no output of a run overwrites one of its inputs, or another of its outputs.
//
// Files are the same if device and inode are, whatever their names. Only regular files are guarded: /dev/null and other
// devices may stand for several outputs.
#pragma once

#include <sys/stat.h>

#include <cstdio>

// A file that is going to be read, or is open for reading. An output that has been opened early and turns out to be this
// file is given up: its file gets back what it held, what is written to it goes nowhere, and its `lost` is called.
void guard_source(const char *path);
void guard_input(int fd);
void guard_input(int fd, const struct stat &info);   // of which that is known

// Opens an output, mode "w" or "a". Null with errno set if that fails, and if the file is an input or another output; then
// nothing has been touched. Outputs that are opened before all inputs are known have `lost`, which tells the user, and
// may end the run. `path` must stay alive.
FILE *guard_open(const char *path, const char *mode, void (*lost)(const char *path) = nullptr);
// Closes it. False, with errno set, if something that was written to it has not arrived.
bool guard_close(FILE *stream);
// The same for one that is to appear whole or not at all, such as a page: it is written beside its place, under another name, and
// gets its own when all has arrived. One at a time. What isn't a regular file is written in place.
FILE *guard_open_beside(const char *path);
bool guard_close_beside(FILE *stream);
// Whether the file of that name may be written: false, with errno set, where guard_open would refuse.
bool guard_allows(const char *path);
// As perror, knowing more of a refusal. What is set by guard_set_tell gets the line, without its end.
void guard_perror(const char *path);
void guard_set_tell(void (*tell)(const char *line));
// Whether the last guard_open or guard_allows, or the loss of an output, was a refusal.
bool guard_refused();
