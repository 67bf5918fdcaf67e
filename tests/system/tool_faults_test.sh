#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# How grab, stats and view behave when cameras misbehave by a fault plan.
#   tool_faults_test.sh VQD_BINARY
# shellcheck source=tests/system/tool_lib.sh
# shellcheck disable=SC2016 # variables of the inner shell
source "$(dirname "$0")/tool_lib.sh" "$1"

ends 2 "$vqd" sim VQD-HT120 --fault "2: frame stalls" -- true
mentions err "fault plan: there is no camera 2"
tail -n 2 err >caret
shows caret '    2: frame stalls' '    \^'

# After an unplug during a grab, it goes on once the camera is re-opened, or ends when the camera never comes back. The
# plan of another camera does not count.
ends 0 "$vqd" sim VQD-HT120 VQD-RS110 --fault "1: unplug after frame 10, back after 350 ms; 2: every frame stalls" -- \
    sh -c '"$0" grab -n 20 -o back -c 24061100000001 -v --format raw --json' "$vqd"
mentions err 'Device Reset2, -4'
for words in 'is lost, searching' 'is back after'; do
    mentions err "camera 0 at 1-[12] $words"
done
json out '.reopens == 1 and ."lost-estimate" > 20 and ."longest-gap" > 1'
[[ $(sed 1d back/frames.csv | cut -d , -f 5 | tr -d '\n') == 00000000001000000000 ]] || fail "frames.csv: $(cat back/frames.csv)"
ends 5 "$vqd" sim --fault "unplug after frame 10" -- "$vqd" grab -n 20 -o gone
[[ -z $(ls -A gone) ]] || fail "pictures of a camera that is gone"

# A read that had to re-open the camera brings no frame.
ends 0 "$vqd" sim --fps 0 --fault "5th frame has a bad start code" -- "$vqd" grab -n 8 --format raw -o series
[[ $(md5sum series/depth-* | cut -d " " -f 1 | sort -u | wc -l) -eq 8 ]] || fail "a frame came twice"
ends 5 "$vqd" sim --fault "every frame has a bad start code" -- "$vqd" grab -o gone
mentions err "sends no frames"
[[ -z $(ls -A gone) ]] || fail "pictures of no frame"

# Without memory from the kernel no frame comes, but the camera is not lost.
ends 1 "$vqd" sim --fault "every frame is out of memory" -- "$vqd" grab -o gone
mentions err 'no memory left for a frame.*usbfs_memory_mb'

# stats counts failed transfers, a wrong start code, and the two re-opens that follow. A signal ends it.
ends 0 "$vqd" sim --fps 100 --fault "unplug after frame 20, back after 100 ms; bad start code after frame 40" -- sh -c '
    "$0" stats --json & until grep -q "\"wrong-start-codes\":1" "$PWD/out"; do sleep 0.2; done; kill -INT $!; wait $!' "$vqd"
jq -s . out >all || fail "not an object a line"
json all 'all(.schema == "vqd.stats/1" and .duration > 0) and (.[:-1] | all(.type == "second"))'
json all '.[-1] | .type == "summary" and ."transfer-errors" == 3 and ."wrong-start-codes" == 1 and .reopens == 2 and .frames >= 40 and ."interval-ms".max > 1000'
json all '(map(select(.type == "second") | .frames) | add) <= .[-1].frames and .[0]."interval-ms".jitter >= 0'
ends 0 "$vqd" sim -- "$vqd" stats --for 2
grep -Eq '^ +[12]s +[0-9.]+ +[0-9.]+ms' out || fail "no line a second"
grep -Eq '^failed transfers 0, wrong start codes 0, re-opens 0$' out || fail "no summary"
ends 0 "$vqd" sim -- "$vqd" stats -n 5
grep -q '^5 frames in ' out || fail "not five frames"
# An outage before the first frame is a gap too. A serial number that was not read is null.
ends 0 "$vqd" sim --fault "first frame has a bad start code; every EEPROM read stalls" -- "$vqd" stats -n 3 --json
jq -es '.[-1] | .camera == null and .frames == 3 and .reopens == 1 and ."interval-ms".max > 1000' out >all || fail "no gap before the first frame"
ends 5 "$vqd" sim --fault "unplug after frame 10" -- "$vqd" stats --json
jq -es '.[-1].frames == 10' out >all || fail "no summary of a lost camera"

# Without a terminal, view draws one frame of 40 x 15 characters and refuses more. On a terminal, the screen and the cursor
# come back afterwards.
ends 0 env COLUMNS=40 LINES=17 "$vqd" sim -- "$vqd" view --once
sed 's/\x1b\[[0-9;]*[mK]//g' out >text
[[ $(wc -l <text) -eq 16 && $(head -n 15 text | sort -u) == "$(printf '▀%.0s' {1..40})" ]] || fail "the picture is not 40 x 15"
grep -q $'\x1b\[38;2;[0-9]*;[0-9]*;[0-9]*m' out || fail "no colours"
ends 2 "$vqd" sim -- "$vqd" view
ends 0 script -qec "'$vqd' sim -- '$vqd' view -n 3" typescript
[[ $(grep -o $'\x1b\[?1049[hl]\|\x1b\[?25[hl]' out | tr '\n' ' ') == $'\x1b[?1049h \x1b[?25l \x1b[?25h \x1b[?1049l ' ]] ||
    fail "the terminal is not as it was"
finish
