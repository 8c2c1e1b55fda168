// A name is opened from the working directory, not from that of the file that includes it. Names that came from a system without
// regard to case may be spelt otherwise on the disk, so some spellings are tried. What an `include` names is then looked for in the
// same way in each folder of --include=, and at last among the include files of chips in the installation.
#include "front/sources.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common/fileguard.h"
#include "common/stringcache.h"
#include "env/depfile.h"
#include "env/registry.h"
#include "options.h"

static constexpr opened_t NOT_OPENED = {-1, -1};

// Dependencies tell of it as `told`.
static opened_t open_file(const char *path, const char *told)
{
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return NOT_OPENED;
    struct stat info;
    const bool known = fstat(fd, &info) == 0;
    if (known && S_ISDIR(info.st_mode)) {   // a directory opens and can't be read
        close(fd);
        errno = EISDIR;
        return NOT_OPENED;
    }
    if (known)
        guard_input(fd, info);
    depfile_add(told);
    return {fd, known && S_ISREG(info.st_mode) ? info.st_size : -1};
}

static opened_t open_spelt(const char *name)
{
    opened_t source = open_file(name, name);
    if (source.fd >= 0)
        return source;
    const int why = errno;
    const char *dir = cache_dirname(name), *last = cache_basename(name), *dot = strrchr(last, '.');
    const char *stem = dot ? cache_substring(last, static_cast<size_t>(dot - last)) : last;
    const char *others[] = {cache_lower(last), cache_upper(last), dot ? cache_concat(stem, cache_lower(dot)) : nullptr};
    for (const char *other : others)
        if (source.fd < 0 && other) {
            const char *path = dir ? cache_printf("%s/%s", dir, other) : other;
            source = open_file(path, path);
        }
    errno = why;
    return source;
}

std::vector<const char *> source_folders()
{
    std::vector<const char *> folders;
    for (const char *dir : opt.include_dirs)
        folders.push_back(dir);
    if (const char *dir = reg_instdir(REG_INCLUDE))
        folders.push_back(dir);
    return folders;
}

opened_t source_open(const char **name, bool included)
{
    if (!included && opt.source_name) {   // what a preprocessor made stands for what it was made of
        const opened_t made = open_file(*name, opt.source_name);
        *name = opt.source_name;
        return made;
    }
    opened_t source = open_spelt(*name);
    if (source.fd >= 0 || !included || **name == '/')
        return source;
    const int why = errno;
    for (const char *dir : source_folders()) {
        const char *path = cache_printf("%s/%s", dir, *name);
        source = open_spelt(path);
        if (source.fd >= 0) {
            *name = path;
            return source;
        }
    }
    errno = why;
    return NOT_OPENED;
}
