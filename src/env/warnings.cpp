// A group is a handful of actions on numbers. A warning that is told by --warn= is shown whatever its level. Those of level -10 come in no other way: they were added when
// what a level shows had been settled.
#include "env/warnings.h"

#include <cstring>
#include <string_view>

#include "common/alert.h"
#include "common/stringcache.h"
#include "env/warning_groups.h"

const char *warning_group(unsigned number)
{
    for (const group_row_t &row : warning_groups)
        if (row.number == number)
            return row.group;
    return nullptr;
}

const char *warnings_choose(const char *list)
{
    for (const char *word = list;; word += strcspn(word, ",") + 1) {
        std::string_view name(word, strcspn(word, ","));
        const bool on = !name.starts_with("no-");
        if (!on)
            name.remove_prefix(3);
        bool known = false;
        for (const group_row_t &row : warning_groups)
            if (name == "all" || name == row.group) {
                alert_choose(row.number, on);
                known = true;
            }
        if (!known)
            return word;
        if (!word[strcspn(word, ",")])
            return nullptr;
    }
}

const char *warning_group_names()
{
    const char *names = "", *last = "";
    for (const group_row_t &row : warning_groups)
        if (strcmp(row.group, last) != 0) {
            names = cache_printf("%s%s%s", names, *names ? ", " : "", row.group);
            last = row.group;
        }
    return names;
}
