#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Uses the tool as people do, on virtual cameras: how a camera is chosen, exit codes, signals, and what is left behind.
#   tool_test.sh VQD_BINARY
source "$(dirname "$0")/tool_lib.sh"
manual=$tests/../../docs/vqd.md

# Only data goes to standard output. The library's lines go to standard error, with -v or after a failure.
ends 0 "$vqd" --version
shows out 'vqd 2\.4\.0'
ends 0 "$vqd" sim VQD-HT120 VQD-RS110 -- "$vqd" list
[[ ! -s err ]] || fail "lines of the library"
shows out '0  VQD-HT120   24061100000001  03a4:871a  1-[0-9]*    001:[0-9]*' '1  VQD-RS110   24061100000002  03a4:8720  1-[0-9]*    001:[0-9]*'
ends 0 "$vqd" sim -- "$vqd" list -v
mentions err VQD_Library_Ver

# What a virtual camera can be given: a serial number, an EEPROM, a table, for one camera or for each
ends 0 "$vqd" sim VQD-HT120 VQD-HT110 --serial 2:2406110000abcd -- sh -c '"$0" list && "$0" eeprom backup given.bin -c 1 -q >&2' "$vqd"
shows out '0  VQD-HT120   24061100000001  .*' '1  VQD-HT110   2406110000abcd  .*'
ends 0 "$vqd" sim --eeprom given.bin -- sh -c '"$0" list && "$0" eeprom diff given.bin >&2' "$vqd"
shows out '0  VQD-HT120   2406110000abcd  .*'

# Usage
while read -r mentioned arguments; do
    # shellcheck disable=SC2086 # words on purpose
    ends 2 "$vqd" $arguments
    mentions err "$mentioned"
done <<'END'
subcommand
nonsense    nonsense
vqd.grab    grb -n 1
eeprom.restore? eeprom restroe given.bin -y
vqd.table.--help table load orthogonal t.bin
a.seed.is   sim --seed -1 -- true
no.camera.2 sim --serial 2:24061100000001 -- true
14.hexa     sim --serial 2406 -- true
128.bytes   sim --eeprom /dev/null -- true
4096.bytes  sim --table orthogonal=/dev/null -- true
TABLE=FILE  sim --table nothing=/dev/null -- true
no.frame    grab -s illumination=0
no.frame    cloud dark.ply -s illumination=00
not.expected:.--camera.0 list --camera 0
--frames    grab -n 0
--frames    grab -n some
PROGRAM     sim VQD-HT120
VQD-WN120   sim VQD-X1 -- true
--scene     sim --scene moon -- true
a.wall      sim --scene wall:1,2,3 -- true
tilt        sim --scene wall:2000,90 -- true
board:FILE  sim --scene board: -- true
NAME=VALUE  sim --lens k9=1 -- true
fill        sim --sensor fill=1.5 -- true
a.pose      sim --pose 1,2 -- true
--fps       sim --fps -1 -- true
at.most.11  sim VQD-HT120 VQD-HT120 VQD-HT120 VQD-HT120 VQD-HT120 VQD-HT120 VQD-HT120 VQD-HT120 VQD-HT120 VQD-HT120 VQD-HT120 VQD-HT120 -- true
END
echo '{"schema": "vqd.board/1", "columns": 2.5, "poses": [{"position": [0, 0, 900]}]}' >board.json
ends 2 "$vqd" sim --scene board:board.json -- true
mentions err '"columns" is no whole number'

# The second camera stands 500 mm nearer to the wall, and the third measures 20 mm too much.
ends 0 "$vqd" sim --scene wall:1500,10 --sensor noise=0 VQD-HT110 VQD-HT110 VQD-RS110 --pose 2:0,0,500 --sensor 3:bias=20 -- sh -c '
    for camera in 1 2 3; do "$0" grab -c 2406110000000$camera -n 1 -o seen --json --force | jq ".[\"centre-depth\"]"; done' "$vqd"
shows out 1500 1000 1520

for words in 'get -c' 'info -c' 'dump -c' 'lens -c' 'grab -c' 'stats -c' 'selftest -c' 'eeprom backup x -c' 'set offset=1 -c' \
    'table backup orthogonal x -c' 'reset -c' 'grab -o' cloud 'doctor --report'; do
    # shellcheck disable=SC2086
    ends 2 "$vqd" $words ""
    [[ $(head -n 1 err) =~ ^(--camera|--output|file|--report):\ it\ is\ empty$ ]] || fail "not refused as empty: $words"
done

# A camera is chosen by port or by address, which a dash and a colon distinguish. The camera at port 1-1 has address 3.
ends 0 "$vqd" sim VQD-HT120 VQD-RS110 -- sh -c 'for camera in 1-1 1:3 001:003 24061100000002; do
    "$0" dump -c $camera | jq -r .camera.port; done' "$vqd"
shows out 1-1 1-1 1-1 1-1

# No camera at all; no camera of that name; one camera too many
ends 3 on_an_empty_bus list --json
mentions err "no camera found"
json out '.cameras == []'
ends 3 "$vqd" sim -- "$vqd" grab -o none -c 7
[[ ! -e none ]] || fail "a directory for no pictures"
# shellcheck disable=SC2046
ends 1 "$vqd" sim $(printf 'VQD-HT120 %.0s' {1..11}) -- "$vqd" list
mentions err "11 cameras"

# Commands that only read send no image and no request before one, which here would unplug the camera. Beside a stream they
# cost no frame, no open fails, and the program that has the camera open is named.
reads='"$0" list && "$0" get && "$0" lens && "$0" dump && "$0" eeprom backup b.bin --force && "$0" eeprom diff b.bin &&
    "$0" table backup orthogonal t.bin --force'
ends 0 "$vqd" sim --fault "request 0xB1 unplugs; image unplugs" -- sh -c "$reads && \"\$0\" list" "$vqd"
ends 0 "$vqd" sim VQD-HT120 VQD-RS110 --fps 5 -- bash -c '"$0" stats --json -c 1-1 >stream & until [[ -s stream ]]; do sleep 0.1; done
    (for fd in {3..30}; do eval "exec $fd</dev/null"; done # programs with the same descriptors share a socket of the bus
    for _ in {1..50}; do "$0" list || exit; done; '"$reads"') >/dev/null & lists=$!
    for _ in {1..5}; do "$0" grab -c 1-2 -o beside --force || exit 11; done
    "$0" grab -c 1-1 2>held && exit 12; wait $lists || exit 13; kill -INT %1; wait %1' "$vqd"
mentions held "camera [01] at 1-1 cannot be opened; vqd stats (process [0-9]*) has it open"
tail -n 1 stream >all
json all '.type == "summary" and ."transfer-errors" + ."wrong-start-codes" + .reopens == 0'

# The exit code is that of the program.
ends 7 "$vqd" sim -- sh -c 'exit 7'
ends 137 "$vqd" sim -- sh -c 'kill -KILL $$'
ends 127 "$vqd" sim -- ./no-such-program
mentions err "no-such-program: No such file"
ends 126 "$vqd" sim -- "$work"

# Signals are passed on. Grabbing ends cleanly and saves nothing.
for signal in INT TERM HUP; do
    ends 130 "$vqd" sim -- sh -c '
        trap "" INT TERM HUP
        env --default-signal=INT,TERM,HUP "$0" grab -n 1000000 -o stopped & sleep 2; kill -'$signal' $!; wait $!' "$vqd"
    mentions err "interrupted, nothing saved"
    [[ -z $(ls -A stopped) ]] || fail "saved after an interrupt: $(ls -A stopped)"
done
ends 1 "$vqd" sim -- sh -c '"$0" grab -n 1000000 --format raw -o series & sleep 3; kill $!; wait $!' "$vqd"
mentions err "interrupted; [0-9]* of 1000000 frames are complete"
[[ $(find series -name '*.raw' -size 153600c | wc -l) -eq $(find series -type f ! -name frames.csv | wc -l) &&
    $(find series -name '*.raw' | wc -l) -eq $((2 * $(sed 1d series/frames.csv | wc -l))) ]] || fail "an incomplete frame"
"$vqd" sim -- "$vqd" grab -n 1000000 -o stopped >out 2>err &
sleep 2
kill -TERM $!
wait $!
[[ $? -eq 130 ]] || fail "SIGTERM to the simulator"

# Man pages, completion and the manual describe every command.
help2man=$(command -v help2man)
ends 0 "$tests/../../tools/vqd/make_reference.sh" "$vqd" reference ${help2man:+"$help2man"}
while read -r command; do
    [[ -z $help2man || -s reference/vqd-$command.1.gz ]] || fail "no man page of $command"
    grep -q "^## $command\$" "$manual" || fail "$manual does not describe $command"
done < <("$vqd" --help | sed '1,/Subcommands:/d' | sed -En 's/^  ([a-z]+) .*/\1/p')
complete_words() {
    bash -c 'source reference/vqd.bash; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _vqd 2>/dev/null; echo "${COMPREPLY[@]}"' vqd "$@"
}
[[ $(complete_words vqd ee) == eeprom ]] || fail "completion of a command"
[[ $(complete_words vqd eeprom re) == restore ]] || fail "completion of a sub-command"
[[ $(complete_words vqd grab --format p) == 'png pgm' ]] || fail "completion of a value"
[[ $(complete_words vqd sim VQD-R) == 'VQD-RS110 VQD-RS120' ]] || fail "completion of a model"
[[ $(complete_words vqd set off) == offset= ]] || fail "completion of a setting"

finish
