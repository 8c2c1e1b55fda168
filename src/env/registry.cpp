// registry: the base directory is <version>/zel, or the version directory where there is no such directory, and each kind
// of data has its sub-directory.
#include "env/registry.h"

#include "common/stringcache.h"
#include "env/osdep.h"
#include "env/qvdebug.h"
#include "env/qvinstdir.h"

static const char *const suffixes[REG_KINDS] = {"", "bin", "lib", "help", "include", "dat", "sources", "resources", "docs"};

const char *reg_instdir(int kind)
{
    const char *base = qvinstdir(6);
    if (!file_exists(base))
        base = qvinstdir(1);
    if (!base)
        TRACE("Could not locate installation directory");
    if (!base || kind < 0 || kind >= REG_KINDS)
        return nullptr;
    return cache_path_join(base, suffixes[kind]);
}

const char *reg_mkpath(int kind, const char *name)
{
    if (name && path_is_absolute(name))
        return cache_string(name);
    const char *base = reg_instdir(kind);
    return base ? cache_path_join(base, name) : nullptr;
}
