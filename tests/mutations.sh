#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Do the tests notice? Breaks a copy of the library in each place of tests/mutations.txt, one at a time, and runs the
# tests of the library, then all others if those notice nothing. At most two breaks may go unnoticed.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
rows=$PWD/tests/mutations.txt
copy=$PWD/build/mutations
jobs=$(nproc)
slow='tool|example|install|soak|Usb|fuzz|Simd|FaultSweep|abi|api_docs'

mkdir -p "$copy"
git ls-files -z | xargs -0 cp --parents -t "$copy"
cd "$copy"
cmake -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >configure.log
cmake --build build -j "$jobs" >build.log 2>&1
ctest --test-dir build -j "$jobs" >whole.log || { tail -n 20 whole.log; echo "The tests fail without a break."; exit 1; }

# Why the tests notice the break, or nothing.
noticed() {
    cmake --build build -j "$jobs" --target VQD_API >build.log 2>&1 || { echo "does not build"; return; }
    local log
    for choice in -E -R; do
        [[ $choice == -E ]] || cmake --build build -j "$jobs" >build.log 2>&1 || { echo "does not build"; return; }
        log=$(ctest --test-dir build -j "$jobs" --stop-on-failure "$choice" "$slow" 2>&1) && continue
        sed -nE 's/.*Test +#[0-9]+: ([^ ]+).*\*\*\*.*/\1/p' <<<"$log" | head -n 1
        return
    done
}

total=0 missed=0
while IFS= read -r row; do
    [[ $row == \#* ]] && continue
    row=${row//\\|/$'\x01'} # an escaped bar is a bar of the text
    IFS='|' read -r file old new <<<"$row"
    file=${file// /} old=${old# } old=${old% } new=${new# }
    old=${old//$'\x01'/|} new=${new//$'\x01'/|}
    cp "$file" original
    OLD=$(printf '%b' "$old") NEW=$(printf '%b' "$new") perl -0pi -e 's/\Q$ENV{OLD}\E/$ENV{NEW}/' "$file"
    if cmp -s "$file" original; then
        echo "$file: no such text: $old"
        exit 1
    fi
    by=$(noticed)
    cp original "$file"
    total=$((total + 1))
    [[ -n $by ]] || missed=$((missed + 1))
    printf '%-34s %-60.60s %s\n' "$file" "$old" "${by:-NOT NOTICED}"
done <"$rows"
echo "$((total - missed)) of $total breaks noticed"
[[ $missed -le 2 ]]
