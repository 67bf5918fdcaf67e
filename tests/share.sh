#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Prints which share of the tree is tests, in non-blank lines of the C, C++, shell, Python and JavaScript files that git
# knows. Everything below a folder named "tests" counts as tests, and so do the fuzz targets.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

git ls-files --error-unmatch tests/share.sh >/dev/null 2>&1 || {
    echo "How much of the tree is tests: needs git and a clone."
    exit 0
}

# Whether a file is in one of these languages, by its extension or by the interpreter in its first line.
is_counted() {
    local first=
    case ${1##*/} in
    *.c | *.h | *.cpp | *.hpp | *.cc | *.sh | *.bash | *.py | *.js | *.mjs) return 0 ;;
    *.*) return 1 ;;
    esac
    { LC_ALL=C read -r -n 80 first <"$1" || true; } 2>/dev/null
    [[ $first =~ ^'#!'.*(sh|python[0-9.]*|node)( |$) ]]
}

git ls-files | while IFS= read -r file; do
    if [[ ! -f $file || -L $file ]] || ! is_counted "$file"; then
        continue
    fi
    kind=code
    [[ /$file == */tests/* || $file == fuzz/* ]] && kind=tests
    printf '%s %s %s\n' "$kind" "$(grep -c '[^[:space:]]' "$file")" "$file"
done | awk '
    { folder = index($3, "/") ? substr($3, 1, index($3, "/")) : "./"; lines[folder, $1] += $2; sum[$1] += $2; seen[folder] }
    END {
        printf "%-14s %7s %7s\n", "non-blank lines", "code", "tests"
        for (folder in seen)
            printf "%-15s %7d %7d\n", folder, lines[folder, "code"], lines[folder, "tests"] | "sort"
        close("sort")
        printf "Code %d, tests %d: %.1f %% of the lines are tests\n", sum["code"], sum["tests"],
            100 * sum["tests"] / (sum["code"] + sum["tests"])
    }'
