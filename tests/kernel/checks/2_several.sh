# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2016 # variables of the inner shell
#
# Several cameras, several programs.

same ten_cameras 'ten cameras listed, and read in turn' "$(printf 'VQD-HT120 %.0s' {1..10})--fps 0" '
    vqd list && in_turn 10 3 >/dev/null'
same eleven_cameras 'eleven cameras refused' "$(printf 'VQD-HT120 %.0s' {1..11})" 'vqd list'
same four_processes 'four processes on four cameras' 'VQD-HT120 VQD-HT110 VQD-RS110 VQD-WN120 --fps 0' '
    for n in 1 2 3 4; do
        vqd grab -n 5 --format raw -o $n -c 2406110000000$n -q >/dev/null || echo "camera $n: exit code $?" &
    done
    wait; sha256sum */*.raw'

check one_camera_twice 'the second program on a camera is refused, the first one loses nothing; neither by lists beside it'
one_camera_twice() {
    dmesg --clear
    ends 0 plugged VQD-HT120 VQD-RS110 -- bash -c '
        port=$(vqd list --json | jq -r ".cameras[0].port") other=$(vqd list --json | jq -r ".cameras[1].port")
        vqd stats --json -c $port >stream & stats=$!
        until [[ -s stream ]]; do sleep 0.1; done
        vqd grab -c $port -o refused 2>refused.err; [[ $? -eq 4 ]] || exit 11
        (for _ in {1..12}; do vqd list && vqd get -c $port && vqd eeprom backup b.bin --force -c $port || exit; done) >lists 2>&1 & lists=$!
        for _ in {1..3}; do vqd grab -c $other -o beside --force || exit 12; done
        wait $lists || exit 13
        kill -INT $stats; wait $stats'
    mentions refused.err "cannot be opened; vqd (process [0-9]*) has it open"
    tail -n 1 stream >summary
    json summary '.type == "summary" and .frames > 0 and ."transfer-errors" + ."wrong-start-codes" + .reopens == 0'
    ! dmesg | grep 'did not claim interface' >out || fail "a program used a camera that it had not claimed"
}
