#!/bin/sh
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Compares the binary interface (functions, data, records) with the checked-in dump. Every difference fails, because the
# library's name has no number that could change, so nothing may break a program. An addition needs a new dump.
#   abi_test.sh LIBRARY DUMP INCLUDE_DIRECTORY; with UPDATE=1 it writes the dump.
set -eu
library=$1 dump=$2 include=$3
command -v abidiff >/dev/null || { echo "abidiff (abigail-tools) is missing: not compared" && exit 77; }

if [ "${UPDATE:-0}" = 1 ]; then
    abidw --headers-dir "$include" --drop-private-types --no-comp-dir-path --no-corpus-path --no-show-locs \
        --no-elf-needed --drop-undefined-syms "$library" | sed "s|path='$(dirname "$include")/|path='|" >"$dump"
fi
abidiff --harmless "$dump" "$library" || {
    code=$?
    [ $((code & 8)) -eq 0 ] || echo "Programs that were built before would break. The interface is frozen: take it back."
    echo "If this is meant, write the dump anew: UPDATE=1 $0 $*"
    exit 1
}
