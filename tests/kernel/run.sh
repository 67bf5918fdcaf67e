#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Boots Debian's kernel in QEMU and runs the checks there, with what was built before. Run by ./test.sh --kernel.
#   run.sh [--build DIRECTORY] [CHECK...]    the checks of these names, or all of them; DIRECTORY is build/dev if not given
#   run.sh [--build DIRECTORY] --shell       a shell in the guest
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
    tests/kernel/checks.sh --list | grep -q "^$check " || {
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
mkdir "$out"
make_initrd build/kernel/initrd "$(
    echo "tree=${PWD@Q} build=${build@Q} mode=$mode checks='$*' term=${TERM:-dumb}"
    [[ $mode == checks ]] || stty size | sed 's/\(.*\) \(.*\)/rows=\1 columns=\2/'
)"

console=build/kernel/console.log
if [[ $mode == shell ]]; then
    guest_signals=off boot build/kernel/initrd "$out" "$console" 1d || [[ $? -eq 33 ]]
    exit
fi
code=0
boot build/kernel/initrd "$out" "$console" 900 </dev/null || code=$?
if [[ $code -ne 33 ]]; then
    [[ $code -eq 35 ]] || tail -n 40 "$console" >&2
    [[ $code -ne 124 ]] || echo "The guest ran into its time limit." >&2
    exit 1
fi
