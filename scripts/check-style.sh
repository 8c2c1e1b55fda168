#!/bin/sh
# Says which sources aren't formatted as .clang-format tells; `check-style.sh --fix` formats them. Versions of clang-format
# differ in details, so that only the one below is asked.
set -eu
cd "$(dirname "$0")/.."
version=14
format=$(command -v clang-format-$version || command -v clang-format || true)
case $([ -z "$format" ] || $format --version) in
*"version $version."*) ;;
*) echo "formatting not checked: no clang-format $version"; exit 0 ;;
esac
if [ "${1:-}" = --fix ]; then
    git ls-files '*.cpp' '*.h' | xargs "$format" -i
else
    git ls-files '*.cpp' '*.h' | xargs "$format" --dry-run -Werror
fi
