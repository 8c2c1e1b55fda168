#!/bin/sh
# Makes pages for a browser of the manual: manual-html.sh DOCS TO. They need no server and nothing from a network.
set -eu
docs=$1 to=$2
mkdir -p "$to/manual"

page() {   # Markdown file, page, way to the folder of manual.html
    title=$(sed -n 's/^# //p;/^# /q' "$1")
    {
        cat <<END
<!DOCTYPE html>
<html lang="en"><head><meta charset="utf-8"><meta name="viewport" content="width=device-width"><title>$title</title><style>
:root { color-scheme: light dark; }
body { max-width: 52rem; margin: 2rem auto; padding: 0 1rem; font: 1rem/1.5 system-ui, sans-serif; }
pre, code { font: .9em/1.4 ui-monospace, monospace; background: color-mix(in srgb, currentColor 7%, transparent); }
pre { padding: .7rem; overflow-x: auto; tab-size: 8; } pre code { background: none; font-size: inherit; }
table { border-collapse: collapse; } th, td { border: 1px solid color-mix(in srgb, currentColor 25%, transparent); }
th, td { padding: .25rem .6rem; text-align: left; vertical-align: top; } nav { font-size: .9em; }
</style></head><body>
END
        [ "$3" = . ] || echo "<nav><a href=\"$3/manual.html\">The aszel8 manual</a></nav>"
        # Headings get the anchors that links in the text name: their words in lower case, with hyphens between.
        cmark-gfm --unsafe -e table "$1" | sed -e 's/\(href="[^":]*\)\.md\([#"]\)/\1.html\2/g' | awk '
            match($0, /^<h[1-6]>/) {
                id = tolower($0); gsub(/<[^>]*>|&[a-z]+;/, "", id); gsub(/[^a-z0-9 _-]/, "", id); gsub(/ /, "-", id)
                $0 = substr($0, 1, RLENGTH - 1) " id=\"" id "\"" substr($0, RLENGTH)
            }
            { print }'
        echo '</body></html>'
    } >"$2"
}

cp "$docs"/manual/*.svg "$to/manual"
for chapter in "$docs"/manual/*.md; do
    page "$chapter" "$to/manual/$(basename "$chapter" .md).html" ..
done
page "$docs/manual.md" "$to/manual.html" .
