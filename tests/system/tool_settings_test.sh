#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# What the tool reads and writes of a camera: settings, lens, EEPROM.
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

# A dump holds everything that can be set: after a reset it brings every setting back, and only then differs nothing.
all='offset=-9 scatter-threshold=7 check-threshold=3 depth-range=300,4000 flip-horizontal=1 flip-vertical=1 fps-delay=2
    multi-cam=1,2,3 motion-blur=1,7 remove-edge=1 undistortion=2 fppn=1 orthogonal=1'
for model in VQD-HT120 VQD-RS110; do
    [[ $model == VQD-HT120 ]] || all=${all/edge=1/edge=0} # each is the other's factory setting
    # shellcheck disable=SC2016
    ends 0 "$vqd" sim $model -- bash -ec 'vqd=$0; rm -f factory.json set.json ./*.bin
        $vqd dump -o factory.json -q
        $vqd set $1 --save -y -q >set.txt
        $vqd dump -o set.json -q
        $vqd eeprom backup set.bin -q
        $vqd reset -y >reset.txt
        [[ $($vqd get offset multi-cam -q | tr -s " \n" " ") == "offset 0 multi-cam 0,0,0 " ]]
        $vqd eeprom diff set.bin --json >diff.json || [[ $? -eq 6 ]]
        $vqd load set.json --save -y
        $vqd dump | cmp - set.json
        $vqd load factory.json --save -y -q
        $vqd dump | cmp - factory.json
        $vqd eeprom restore set.bin -y
        $vqd eeprom diff set.bin' "$vqd" "$all"
    for assignment in $all; do
        grep -Eq "^${assignment%=*} +${assignment#*=}\$" set.txt || fail "not set on $model: $assignment"
        values="[${assignment#*=}]"
        json set.json ".settings.\"${assignment%=*}\" | (if type == \"array\" then . else [.] end) == $values"
    done
    json diff.json '.schema == "vqd.eeprom-diff/1" and (.equal | not)
        and any(.differences[]; .field == "depth-range maximum" and .before == "4000" and .after == "15000" and .unit == "mm")'
done
[[ $(ls "$XDG_STATE_HOME"/vqd/eeprom-24061100000001-*.bin | wc -l) -ge 10 ]] || fail "no backups"

# What changes the memory asks where somebody is, and refuses where nobody is. A no, no place for the backup, and an
# EEPROM of another camera leave it as it is.
head -c 4096 /dev/zero >t.bin
while read -r words; do
    # shellcheck disable=SC2086
    ends 2 "$vqd" $words
    mentions err "give --yes"
done <<'END'
set offset=1 --save
lens --set lens.json
load set.json --save
load set.json --lens
eeprom restore set.bin
table save orthogonal t.bin
reset
END
# shellcheck disable=SC2016
ends 0 "$vqd" sim VQD-HT120 VQD-HT110 -- bash -c 'vqd=$0; vqd() { "$vqd" "$@"; }
    vqd eeprom backup one.bin -c 1-2; vqd eeprom backup two.bin -c 001-003
    echo n | script -qec "$vqd reset -c 1-2" /dev/null; [[ $? -eq 1 ]] || exit 11
    vqd eeprom restore two.bin -c 1-2 -y; [[ $? -eq 1 ]] || exit 12
    XDG_STATE_HOME=/proc/nowhere vqd set offset=3 --save -y -c 1-2; [[ $? -eq 1 ]] || exit 13
    vqd eeprom diff one.bin -c 1-2 || exit 14
    echo y | script -qec "$vqd set offset=3 --save -c 1-2" /dev/null || exit 15
    vqd eeprom diff one.bin -c 1-2; [[ $? -eq 6 ]] || exit 16
    vqd set offset=1; [[ $? -eq 2 ]] || exit 17
    vqd eeprom restore two.bin -c 1-2 -y --force || exit 18
    vqd get -c 24061100000002; [[ $? -eq 2 ]] || exit 19' "$vqd"

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
