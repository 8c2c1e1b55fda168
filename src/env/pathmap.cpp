// An OLD is compared as it is written, as are paths: nothing is made absolute, for the same words have to give the same bytes. An
// empty NEW takes the slash behind OLD, too, so that a path in the folder becomes a relative one.
#include "env/pathmap.h"

#include <string>
#include <utility>
#include <vector>

#include "common/stringcache.h"

static std::vector<std::pair<std::string, std::string>> maps;

bool pathmap_add(const char *text)
{
    const std::string map = text;
    const size_t equals = map.find('=');
    if (equals == 0 || equals == std::string::npos)
        return false;
    maps.emplace_back(map.substr(0, equals), map.substr(equals + 1));
    return true;
}

const char *pathmap_apply(const char *path)
{
    const std::string name = path;
    for (auto map = maps.rbegin(); map != maps.rend(); ++map) {
        const auto &[before, after] = *map;
        if (!name.starts_with(before))
            continue;
        std::string rest = name.substr(before.size());
        if (!rest.empty() && rest[0] != '/' && before.back() != '/')
            continue;
        if (after.empty() && rest.starts_with("/"))
            rest.erase(0, 1);
        return cache_string((after + rest).c_str());
    }
    return path;
}
