// Make reads a name up to a blank, a `$` as a variable, a `#` as a comment and a `:` as the end of the targets. A backslash takes
// that meaning from the last three and from a blank, and is one itself only ahead of one of these; `$` is doubled.
#include "env/depfile.h"

#include <cstring>

#include "common/hash.h"
#include "common/stringcache.h"
#include "common/vector.h"
#include "options.h"

static struct {
    vec_t<const char *> files;
    hash_of<const char *, uint64_t> known;
} st;

void depfile_add(const char *path)
{
    if (!opt.dep_file)
        return;
    path = cache_string(path);
    if (!st.known) {
        st.files = vec_make<const char *>();
        st.known = hash_make<const char *, uint64_t>(127, hash_string, hash_strcmp);
    }
    if (hash_lookup(st.known, path))
        return;
    hash_insert(st.known, path, 1);
    vec_add(st.files, path);
}

static void write_name(FILE *to, const char *name)
{
    for (; *name; name++) {
        const size_t slashes = strspn(name, "\\");
        const char behind = name[slashes];
        if (slashes > 0 && (behind == ' ' || behind == '\t' || behind == '#' || behind == ':'))
            for (size_t i = 0; i < slashes; i++)
                fputs("\\\\", to);
        else
            fwrite(name, 1, slashes, to);
        name += slashes;
        if (!*name)
            return;
        if (strchr(" \t#:", *name))
            fputc('\\', to);
        else if (*name == '$')
            fputc('$', to);
        fputc(*name, to);
    }
}

void depfile_write(FILE *to, const char *target)
{
    write_name(to, target);
    fputc(':', to);
    for (const char *file : st.files) {
        fputs(" \\\n ", to);
        write_name(to, file);
    }
    fputc('\n', to);
}
