#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Runs clang-tidy and cppcheck over the library, the virtual camera, the host library, the GStreamer source and the tool,
# with the configurations of the tree. Needs the compile commands of the dev preset.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

run-clang-tidy -quiet -p build/dev -j "$(nproc)" '/(src|sim|host|gstreamer|tools)/.*\.cpp$' >build/dev/clang-tidy.log 2>&1 || {
    grep -E '(error|warning):' build/dev/clang-tidy.log | sort -u
    echo "clang-tidy has findings, see build/dev/clang-tidy.log"
    exit 1
}
echo "clang-tidy: nothing found"
cppcheck --project=build/dev/compile_commands.json --enable=warning,style,performance,portability --quiet \
    --suppressions-list=.cppcheck-suppressions --error-exitcode=1 -j "$(nproc)" -i tests -i fuzz -i examples \
    --template='{file}:{line}: {id}: {message}'
echo "cppcheck: nothing found"
