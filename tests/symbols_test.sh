#!/bin/sh
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Compares what the library exports (name, kind, size of data) with the checked-in list, and checks that every name has a
# documented declaration. Usage: symbols_test.sh LIBRARY LIST HEADER; with UPDATE=1 it writes the list.
set -eu
library=$1 list=$2 header=$3

# Programs bind data by copy relocation, so its size is part of the interface. The address sanitizer adds __odr_asan.*
exported() {
    nm -D -S --defined-only "$library" | while read -r _ size kind name; do
        case $name in __odr_asan*) continue ;; esac
        case $kind in
        T | W) echo "$name function" ;;
        *) echo "$name data $((0x$size))" ;;
        esac
    done | LC_ALL=C sort
}

if [ "${UPDATE:-0}" = 1 ]; then
    exported >"$list"
fi
exported | diff -u "$list" -

missing=0
for name in $(cut -d' ' -f1 "$list"); do
    # A comment on the line itself or on the line above.
    grep -B1 -E "^VQD_API .*\b$name *[(\[;]" "$header" | grep -qE '/\*\*|\*/' || {
        echo "not documented in $header: $name"
        missing=1
    }
done
exit $missing
