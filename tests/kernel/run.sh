#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Boots Debian's kernel in QEMU and runs the checks there, with what was built before. Run by ./test.sh --kernel.
#   run.sh [--build DIRECTORY] [CHECK...]    the checks of these names, or all of them; DIRECTORY is build/dev if not given
#   run.sh [--build DIRECTORY] --shell [CHECK...]    a shell in the guest, after these checks if any are named
#   run.sh --list                            the names of the checks
set -euo pipefail
script=$(readlink -f "$0")
build=build/dev mode=checks
while [[ $# -gt 0 ]]; do
    case $1 in
    --build)
        build=${2:?"--build needs a directory"}
        shift
        ;;
    --shell) mode=shell ;;
    --list) exec "${script%/*}/checks.sh" --list ;;
    -*)
        sed -n 's/^#   //p' "$script" >&2
        exit 2
        ;;
    *) break ;;
    esac
    shift
done
if [[ ! -x $build/vqd ]]; then
    echo "$build holds no vqd: build it first, with cmake --build --preset dev." >&2
    exit 2
fi
build=$(realpath "$build")
cd "${script%/tests/*}"
source tools/setup.sh
source tests/kernel/machine.sh
for check; do
    tests/kernel/checks.sh --list | grep "^$check " >/dev/null || {
        echo "There is no check $check; see tests/kernel/run.sh --list." >&2
        exit 2
    }
done

install_packages qemu-system-x86 udev
mkdir -p build/kernel
exec {lock}>build/kernel/lock
flock -n "$lock" || {
    echo "The guest of this tree is running already." >&2
    exit 1
}
fetch_kernel
out=$PWD/build/kernel/out
rm -rf "$out"
mkdir -p "$out/mock"

# run_guest NUMBER [CHECK...]: returns QEMU's exit code
run_guest() {
    local number=$1 initrd=build/kernel/initrd-$1 console=build/kernel/console-$1.log seconds=1200
    shift
    make_initrd "$initrd" "$(
        echo "tree=${PWD@Q} build=${build@Q} mode=$mode guest=$number checks='$*' term=${TERM:-dumb}"
        [[ $mode == checks ]] || stty size | sed 's/\(.*\) \(.*\)/rows=\1 columns=\2/'
    )"
    [[ $mode == checks ]] || seconds=1d
    boot "$initrd" "$out" "$console" "$seconds"
}

# What is wrong with a guest that has ended, in a sentence.
#   complain NUMBER CODE STARTED
complain() {
    local clock=$out/clock-$1 took=$((SECONDS - $3)) ahead
    if [[ $2 -ne 33 && $2 -ne 35 ]]; then
        tail -n 40 "build/kernel/console-$1.log"
        if [[ $2 -eq 124 ]]; then
            echo "Guest $1 ran into its time limit."
        else
            echo "Guest $1 broke off (exit code $2)."
        fi
    fi
    # The guest took the time of day when it booted. The host says when the guest wrote down what it had become at the end.
    [[ -e $clock ]] || return 0
    ahead=$(($(cat "$clock") - $(stat -c %Y "$clock")))
    if ((${ahead#-} > 3 + took / 50)); then
        echo "The clock of guest $1 is $ahead s ahead after $took s, so the library's waits were not what they should be."
    fi
}

# Passes the guests' lines on, numbers the checks, and ends with one count. Fails unless all is well and each check was run.
#   report COUNT
report() {
    local line good number=0 passed=0 failed=0
    while IFS= read -r line; do
        case $line in
        'ok - '* | 'not ok - '*)
            number=$((number + 1))
            echo "${line/ - / $number - }"
            ;;
        [0-9]*' passed, '[0-9]*' failed')
            read -r good _ line _ <<<"$line"
            passed=$((passed + good)) failed=$((failed + line))
            ;;
        'Guest '* | 'The clock of '*)
            failed=$((failed + 1))
            echo "$line"
            ;;
        *) echo "$line" ;;
        esac
    done
    echo "$passed passed, $failed failed"
    [[ $failed -eq 0 && $passed -eq $1 ]]
}

# What the checks compare with is made while the guests boot.
if [[ $mode == checks || $# -gt 0 ]]; then
    build=$build tests/kernel/checks.sh --mock "$out/mock" "$@" >"$out/mock.log" 2>&1 &
fi
if [[ $mode == shell ]]; then
    guest_signals=off run_guest 1 "$@" || [[ $? -eq 33 ]]
    exit
fi

# The checks mostly wait, so three guests share them: each takes the next one that no other has taken. The long ones stand last
# in the list and are begun first, so that the guests end together.
if [[ $# -eq 0 ]]; then
    mapfile -t names < <(tests/kernel/checks.sh --list | cut -d ' ' -f 1 | tac)
    set -- "${names[@]}"
fi
for ((number = 1; number <= 3 && number <= $#; number++)); do
    (
        code=0 started=$SECONDS
        run_guest $number "$@" </dev/null || code=$?
        complain $number $code $started
    ) &
done 2>&1 | report $#
