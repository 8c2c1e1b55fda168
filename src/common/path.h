// path: the parts of a path, as pointers into it. Components have '/' between them.
#pragma once

#include <cstring>

// Behind the last '/', or all of it.
inline const char *path_tail(const char *path)
{
    const char *slash = strrchr(path, '/');
    return slash ? slash + 1 : path;
}

// From the last '.' on, wherever that stands, or "".
inline const char *path_extension(const char *path)
{
    const char *dot = strrchr(path, '.');
    return dot ? dot : "";
}
