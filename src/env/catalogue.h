// catalogue: where the message catalogue lies.
//
// An installation carries it as a file that may be edited; the program carries a copy of that file for when there is none.
#pragma once

#include <cstdint>

// The embedded copy, generated from dat/en_msgs.txt when the program is built.
extern const uint32_t catalogue_length;   // bytes
extern const unsigned char catalogue_text[];
// docs/manual/message-list.md in the same way; see explain.h.
extern const uint32_t explanations_length;
extern const unsigned char explanations_text[];
// And src/annotate/page.html.
extern const uint32_t annotation_page_length;
extern const unsigned char annotation_page_text[];

// The path of the catalogue to load: the first that exists of the installation's data directory, the directory "dat" beside
// the executable's directory, the working directory, and a temporary copy of the embedded text. What isn't a regular
// file doesn't count: one that waits for a writer must not hold up every run. Null if the copy can't be written.
const char *catalogue_path();
