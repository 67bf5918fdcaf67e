#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# What the tool writes to a camera's memory, with dump and load, reset and eeprom: backups, questions, and which camera.
#   tool_eeprom_test.sh VQD_BINARY
source "$(dirname "$0")/tool_lib.sh"

# A dump contains everything that can be set: after a reset it brings every setting back, and then nothing differs.
all='offset=-9 scatter-threshold=7 check-threshold=3 depth-range=300,4000 flip-horizontal=1 flip-vertical=1 fps-delay=2
    multi-cam=1,2,3 motion-blur=1,7 remove-edge=1 undistortion=2 fppn=1 orthogonal=1'
for model in VQD-HT120 VQD-RS110; do
    [[ $model == VQD-HT120 ]] || all=${all/edge=1/edge=0} # the factory settings differ
    # shellcheck disable=SC2016
    ends 0 "$vqd" sim $model -- bash -ec 'vqd=$0; vqd() { "$vqd" "$@"; }; rm -f factory.json set.json ./*.bin
        vqd dump -o factory.json -q
        vqd set $1 --save -y --force -q >set.txt
        vqd dump -o set.json -q
        vqd eeprom backup set.bin -q
        vqd reset -y --force >reset.txt
        [[ $(vqd get offset multi-cam -q | tr -s " \n" " ") == "offset 0 multi-cam 0,0,0 " ]]
        vqd eeprom diff set.bin --json >diff.json || [[ $? -eq 6 ]]
        vqd load set.json --save -y --force
        vqd dump | cmp - set.json
        vqd load factory.json --save -y --force -q
        vqd dump | cmp - factory.json
        vqd eeprom restore set.bin -y --force
        vqd eeprom diff set.bin' "$vqd" "$all"
    for assignment in $all; do
        grep -Eq "^${assignment%=*} +${assignment#*=}\$" set.txt || fail "not set on $model: $assignment"
        values="[${assignment#*=}]"
        json set.json ".settings.\"${assignment%=*}\" | (if type == \"array\" then . else [.] end) == $values"
    done
    json diff.json '.schema == "vqd.eeprom-diff/1" and (.equal | not)
        and any(.differences[]; .field == "depth-range maximum" and .before == "4000" and .after == "15000" and .unit == "mm")'
done
[[ $(ls "$XDG_STATE_HOME"/vqd/eeprom-24061100000001-*.bin | wc -l) -ge 10 ]] || fail "no backups"

# A command that changes the memory asks on a terminal, and refuses without one. The memory stays as it is after a no,
# without a place for the backup, and with the EEPROM of another camera.
head -c 4096 /dev/zero >t.bin
echo '{"schema": "vqd.lens/1", "extrinsic": {"rotation": [[1, 0, 0], [0, 1, 0], [0, 0, 1]], "translation": [0, 0, 0]}}' >lens.json
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
table restore orthogonal t.bin
reset
END
# shellcheck disable=SC2016
ends 0 "$vqd" sim VQD-HT120 VQD-HT110 -- bash -c 'vqd=$0; vqd() { "$vqd" "$@"; }
    port() { vqd list --json | jq -r ".cameras[] | select(.serial == \"$1\") | .port"; }
    one=$(port 24061100000001); two=$(port 24061100000002)
    vqd eeprom backup one.bin -c $one; vqd eeprom backup two.bin -c $two; vqd dump -o two.json -c $two
    state=$XDG_STATE_HOME; export XDG_STATE_HOME=$PWD/asked
    echo n | script -qec "\"$vqd\" reset -c $one" /dev/null; [[ $? -eq 1 ]] || exit 11
    [[ ! -e asked ]] || exit 10 # no backup before the answer
    export XDG_STATE_HOME=$state
    vqd eeprom restore two.bin -c $one -y; [[ $? -eq 1 ]] || exit 12
    XDG_STATE_HOME=/proc/nowhere vqd set offset=3 --save -y -c $one; [[ $? -eq 1 ]] || exit 13
    vqd load two.json --lens -y -c $one; [[ $? -eq 1 ]] || exit 20 # the lens of another camera
    env -u XDG_STATE_HOME -u HOME "$vqd" set offset=3 --save -y -c $one 2>nowhere; [[ $? -eq 1 ]] || exit 21
    vqd eeprom diff one.bin -c $one || exit 14
    vqd load two.json -c $one || exit 22
    echo y | script -qec "\"$vqd\" set offset=3 --save --force -c $one" /dev/null || exit 15
    vqd eeprom diff one.bin -c $one; [[ $? -eq 6 ]] || exit 16
    vqd set offset=1; [[ $? -eq 2 ]] || exit 17
    vqd eeprom restore two.bin -c $one -y --force || exit 18
    vqd get -c 24061100000002; [[ $? -eq 2 ]] || exit 19' "$vqd"
mentions err "two.json comes from camera 24061100000002; the serial number here is 24061100000001"
mentions nowhere "XDG_STATE_HOME names another place"

# Content with which a camera cannot work is not restored. The doctor reports it when it was forced.
# change BYTE BYTES: ./odd.bin is ./one.bin with BYTES from BYTE on
change() {
    cp one.bin odd.bin
    # shellcheck disable=SC2059
    printf "$2" | dd of=odd.bin bs=1 seek="$1" conv=notrunc status=none
}
while read -r at bytes mentioned; do
    change "$at" "$bytes"
    ends 2 "$vqd" sim -- "$vqd" eeprom restore odd.bin -y
    mentions err "odd.bin: $mentioned"
    # shellcheck disable=SC2016
    ends 0 "$vqd" sim -- sh -c '"$0" eeprom restore odd.bin -y --force && "$0" list && "$0" doctor' "$vqd"
    mentions out "^warning .*its EEPROM: $mentioned"
    mentions out "^no problem found, but see the warnings above"
    mentions err "warning: the EEPROM of camera 0 at 1-1: $mentioned"
done <<'END'
5 \377 the modulation frequency has no known code (255)
20 \377\377\377\377 the depth range is not plausible: 65535 to 65535 mm
20 \072\230\0\0 the depth range is not plausible: 15000 to 0 mm
80 \0\0\0\0 the depth lens is not plausible: focal length 0.0, 0.0
END

# When the read-back fails, it is unknown what was stored; when the write is refused, it is known.
ends 1 "$vqd" sim --fault "4th EEPROM read stalls" -- "$vqd" set offset=1 --save -y --force
mentions err "could not be read back, so it is not known"
ends 6 "$vqd" sim --fault "every EEPROM write refused" -- "$vqd" set offset=1 --save -y --force
mentions err "does not hold what was written"

# An EEPROM is written at most once in 10 s, and not at all when it holds the bytes already. A wait can be ended.
last=$XDG_STATE_HOME/vqd/saved-24061100000001
echo >"$last"
touch -d '+8 seconds' "$last" # so that the machine may be slow
# shellcheck disable=SC2016
ends 0 "$vqd" sim -- bash -c 'vqd=$0; "$vqd" eeprom backup quick.bin
    "$vqd" set offset=1 --save -y 2>wait & pid=$!
    for _ in {1..80}; do grep -q "at once" wait && break; sleep 0.1; done
    kill -INT $pid; wait $pid; [[ $? -eq 130 ]] || exit 10
    "$vqd" eeprom diff quick.bin || exit 11
    "$vqd" set offset=1 --save -y --force || exit 12
    "$vqd" set offset=1 --save -y || exit 13 # as it is
    "$vqd" eeprom diff quick.bin; [[ $? -eq 6 ]]' "$vqd"
mentions wait "the next save is possible in 10 s (--force saves at once)"
mentions err "the EEPROM holds this already, so nothing was written"

# The first and the newest 19 backups of a camera stay. Files with other names are not touched.
backups=$XDG_STATE_HOME/vqd
rm "$backups"/*
for second in {10..40}; do
    touch -d "2024-01-01 00:00:$second" "$backups/eeprom-24061100000001-20240101-0000$second.bin"
done
touch -d 2024-01-02 "$backups/eeprom-24061100000001-mine.bin" "$backups/eeprom-24061100000002-20240102-000000.bin"
ends 0 "$vqd" sim -- "$vqd" set offset=1 --save -y
# shellcheck disable=SC2012
ls "$backups" | grep bin | sed 's/.*-000//' | head -n 20 | tr '\n' ' ' >kept
[[ $(ls "$backups" | grep -c bin) -eq 22 && $(cat kept) == "010.bin 023.bin 024.bin "*"040.bin "* ]] || fail "kept: $(cat kept)"

finish
