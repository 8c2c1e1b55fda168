// qvinstdir: where the installation is.
//
// It is derived from where the executable stands, and from nothing else.
#pragma once

// `which` 0: the root of the installation; 1: the version directory; 6: <version>/zel. A cached string, or null if the
// executable doesn't stand in an installation.
const char *qvinstdir(int which);

// The executable's directory, less trailing '.' and '/'; null if the system doesn't tell.
const char *qvinst_exe_dir();

// The discovery on its own, for the executable's directory `exe_dir`. False, and nothing set, if that is in no installation.
bool qvinst_discover(const char *exe_dir, const char **root, const char **version);
