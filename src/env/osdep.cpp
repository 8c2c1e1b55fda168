// osdep: what little the tool needs of the operating system beyond streams.
//
// A temporary file is made by the system's unique-name call, so it exists and is ours before anybody opens it by name. Its
// name goes to a list, and the first name entered installs one exit handler that removes everything on the list, the newest
// entry first. Every end of a run goes through exit(), so nothing is left behind; what its user has removed already is not
// missed.
#include "env/osdep.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "common/stringcache.h"
#include "common/xalloc.h"

struct tmp_entry_t {
    tmp_entry_t *older;
    const char *path;
};

static tmp_entry_t *tmp_list;

static void remove_all_entries()
{
    for (tmp_entry_t *e = tmp_list; e; e = e->older) {
        std::error_code ignored;
        std::filesystem::remove_all(e->path, ignored);
    }
}

void tmp_remove_at_exit(const char *path)
{
    if (!tmp_list)
        atexit(remove_all_entries);
    tmp_entry_t *e = xnew<tmp_entry_t>();
    *e = {tmp_list, path};
    tmp_list = e;
}

const char *tmp_file_name()
{
    char *path = xstrdup("/tmp/qvXXXXXXX");
    int fd = mkstemp(path);
    if (fd < 0)
        return nullptr;
    close(fd);
    tmp_remove_at_exit(path);
    return path;
}

bool file_exists(const char *path)
{
    struct stat info;
    return path && stat(path, &info) == 0;
}

bool file_is_regular(const char *path)
{
    struct stat info;
    return path && stat(path, &info) == 0 && S_ISREG(info.st_mode);
}

bool path_is_absolute(const char *path) { return *path == '/'; }

const char *path_basename(const char *path) { return cache_basename(path); }

const char *path_stem(const char *path)
{
    path = path_tail(path);
    return cache_substring(path, strlen(path) - strlen(path_extension(path)));
}

const char *path_dirname(const char *path) { return cache_dirname(path); }

const char *path_concat(const char *dir, const char *name)
{
    if (!dir || !*dir)
        return nullptr;
    name += *name == '/';
    return dir[strlen(dir) - 1] == '/' ? xconcat(dir, name) : xconcat_free(xconcat(dir, "/"), name);
}
