// stringcache: interned strings and the functions that build them.
//
// One hash table from text to text. A builder puts its result together in the work buffer, and the table either has that
// text already or takes a copy. So building a string that exists costs no memory, and callers compare results by pointer.
//
// The work buffer grows to twice what was asked for and keeps nothing between calls. A builder's arguments must not lie in
// it: they are cached strings, literals or the caller's own buffers. Where one builder uses another, the inner one's result
// is a cached string before the outer one touches the buffer.
//
// The table has a fixed number of buckets, read when the first string is entered; at 0 every call gives a fresh copy.
#include "common/stringcache.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "common/failure.h"
#include "common/hash.h"
#include "common/path.h"
#include "common/xalloc.h"

uint32_t cache_size = 5077;
uint32_t cache_limit = 0;

static struct {
    hash_t *table;
    char *buffer;
    size_t room;   // bytes in the buffer
} st;

static char *work_buffer(size_t size)
{
    if (size > st.room) {
        xfree(st.buffer);
        st.room = std::max<size_t>(4096, size * 2);
        st.buffer = static_cast<char *>(xalloc(st.room));
    }
    return st.buffer;
}

// The cached text equal to `s`, or else `s` itself or a copy of it, entered if there is room.
static const char *intern(const char *s, bool copy)
{
    if (!s)
        return nullptr;
    if (!st.table && cache_size)
        st.table = hash_new(cache_size, hash_string, hash_strcmp);
    hash_t *table = cache_size ? st.table : nullptr;
    if (table)
        if (word_t found = hash_lookup(table, to_word(s)))
            return from_word<const char *>(found);
    if (copy)
        s = xstrdup(s);
    if (table && (!cache_limit || hash_size(table) < cache_limit))
        hash_insert(table, to_word(s), to_word(s));
    return s;
}

// The `n` bytes at `a` followed by the `m` bytes at `b`.
static const char *join(const char *a, size_t n, const char *b = "", size_t m = 0)
{
    char *w = work_buffer(n + m + 1);
    memcpy(w, a, n);
    memcpy(w + n, b, m);
    w[n + m] = '\0';
    return intern(w, true);
}

// Every byte of `s` through `map`.
template <class F> static const char *mapped(const char *s, F map)
{
    size_t n = strlen(s);
    char *w = work_buffer(n + 1);
    std::transform(s, s + n, w, map);
    w[n] = '\0';
    return intern(w, true);
}

static char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; }
static char upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - ('a' - 'A')) : c; }
static bool equal(char a, char b) { return a == b; }
static bool equal_nocase(char a, char b) { return lower(a) == lower(b); }

const char *cache_string(const char *s) { return intern(s, true); }

const char *cache_adopt(const char *s) { return intern(s, false); }

const char *cache_printf(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const char *result = cache_vprintf(format, args);
    va_end(args);
    return result;
}

const char *cache_vprintf(const char *format, va_list args)
{
    if (!format)
        return nullptr;
    va_list again;
    va_copy(again, args);
    work_buffer(strlen(format) * 10 + 1);
    int n = vsnprintf(st.buffer, st.room, format, args);
    if (n >= 0 && static_cast<size_t>(n) >= st.room) {
        work_buffer(static_cast<size_t>(n) + 1);
        n = vsnprintf(st.buffer, st.room, format, again);
    }
    va_end(again);
    if (n < 0) {
        fputs("vsnprintf failed in a mysterious way\n", stderr);
        failure_stop(1);
    }
    return intern(st.buffer, true);
}

const char *cache_concat(const char *a, const char *b)
{
    if (!a || !b)
        return intern(a ? a : b, true);
    return join(a, strlen(a), b, strlen(b));
}

const char *cache_path_join(const char *dir, const char *name)
{
    if (!dir || !*dir)
        return intern(name, true);
    if (!name || !*name)
        return intern(dir, true);
    size_t n = strlen(dir);
    if (dir[n - 1] == '/')
        name += *name == '/';
    else if (*name != '/')
        return cache_printf("%s/%s", dir, name);
    return join(dir, n, name, strlen(name));
}

const char *cache_substring(const char *s, size_t n) { return s ? join(s, strnlen(s, n)) : nullptr; }

const char *cache_lower(const char *s) { return s ? mapped(s, lower) : nullptr; }

const char *cache_upper(const char *s) { return s ? mapped(s, upper) : nullptr; }

// Length of the path without its last extension; a '.' in front of a '/' starts none.
static size_t stem_length(const char *path)
{
    const char *dot = strrchr(path, '.');
    return dot && !strchr(dot, '/') ? static_cast<size_t>(dot - path) : strlen(path);
}

const char *cache_replace_ext(const char *path, const char *ext)
{
    if (!path || !ext)
        return nullptr;
    int n = static_cast<int>(stem_length(path));
    return cache_printf("%*.*s.%s", n, n, path, ext + (*ext == '.'));
}

const char *cache_strip_ext(const char *path) { return path ? join(path, stem_length(path)) : nullptr; }

const char *cache_add_ext(const char *path, const char *ext)
{
    return path && ext ? cache_printf("%s.%s", path, ext) : nullptr;
}

const char *cache_translate(const char *s, const char *from, const char *to)
{
    if (!s || !from || !to)
        return nullptr;
    size_t n = strlen(to);
    return mapped(s, [=](char c) {
        const char *p = strchr(from, c);
        return p && static_cast<size_t>(p - from) < n ? to[p - from] : c;
    });
}

const char *cache_trim_chars(const char *s, const char *set)
{
    if (!s || !set)
        return nullptr;
    s += strspn(s, set);
    size_t n = strlen(s);
    while (n && strchr(set, s[n - 1]))
        n--;
    return join(s, n);
}

const char *cache_trim(const char *s) { return cache_trim_chars(s, " \t\n\v\f\r"); }

const char *cache_chomp(const char *s)
{
    if (!s)
        return nullptr;
    size_t n = strlen(s);
    while (n && (s[n - 1] == '\r' || s[n - 1] == '\n'))
        n--;
    return join(s, n);
}

const char *cache_first_line(const char *s) { return s ? join(s, strcspn(s, "\r\n")) : nullptr; }

const char *cache_basename(const char *path) { return path ? cache_string(path_tail(path)) : nullptr; }

const char *cache_dirname(const char *path)
{
    const char *slash = path ? strrchr(path, '/') : nullptr;
    return slash ? join(path, static_cast<size_t>(slash - path)) : nullptr;
}

const char *cache_between(const char *s, char open, char close, const char **first, const char **last)
{
    const char *a = s ? strchr(s, open) : nullptr, *b = a && *a ? strchr(a + 1, close) : nullptr;
    if (first)
        *first = a;
    if (last)
        *last = b;
    return b ? join(a + 1, static_cast<size_t>(b - a - 1)) : nullptr;
}

const char *cache_escape(const char *s, const char *chars, char esc)
{
    if (!s || !chars)
        return nullptr;
    char *w = work_buffer(strlen(s) * 2 + 1);
    for (; *s; *w++ = *s++)
        if (strchr(chars, *s))
            *w++ = esc;
    *w = '\0';
    return intern(st.buffer, true);
}

const char *cache_quote(const char *s, char q)
{
    const char chars[] = {q, '\0'};
    return s ? cache_printf("%c%s%c", q, cache_escape(s, chars, '\\'), q) : nullptr;
}

static const char *suffix(const char *s, const char *t, bool (*same)(char, char))
{
    if (!s || !t)
        return nullptr;
    size_t n = strlen(s), m = strlen(t);
    return m <= n && std::equal(t, t + m, s + n - m, same) ? s + n - m : nullptr;
}

static const char *after_prefix(const char *s, const char *t, bool (*same)(char, char))
{
    if (!s || !t)
        return nullptr;
    for (; *t; s++, t++)
        if (!*s || !same(*s, *t))
            return nullptr;
    return s;
}

const char *cache_suffix(const char *s, const char *t) { return cache_string(suffix(s, t, equal)); }
const char *cache_suffix_nocase(const char *s, const char *t) { return cache_string(suffix(s, t, equal_nocase)); }
bool cache_ends_with(const char *s, const char *t) { return suffix(s, t, equal); }
bool cache_ends_with_nocase(const char *s, const char *t) { return suffix(s, t, equal_nocase); }
const char *cache_after_prefix(const char *s, const char *t) { return cache_string(after_prefix(s, t, equal)); }
const char *cache_after_prefix_nocase(const char *s, const char *t)
{
    return cache_string(after_prefix(s, t, equal_nocase));
}

bool cache_starts_with(const char *s, const char *t) { return after_prefix(s, t, equal); }
bool cache_starts_with_nocase(const char *s, const char *t) { return after_prefix(s, t, equal_nocase); }
