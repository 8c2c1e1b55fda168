// fileutils: what kind of file a path names.
#pragma once

#include <cstdint>

// A word of flag bits, judged by the extension; bit 0x1000 is set if the file doesn't exist. 0 for a kind that isn't known.
uint64_t fileid(const char *path);

// Whether a word of fileid means a source that went through the preprocessor.
bool fileid_is_preprocessed(uint64_t word);
