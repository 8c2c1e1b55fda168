// catalogue: the search for the message catalogue.
//
// An installation's file comes first, so that texts can be edited or translated. Then come places where a program that was
// copied out of its tree may find it. Last, the copy inside the program is written to a temporary file, so that there is
// one way of reading a catalogue and messages have their texts wherever the program runs. That file is made once.
#include "env/catalogue.h"

#include <cstdio>

#include "common/stringcache.h"
#include "env/osdep.h"
#include "env/qvinstdir.h"
#include "env/registry.h"

static const char *embedded_copy()
{
    static const char *path;
    if (path)
        return path;
    path = tmp_file_name();
    FILE *out = path ? fopen(path, "wb") : nullptr;
    if (!out)
        return path = nullptr;
    const bool whole = fwrite(catalogue_text, 1, catalogue_length, out) == catalogue_length;
    return path = fclose(out) == 0 && whole ? path : nullptr;
}

const char *catalogue_path()
{
    const char *name = cache_printf("%s_msgs.txt", "en");
    const char *exe_dir = qvinst_exe_dir(), *parent = exe_dir ? cache_concat(cache_dirname(exe_dir), "/") : nullptr;
    const char *beside = parent ? cache_path_join(cache_path_join(parent, "dat"), name) : nullptr;
    const char *const places[] = {reg_mkpath(REG_DAT, name), beside, name};
    for (const char *path : places)
        if (file_is_regular(path))
            return path;
    return embedded_copy();
}
