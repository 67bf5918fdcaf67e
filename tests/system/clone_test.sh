#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Checks a clone in a folder that only its owner may enter, like root's home in a container, and whose name has a blank and
# a letter beyond ASCII. It must configure, and the tool's tests must pass there, also as another user. The clone takes the
# built files along.
#   clone_test.sh BUILD_DIRECTORY CC CXX
set -euo pipefail
build=$1 cc=$2 cxx=$3
source=$(dirname "$0")/../..
git -C "$source" rev-parse --git-dir >/dev/null 2>&1 || { echo "this is no clone, or git is missing: not tested" && exit 77; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
clone="$work/ma caméra/clone"
mkdir -p "$clone"
chmod 700 "$work/ma caméra"

# The files as they are now, even those that are not committed yet
git -C "$source" ls-files -z --cached --others --exclude-standard --deduplicate |
    (cd "$source" && while IFS= read -r -d '' file; do [[ ! -e $file ]] || printf '%s\0' "$file"; done) |
    tar -C "$source" --null -T - -cf - | tar -C "$clone" -xf -
cmake -S "$clone" -B "$clone/build" -DCMAKE_C_COMPILER="$cc" -DCMAKE_CXX_COMPILER="$cxx" >"$work/log" || { cat "$work/log" && exit 1; }
cp "$build/vqd" "$build/libVQD_API.so" "$clone/build"
cd "$clone/build"
ctest --output-on-failure -j 2 -R '^(tool|tool_doctor)$' | tee "$work/log"
grep -q '100% tests passed, 0 tests failed out of 2' "$work/log"
