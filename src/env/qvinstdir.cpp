// qvinstdir: from the executable's own path to the installation around it.
//
// There are no settings for this: a toolchain is moved by moving its tree, and several versions stand side by side. Three
// layouts are known, and each leads to the version directory:
//
//     <root>/<version>/bin/<tool>
//     <root>/<version>/zel/bin/<tool>
//     <root>/<version>/zel-as/bin/<tool>
//
// The version directory has to have a directory "zel" below it; without one the tool stands somewhere else and there is no
// installation. Nothing here reports to the user: a missing installation shows when a data file isn't found. The discovery
// is repeated until it succeeds, so that the debug trace, which begins after the first search, can tell why it doesn't.
#include "env/qvinstdir.h"

#include <climits>
#include <cstdlib>
#include <cstring>

#include "common/stringcache.h"
#include "env/osdep.h"
#include "env/qvdebug.h"

static struct {
    const char *qvinstall_dir;   // the root
    const char *qvinstall_ver;   // the version directory
} st;

const char *qvinst_exe_dir()
{
    char resolved[PATH_MAX];
    if (!realpath("/proc/self/exe", resolved))
        return nullptr;
    const char *dir = cache_dirname(resolved);
    if (!dir)
        return nullptr;
    size_t n = strlen(dir);
    while (n && strchr("./", dir[n - 1]))
        n--;
    return cache_substring(dir, n);
}

static bool is_word(const char *s, const char *word)
{
    return cache_starts_with_nocase(s, word) && strlen(s) == strlen(word);
}

bool qvinst_discover(const char *exe_dir, const char **root, const char **version)
{
    if (!exe_dir)
        return false;
    if (!is_word(path_tail(exe_dir), "bin")) {
        TRACE("ERROR - the application is not running from a 'bin' directory");
        return false;
    }
    const char *dir = path_dirname(exe_dir);
    if (!dir)
        return false;
    const char *tool = path_stem(dir);
    if (is_word(tool, "zel") || is_word(tool, "zel-as")) {
        TRACEF("Identified as running from the '%s' directory: \"%s\"", cache_lower(tool), dir);
        dir = path_dirname(dir);
    }
    const char *zel = cache_path_join(dir, "zel"), *parent = cache_dirname(dir);
    if (!file_exists(zel)) {
        TRACEF("The 'zel' directory could not be found: \"%s\"", zel);
        return false;
    }
    if (!parent)
        return false;
    *version = cache_string(dir);
    *root = *parent ? parent : "/";
    return true;
}

static void set_qvinstall_paths() { qvinst_discover(qvinst_exe_dir(), &st.qvinstall_dir, &st.qvinstall_ver); }

const char *qvinstdir(int which)
{
    if (!st.qvinstall_ver)
        set_qvinstall_paths();
    if (!st.qvinstall_ver)
        return nullptr;
    switch (which) {
    case 0: return st.qvinstall_dir;
    case 1: return st.qvinstall_ver;
    case 6: return cache_path_join(st.qvinstall_ver, "zel");
    default: return nullptr;
    }
}
