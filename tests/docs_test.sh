#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Checks that every relative link of the documentation leads to a file, and to a heading of it where it names one.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# The names by which headings are linked: in lower case, without punctuation, with hyphens for blanks.
headings() {
    # shellcheck disable=SC2016
    sed -n '/^```/,/^```/d; s/^##* //p' "$1" | tr '[:upper:]' '[:lower:]' | sed 's/[^a-z0-9 _-]//g; s/ /-/g'
}

links=0 broken=0
for page in *.md docs/*.md; do
    while read -r link; do
        links=$((links + 1))
        file=${link%%#*}
        target=$page
        [[ -z $file ]] || target=$(dirname "$page")/$file
        if [[ -e $target ]]; then
            [[ $link != *'#'* ]] || headings "$target" | grep -x -- "${link#*#}" >/dev/null && continue
        fi
        echo "$page: $link leads nowhere"
        broken=$((broken + 1))
    done < <(grep -o '](\([^)]*\))' "$page" | sed 's/^](//; s/)$//' | grep -v '^https\?:')
done
echo "$links links, $broken broken"
[[ $links -gt 0 && $broken -eq 0 ]]
