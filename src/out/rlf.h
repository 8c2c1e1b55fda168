// rlf: the relocation listing, a file of its own.
//
// Between rlf_open and rlf_finish, which closes it, these write; at any other time they do nothing. Message 804.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

struct value_t;

void rlf_open(FILE *to, const char *name);
void rlf_ident();                              // a further IDENT behind the text so far
void rlf_text(const char *s, size_t length);   // text of the listing
// A field of `chars` characters, to be filled in by the linker: `value`, of the width that `type` tells as in a relocation
// entry, joined with `word`. False, and nothing is written, if a record can't take it. Message 800, unless `silent`.
bool rlf_field(const value_t *value, uint64_t word, unsigned type, unsigned chars, bool silent);
void rlf_finish();
