#!/bin/sh
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# The README's first program, linked by the library's name, starts with a copy of the one file libVQD_API.so beside it.
#   drop_in_test.sh VQD_BINARY LIBRARY CC
set -eu
vqd=$1 library=$2 cc=$3
include=$(dirname "$0")/../../include
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

sed -n '/^```c$/,/^```$/p' "$include/../README.md" | sed '/^```/d' >"$work/first.c"
"$cc" -std=c11 -Wall -Wextra -Wpedantic -Werror -I"$include" "$work/first.c" -o "$work/first" -L"$(dirname "$library")" -lVQD_API \
    '-Wl,-rpath,$ORIGIN'
cp "$library" "$work/libVQD_API.so"
ldd "$work/first" | grep "libVQD_API.so => $work/libVQD_API.so "
"$vqd" sim --scene plane -- "$work/first" | tee "$work/out"
grep -q '^VQD-HT120: 1[45][0-9][0-9] mm ahead$' "$work/out"
