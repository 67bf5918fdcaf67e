#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Fuzzes each target for so many seconds (60), with clang's libFuzzer; findings go to build/fuzz/findings.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source tools/setup.sh

# Fuzzes one target from its seeds and adds its line to the summary. The exit code is the fuzzer's: 0 without a finding.
fuzz() {
    local target=$1 seconds=$2 log=build/fuzz/$1.log code=0
    mkdir -p "build/fuzz/corpus/$target" build/fuzz/findings build/fuzz/tmp
    # Absolute paths: a target may be in a folder of its own when it fails.
    TMPDIR=$PWD/build/fuzz/tmp "build/fuzz/fuzz_$target" -max_total_time="$seconds" -timeout=25 -max_len=4096 \
        -len_control=0 -close_fd_mask=1 -print_final_stats=1 -artifact_prefix="$PWD/build/fuzz/findings/$target-" \
        "build/fuzz/corpus/$target" "fuzz/corpus/$target" >"$log" 2>&1 || code=$?
    [[ $code -eq 0 ]] || grep -vE '^(#[0-9]|stat::)' "$log" | tail -n 60
    local executions added
    executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    added=$(sed -n 's/^stat::new_units_added: *//p' "$log")
    printf '%-16s %8s executions, %5s new inputs, %s\n' "$target" "${executions:-?}" "${added:-?}" \
        "$([[ $code -eq 0 ]] && echo 'no crash' || echo "CRASH, see $log")" >>build/fuzz/summary
    return "$code"
}

fuzz_all() {
    local seconds=$1 target code=0
    install_packages clang libclang-rt-14-dev cmake make libusb-1.0-0-dev
    build_preset fuzz
    rm -f build/fuzz/summary
    for target in fuzz/corpus/*; do
        fuzz "${target##*/}" "$seconds" || code=1
    done
    rm -rf build/fuzz/tmp
    cat build/fuzz/summary
    return "$code"
}

seconds=${1:-60}
if [[ ! $seconds =~ ^[1-9][0-9]*$ ]]; then
    echo "--fuzz takes a number of seconds, not $seconds." >&2
    exit 2
fi
fuzz_all "$seconds"
