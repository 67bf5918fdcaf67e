#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Fuzzes each target for the given seconds (60), with clang's libFuzzer. Findings go to build/fuzz/findings.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source tools/setup.sh

seconds=${1:-60}
if [[ ! $seconds =~ ^[1-9][0-9]*$ ]]; then
    echo "--fuzz takes a number of seconds, not $seconds." >&2
    exit 2
fi
install_packages clang libclang-rt-14-dev cmake make libusb-1.0-0-dev libzstd-dev zlib1g-dev python3
build_preset fuzz
mkdir -p build/fuzz/findings build/fuzz/tmp
: >build/fuzz/summary
found=0
for seeds in fuzz/corpus/*; do
    target=${seeds##*/}
    log=build/fuzz/$target.log outcome='no crash'
    mkdir -p "build/fuzz/corpus/$target"
    # The paths are absolute, because a target may have changed its folder when it fails.
    TMPDIR=$PWD/build/fuzz/tmp "build/fuzz/fuzz_$target" -max_total_time="$seconds" -timeout=25 -max_len=4096 \
        -len_control=0 -close_fd_mask=1 -print_final_stats=1 -artifact_prefix="$PWD/build/fuzz/findings/$target-" \
        "build/fuzz/corpus/$target" "$seeds" >"$log" 2>&1 || {
        grep -vE '^(#[0-9]|stat::)' "$log" | tail -n 60 || true
        found=1 outcome="CRASH, see $log"
    }
    printf '%-16s %8s executions, %5s new inputs, %s\n' "$target" "$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")" \
        "$(sed -n 's/^stat::new_units_added: *//p' "$log")" "$outcome" >>build/fuzz/summary
done
rm -r build/fuzz/tmp
cat build/fuzz/summary
exit "$found"
