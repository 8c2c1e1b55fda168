// pathmap: what folders are called in what is written, so that builds in two places give the same bytes.
#pragma once

// "OLD=NEW". False, and nothing kept, without a "=" or with an empty OLD.
bool pathmap_add(const char *text);
// The path with the OLD that begins it, as a whole number of components, replaced by its NEW; of several the one that was added
// last. Otherwise the path itself.
const char *pathmap_apply(const char *path);
