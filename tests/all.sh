#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Every stage of test.sh that a change must pass, one after the other, also after one has failed. Shows what took long, and
# ends with one line: "N passed, N failed". Run by ./test.sh --all.
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
mkdir -p build/stages
passed=0 failed=0

# stage NAME [OPTION]: test.sh with this option; reads its counts and times from what it prints
stage() {
    local log=build/stages/$1.log code=0 good bad started=$SECONDS
    echo "== $1"
    ./test.sh "${@:2}" 2>&1 | tee "$log" || code=$?
    # "98% tests passed, 2 tests failed out of 100" of ctest, or the line that this script ends with too
    read -r good bad < <(sed -nE 's/^[0-9]+% tests passed, ([0-9]+) tests? failed out of ([0-9]+)/\1 \2/p' "$log" |
        awk '{ print $2 - $1, $1 }' | cat - <(sed -nE 's/^([0-9]+) passed, ([0-9]+) failed$/\1 \2/p' "$log") | tail -n 1)
    passed=$((passed + ${good:-0}))
    failed=$((failed + ${bad:-0}))
    if [[ ${bad:-0} -eq 0 && ($code -ne 0 || ${good:-0} -eq 0) ]]; then
        failed=$((failed + 1)) # it did not get as far as its tests, or broke off
        echo "The stage '$1' failed (exit code $code)."
    fi
    longest+="$(printf '%6d s  %s' $((SECONDS - started)) "all of '$1'")"$'\n'
    longest+=$(sed -nE -e 's/.*Test +#[0-9]+: ([^ ]+) .* ([0-9.]+) sec.*/\2 \1/p' \
        -e 's/^(not )?ok [0-9]+ - ([^:]+): .*\(([0-9.]+) s\)$/\3 \2/p' "$log" |
        sort -rn | head -n 5 | awk '{ printf "%8.1f s    %s\n", $1, $2 }')$'\n'
}

longest=
stage tests
stage recordings --recordings
stage page --page
stage ros --ros
stage kernel --kernel
printf 'What took long:\n%s' "$longest"
echo "$passed passed, $failed failed"
[[ $failed -eq 0 ]]
