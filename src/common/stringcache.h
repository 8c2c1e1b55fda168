// stringcache: interned strings.
//
// Equal text yields the same pointer, so a name, a file name or a message argument takes memory once, however often it
// is made, and two cached strings compare by pointer. All string building goes through here. The results live to the
// end of the run and must be neither changed nor freed. A null argument gives null unless told otherwise.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>

#include "common/ref.h"

extern uint32_t cache_size;    // buckets, read at first use; 0 turns caching off
extern uint32_t cache_limit;   // most entries, 0 for no bound

const char *cache_string(const char *s);
// `s` itself if a ref can lead to it, or the cached string.
inline const char *cache_in_arena(const char *s) { return ref_can_hold(s) ? s : cache_string(s); }
const char *cache_adopt(const char *s);   // enters `s` itself, which must stay alive, unless its text is cached
[[gnu::format(printf, 1, 2)]] const char *cache_printf(const char *format, ...);
const char *cache_vprintf(const char *format, va_list args);
const char *cache_concat(const char *a, const char *b);           // one null: the other
const char *cache_path_join(const char *dir, const char *name);   // one '/' between; one null or empty: the other
const char *cache_substring(const char *s, size_t n);
const char *cache_lower(const char *s);   // ASCII letters only
const char *cache_upper(const char *s);
const char *cache_replace_ext(const char *path, const char *ext);   // no caller
const char *cache_strip_ext(const char *path);                      // no caller
const char *cache_add_ext(const char *path, const char *ext);
const char *cache_translate(const char *s, const char *from, const char *to);
const char *cache_trim_chars(const char *s, const char *set);
const char *cache_trim(const char *s);
const char *cache_chomp(const char *s);        // no caller
const char *cache_first_line(const char *s);   // no caller
const char *cache_basename(const char *path);
const char *cache_dirname(const char *path);   // null if there is no '/'
const char *cache_between(const char *s, char open, char close, const char **first, const char **last);   // no caller
const char *cache_escape(const char *s, const char *chars, char esc);
const char *cache_quote(const char *s, char q);                  // no caller
const char *cache_suffix(const char *s, const char *t);          // the tail of `s`, or null; no caller
const char *cache_suffix_nocase(const char *s, const char *t);   // no caller
bool cache_ends_with(const char *s, const char *t);
bool cache_ends_with_nocase(const char *s, const char *t);
const char *cache_after_prefix(const char *s, const char *t);   // `s` behind `t`, or null; no caller
const char *cache_after_prefix_nocase(const char *s, const char *t);
bool cache_starts_with(const char *s, const char *t);
bool cache_starts_with_nocase(const char *s, const char *t);
