#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# What the tool reads from a camera and sets in it (settings, lens, dumps), and the JSON of every command.
#   tool_settings_test.sh VQD_BINARY
source "$(dirname "$0")/tool_lib.sh"

# Settings are shown, go with the client that did not save them, and can be refused.
ends 0 "$vqd" sim VQD-RS110 -- sh -c '"$0" set fps-delay=7 >&2 && "$0" get frequency fps-delay depth-range temperature logic-version' "$vqd"
shows out 'frequency         10' 'fps-delay         0' 'depth-range       0,15000' 'temperature       3[0-9]\.[0-9]*' 'logic-version     2\.5'
mentions err "not saved"
for words in 'set depth-range=500,500' 'set offset' 'set offset=' 'set offset=1,2' 'set offset=x' 'set offset=256' 'set depth-range=5,4' \
    'set temperature=3' 'set nothing=1' 'get nothing'; do
    # shellcheck disable=SC2086
    ends 2 "$vqd" $words
done

# The tool accepts exactly what vqd settings prints: values beyond any limit are refused before the tool looks for a camera.
# The manual has all settings.
ends 0 "$vqd" settings --json
json out '.schema == "vqd.settings/1" and (.settings | length == 19)'
jq -r '.settings[] | select(."read-only" | not) | .name as $name | .values
    | to_entries[] as $beyond | map(.maximum) as $most | map(.minimum) as $least
    | ($most | .[$beyond.key] += 1), ($least | .[$beyond.key] -= 1) | "\($name)=\(map(tostring) | join(","))"' out >beyond
[[ $(wc -l <beyond) -gt 30 ]] || fail "values beyond the limits: $(cat beyond)"
while read -r assignment; do
    ends 2 "$vqd" set "$assignment"
    mentions err "^vqd: ${assignment%=*} takes "
done <beyond
ends 0 "$vqd" settings
mentions out '^depth-range  *Depth range  *MIN,MAX in mm: 0 to 15000, MIN below MAX$'
while read -r name _; do
    mentions "$tests/../../docs/settings.md" "^| \`$name\`"
done <out

# The tool checks whether the camera took a value, says why not, and says when FPPN adds nothing.
while read -r code model fault assignment mentioned; do
    ends "$code" "$vqd" sim "$model" --fault "${fault//_/ }" -- "$vqd" set "$assignment"
    mentions err "$mentioned"
done <<'END'
6 VQD-WN120 # frequency=77 frequency is 20 instead of 77
1 VQD-HT120 # frequency=77 does not take frequency=77 (MHz
1 VQD-HT120 image_refused offset=7 offset is not set: its transfer to the camera failed
0 VQD-HT120 # fppn=1 adds nothing: the FPPN table reads as zeros
END

# No command shows an EEPROM that cannot be read, or not as a whole.
for fault in "first EEPROM read stalls" "2nd EEPROM read stalls" "every EEPROM read answers 100 bytes"; do
    for words in lens dump get info 'eeprom backup unread.bin'; do
        # shellcheck disable=SC2086
        ends 1 "$vqd" sim --fault "$fault" -- "$vqd" $words -q
        mentions err "vqd: the EEPROM of camera 0 at 1-1 cannot be read"
        [[ ! -s out && ! -e unread.bin ]] || fail "shown with '$fault': $words"
    done
done
for words in list 'grab -o unread'; do
    # shellcheck disable=SC2086
    ends 0 "$vqd" sim --fault "every EEPROM read stalls" -- "$vqd" $words --json
    mentions err "warning: the EEPROM of camera 0 at 1-1 cannot be read"
    json out '.cameras[0].serial == null and .camera.serial == null'
done

# A calibration is read, changed and set again. A file that is none is refused before the camera is touched.
ends 0 "$vqd" sim -- sh -c '"$0" lens >lens.json && sed -i "s/\"cx\": 160.0/\"cx\": 161.27/;s/-0.346/-0.34649/" lens.json && "$0" lens --set lens.json -y --force >&2 &&
    "$0" lens' "$vqd"
json out '.depth.cx == 161.3 and .depth.k1 == -0.346 and .extrinsic.rotation[1][1] == null'
# Every value of every field is rounded. The transform is shown as the EEPROM holds it.
ends 0 "$vqd" sim -- sh -c '"$0" lens | jq ".depth.fx = 203.97 | .colour.fx = 203.97 | .extrinsic.rotation = [[1,0,0],[0,1,0],[0,0,1]]" |
    "$0" lens --set - -y --force' "$vqd"
json out '.depth.fx == 204 and .colour.fx == 204 and .extrinsic.rotation == [[1, 0, 0], [0, null, null], [null, null, null]]'
for text in '' '"depth": {"fx": 1}' '"lens": {}' '"extrinsic": {"rotation": [[1, 0, 0]]}' '"depth": 3'; do
    ends 2 sh -c 'echo "{\"schema\": \"vqd.lens/1\", $1}" | "$0" lens --set - -y' "$vqd" "$text"
done
ends 1 "$vqd" lens --set no-such-file
ends 1 "$vqd" lens --set .
for value in depth.fx=-5 colour.k1=32.8 extrinsic.rotation[1][1]=3.3; do
    ends 2 "$vqd" sim -- sh -c '"$0" lens | jq ".$1" | "$0" lens --set - -y' "$vqd" "${value/=/ = }"
    mentions err "out of range, the nearest is"
done

for change in depth.fx=0 depth.cy=200 colour.fx=0; do
    ends 2 "$vqd" sim -- sh -c '"$0" lens | jq ".$1" | "$0" lens --set - -y' "$vqd" "${change/=/ = }"
    mentions err "lens is not plausible"
done
# shellcheck disable=SC2016
ends 0 "$vqd" sim -- sh -c '"$0" lens | jq ".depth.fx = 0" | "$0" lens --set - -y --force' "$vqd"
for schema in lens dump; do
    for name in settings lens; do
        { printf '{"schema": "vqd.%s/1", "%s": ' $schema $name; yes '[' | head -n 100000; } >deep.json
        ends 2 "$vqd" "$([[ $schema == dump ]] && echo load || echo lens)" "$([[ $schema == dump ]] && echo --lens || echo --set)" deep.json -y
        mentions err "nested more than 16 levels deep"
    done
done

# The whole dump is checked before the tool looks for a camera, which does not exist here. A model that keeps its frequency is
# noticed.
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

ends 0 "$vqd" sim -- "$vqd" dump -o dumped.json
# --json with -q prints one object of the command's schema, and no other line.
while read -r schema words; do
    # shellcheck disable=SC2086
    ends 0 "$vqd" sim -- "$vqd" $words --json -q
    [[ $(jq -s 'length' out) == 1 && ! -s err ]] || fail "$words: not one object alone"
    json out ".schema == \"vqd.$schema/1\""
done <<'END'
list list
info info
settings settings
get get offset logic-version
set set offset=3
dump dump
lens lens
grab grab -n 2 -o json
cloud cloud json.ply
eeprom-backup eeprom backup json.bin
table-backup table backup orthogonal json.tab
table-restore table restore orthogonal json.tab -y
load load dumped.json
eeprom-restore eeprom restore json.bin -y
reset reset -y --force
END
ends 0 "$vqd" sim -- "$vqd" info
for line in 'serial +24061100000001' 'frequency +20' 'logic-version +2\.5' 'lens\.depth\.k1 +-0\.346'; do
    grep -Eqx "$line" out || fail "info does not show $line"
done
finish
