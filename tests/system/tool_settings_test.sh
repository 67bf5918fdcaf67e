#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# What the tool reads and sets of a camera: settings, lens, dumps; the JSON of every command.
#   tool_settings_test.sh VQD_BINARY
source "$(dirname "$0")/tool_lib.sh"

# Settings: shown, changed for good, refused with the range, two clients one after the other
ends 0 "$vqd" sim -- sh -c '"$0" set offset=-5 depth-range=300,4000 --save -y >&2 && "$0" get offset depth-range' "$vqd"
shows out 'offset            -5' 'depth-range       300,4000'
ends 0 "$vqd" sim VQD-RS110 -- sh -c '"$0" set fps-delay=7 >&2 && "$0" get frequency fps-delay' "$vqd"
shows out 'frequency         10' 'fps-delay         0'
mentions err "not saved"
ends 0 "$vqd" sim --scene plane -- "$vqd" get temperature logic-version
shows out 'temperature       3[0-9]\.[0-9]*' 'logic-version     2\.5'
ends 0 "$vqd" sim -- "$vqd" grab -o set -s undistortion=2 -s flip-horizontal=1
png set/depth16.png 10 00
for words in 'set offset' 'set offset=' 'set offset=1,2' 'set offset=x' 'set offset=256' 'set depth-range=5,4' \
    'set temperature=3' 'set nothing=1' 'get nothing'; do
    # shellcheck disable=SC2086
    ends 2 "$vqd" $words
done

# Calibration: out, changed and in again; what is not a calibration is refused before the camera is touched.
ends 0 "$vqd" sim -- sh -c '"$0" lens >lens.json && sed -i "s/\"cx\": 160.0/\"cx\": 161.3/" lens.json && "$0" lens --set lens.json -y >&2 &&
    "$0" lens' "$vqd"
grep -q '"cx": 161.3' out || fail "the lens is not stored"
cmp -s out lens.json || fail "the calibration does not come back as it was sent"
for text in '' '"depth": {"fx": 1}' '"lens": {}' '"extrinsic": {"rotation": [[1, 0, 0]]}' '"depth": 3'; do
    ends 2 sh -c 'echo "{\"schema\": \"vqd.lens/1\", $1}" | "$0" lens --set - -y' "$vqd" "$text"
done
ends 1 "$vqd" lens --set no-such-file
ends 1 "$vqd" lens --set .
for value in depth.fx=-5 colour.k1=32.8 extrinsic.rotation[1][1]=3.3; do
    ends 2 "$vqd" sim -- sh -c '"$0" lens | jq ".$1" | "$0" lens --set - -y' "$vqd" "${value/=/ = }"
    mentions err "out of range, the nearest is"
done

# A dump is looked at as a whole before a camera is: there is none here. A model that keeps its frequency is found out.
for text in '"schema": "vqd.dump/2", "settings": {}' '"settings": {}' '"schema": "vqd.dump/1"' \
    '"schema": "vqd.dump/1", "settings": 3' '"schema": "vqd.dump/1", "settings": {"offset": 1}, "lens": {}' \
    '"schema": "vqd.dump/1", "settings": {"offset": 1, ' {; do
    ends 2 sh -c 'echo "{$1}" | "$0" load - --lens -y' "$vqd" "$text"
done
for text in '"offset": 256' '"offset": "1"' '"offset": 1.5' '"offset": [1, 2]' '"offset": null' '"offset": 4294967297' \
    '"depth-range": [5, 1]' '"multi-cam": [0, 10, 0]' '"nothing": 1'; do
    ends 2 sh -c 'echo "{\"schema\": \"vqd.dump/1\", \"settings\": {$1}}" | "$0" load -' "$vqd" "$text"
done
for model_code in 'VQD-WN120 6' 'VQD-RS110 1' 'VQD-HT120 0'; do
    ends "${model_code#* }" "$vqd" sim "${model_code% *}" -- sh -c \
        'echo "{\"schema\": \"vqd.dump/1\", \"settings\": {\"frequency\": 30}}" | "$0" load -' "$vqd"
done

# --json with -q: one object of the command's schema, and not a line beside it
while read -r schema words; do
    # shellcheck disable=SC2086
    ends 0 "$vqd" sim -- "$vqd" $words --json -q
    [[ $(jq -s 'length' out) == 1 && ! -s err ]] || fail "$words: not one object alone"
    json out ".schema == \"vqd.$schema/1\""
done <<'END'
list list
info info
get get offset logic-version
set set offset=3
dump dump
lens lens
grab grab -n 2 -o json
cloud cloud json.ply
eeprom-backup eeprom backup json.bin
table table load orthogonal json.tab
END
ends 0 "$vqd" sim -- "$vqd" info
for line in 'serial +24061100000001' 'frequency +20' 'logic-version +2\.5' 'lens\.depth\.k1 +-0\.346'; do
    grep -Eqx "$line" out || fail "info does not show $line"
done
finish
