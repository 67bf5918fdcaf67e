#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# The checklist passes on every model and leaves the EEPROM alone. A camera that is broken in one way fails the check of it.
# The checklist mostly waits, so all runs go on at once.
#   tool_selftest_test.sh VQD_BINARY
# shellcheck source=tests/system/tool_lib.sh
# shellcheck disable=SC2016 # variables of the inner shell
source "$(dirname "$0")/tool_lib.sh" "$1"

models=(VQD-HT120 VQD-HT110 VQD-HT950X VQD-RS110 VQD-RS120 VQD-WN120)
faults=("first EEPROM read stalls" "EEPROM"
    "every EEPROM read answers 100 bytes" "EEPROM"
    "every image refused" "settings"
    "bad start code after frame 3" "start codes"
    "5th frame times out" "frames"
    "unplug after frame 12" "horizontal flip")

for model in "${models[@]}"; do
    "$vqd" sim "$model" -- sh -c '"$0" eeprom backup before.$1 >&2 && "$0" selftest -n 10 --json && "$0" eeprom backup after.$1 >&2' \
        "$vqd" "$model" >"$model" 2>>err </dev/null &
done
for ((i = 0; i < ${#faults[@]}; i += 2)); do
    ("$vqd" sim --fault "${faults[i]}" -- "$vqd" selftest -n 10 >"fault$i" 2>>err </dev/null
        echo "code $?" >>"fault$i") &
done
wait
for model in "${models[@]}"; do
    json "$model" '.schema == "vqd.selftest/1" and .passed and (.checks | length == 17 and all(.result == "PASS"))'
    cmp "before.$model" "after.$model" || fail "the EEPROM of the $model has changed"
done
for ((i = 0; i < ${#faults[@]}; i += 2)); do
    cp "fault$i" out
    grep -q "^FAIL  ${faults[i + 1]}  " out || fail "no failed check '${faults[i + 1]}' with '${faults[i]}'"
    [[ $(grep -c '^FAIL' out) -eq $(sed -n 's/^failed: \([0-9]*\) of 17 checks$/\1/p' out) ]] || fail "miscounted"
    [[ $(tail -n 1 out) == "code 1" ]] || fail "not exit code 1"
done
finish
