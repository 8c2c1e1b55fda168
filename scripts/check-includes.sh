#!/bin/sh
# Includes run one way: folders of src/ only down the order below, and modules, each a header and its source, never in a
# circle. `ctest` calls it `includes`.
#     check-includes.sh SOURCES
set -u
cd "$1/src" || exit 1

# Modules that know each other, one way and back; what is told here has no say in the search for circles.
mutual='
chip/chip chip/chipinfo         the record is filled from the file, of which it reads the registers late
chip/keys chip/chipinfo         the words of the file, and who reads them
code/expr code/sym              values refer to names, which have values
code/sym code/list              names of psects have code, whose nodes have names
code/oprows code/ops            the rows are of the type that the look-ups declare
code/ops code/list              the table of words tells of nodes what they are
code/place code/sfrop
front/lexutil front/macro       a macro is expanded where its name is scanned, and its text is scanned in turn
'

# "from to" for each include of another module.
edges() {
    find . -name '*.h' -o -name '*.cpp' | sed 's,^\./,,' | xargs grep -H '^#include "' |
        sed -E 's,^([^:]*)\.(h|cpp):#include "(.*)\.h".*,\1 \3,' | awk '$1 != $2' | sort -u
}

edges | awk '
    BEGIN {
        n = split("common options env chip code front out optim annotate cmdline run main", order)
        for (i = 1; i <= n; i++) rank[order[i]] = i
    }
    function folder(module) { sub("/.*", "", module); return module }
    {
        from = folder($1); to = folder($2)
        if (!(from in rank) || !(to in rank) || rank[from] < rank[to] || (from == "out" && to == "front")) {
            print "upwards: " $1 " includes " $2
            failed = 1
        }
    }
    END { if (NR < 100) print "includes not found"; exit failed || NR < 100 }' || failed=1

edges | awk -v mutual="$mutual" '
    BEGIN { n = split(mutual, line, "\n"); for (i = 1; i <= n; i++) { split(line[i], word, " "); known[word[1] " " word[2]] = 1 } }
    !($0 in known)' | tsort 2>&1 >/dev/null | sed -E 's/^tsort: -.*/a circle:/; s/^tsort: /    /' | grep . && failed=1
exit ${failed:-0}
