#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Runs the checks in the guest, one by one, each in a process and a folder of its own. Prints a line for each as it ends.
#   checks.sh [NAME...]    these, or all of them
#   checks.sh --list       their names and what they show
#   checks.sh --mock FOLDER [NAME...]    on the host: what those that compare with the mocked bus compare with
set -u
here=$(dirname "$(readlink -f "$0")")
# shellcheck disable=SC2154 # from the environment: tree, build, vqd, bed
limit=150 # seconds that a check may take before it counts as hanging
names=()
declare -A title

# check NAME WHAT IT SHOWS: announces the function NAME as a check
check() {
    names+=("$1")
    title[$1]=$2
}

source "$here/same.sh"
for file in "$here"/checks/*.sh; do
    # shellcheck source=/dev/null
    source "$file"
done

case ${1:-} in
--list)
    for name in "${names[@]}"; do
        printf '%-18s %s\n' "$name" "${title[$name]}"
    done
    exit
    ;;
--mock)
    folder=$2
    shift 2
    transcripts_of_mock "$folder" "${@:-${names[@]}}"
    exit
    ;;
--one)
    name=$2
    set -- "$vqd"
    source "$here/../system/tool_lib.sh"
    source "$here/check_lib.sh"
    "$name"
    finish
    ;;
esac
[[ $# -gt 0 ]] || set -- "${names[@]}"

now() {
    echo $((${EPOCHREALTIME/[^0-9]/} / 1000))
}

source "$here/check_lib.sh"
passed=0 failed=0
for name; do
    mkdir "$bed/out/$name.taken" 2>/dev/null || continue # by another guest
    started=$(now) code=0
    {
        udevd_runs || udevd_starts
        # What a check leaves running ends with its namespace.
        timeout --kill-after=5 "$limit" unshare --pid --fork --kill-child --mount-proc "$0" --one "$name" || code=$?
        [[ $code -ne 124 ]] || echo "FAILED: it took more than $limit s"
        waits_for 10 all_unplugged || { echo "FAILED: a camera is still plugged in" && code=1; }
    } >"/run/$name.log" 2>&1
    took=$(($(now) - started))
    verdict=ok
    [[ $code -eq 0 ]] || verdict='not ok'
    printf '%s - %s: %s (%d.%d s)\n' "$verdict" "$name" "${title[$name]}" $((took / 1000)) $((took % 1000 / 100))
    if [[ $code -eq 0 ]]; then
        passed=$((passed + 1))
    else
        failed=$((failed + 1))
        head -n 40 "/run/$name.log" | cut -c 1-300 | sed 's/^/    /'
    fi
    cp "/run/$name.log" "$bed/out"
done
echo "$passed passed, $failed failed"
[[ $failed -eq 0 ]]
