#!/bin/sh
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Uses the library as others do: as the one file beside the README's first program, and installed, moved and used by C11
# and C++ programs that are built outside the tree, with CMake and with pkg-config. The tool and the programs must run with
# the moved library.
#   install_test.sh BUILD_DIRECTORY CC CXX
set -eu
build=$1 cc=$2 cxx=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/moved

sed -n '/^```c$/,/^```$/p' "$(dirname "$0")/../../README.md" | sed '/^```/d' >"$work/first.c"
"$cc" -std=c11 -Wall -Wextra -Wpedantic -Werror -I"$(dirname "$0")/../../include" "$work/first.c" -o "$work/readme" -L"$build" -lVQD_API \
    '-Wl,-rpath,$ORIGIN'
cp "$build/libVQD_API.so" "$work"
ldd "$work/readme" | grep "libVQD_API.so => $work/libVQD_API.so "
"$build/vqd" sim --scene plane -- "$work/readme" | tee "$work/out"
grep -q '^VQD-HT120: 1[45][0-9][0-9] mm ahead$' "$work/out"

cmake --install "$build" --prefix "$work/first" >"$work/log"
mv "$work/first" "$prefix"
if grep -rIl -e "$work/first" -e "$build" "$prefix"; then
    echo "These files name the place where they were built or installed."
    exit 1
fi

runs_moved() {
    ldd "$1" | grep -q "libVQD_API.so => $prefix/" || { ldd "$1" && return 1; }
    "$prefix/bin/vqd" sim --scene plane -- "$@" | tee "$work/out" | grep -q -e '1[45][0-9][0-9] mm ahead' -e ' points in '
}

[ "$(find "$prefix" -name 'libVQD_API.so*' | sed 's/.*\///')" = libVQD_API.so ] # one file, no links
[ -s "$prefix/share/bash-completion/completions/vqd" ]
ldd "$prefix/bin/vqd" | grep -q "libVQD_API.so => $prefix/"
examples=$prefix/share/doc/libvqd-api-dev/examples

cmake -S "$examples" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_C_COMPILER="$cc" -DCMAKE_CXX_COMPILER="$cxx" \
    -DCMAKE_DISABLE_FIND_PACKAGE_OpenCV=ON >"$work/log"
cmake --build "$work/cmake" --target 1_first_frame 3_point_cloud >"$work/log"
runs_moved "$work/cmake/1_first_frame"
runs_moved "$work/cmake/3_point_cloud" "$work/points.ply"

command -v pkg-config >/dev/null || { echo "pkg-config is missing: half of this test was left out" && exit 77; }
PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name vqd_api.pc)")
export PKG_CONFIG_PATH
[ "$(pkg-config --modversion vqd_api)" = "$("$prefix/bin/vqd" --version | cut -d' ' -f2)" ]
LD_LIBRARY_PATH=$(dirname "$(find "$prefix" -name libVQD_API.so)")
export LD_LIBRARY_PATH
# shellcheck disable=SC2046 # flags are words
"$cc" -std=c11 -Wall -Wextra -Wpedantic -Werror "$examples/1_first_frame.c" -o "$work/c" $(pkg-config --cflags --libs vqd_api)
# shellcheck disable=SC2046
"$cxx" -Wall -Wextra -Wpedantic -Werror "$examples/3_point_cloud.cpp" -o "$work/cpp" $(pkg-config --cflags --libs vqd_api)
runs_moved "$work/c"
runs_moved "$work/cpp" "$work/points.ply"
