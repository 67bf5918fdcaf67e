#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# vqd recording: what it shows of a file, and what is left of files that were cut or damaged.
#   tool_recording_test.sh VQD_BINARY RECORDING_SAMPLE_BINARY
source "$(dirname "$0")/tool_lib.sh"
sample=$(readlink -f "$2")

# change FILE OFFSET BYTES: as printf writes them
change() {
    # shellcheck disable=SC2059
    printf "$3" | dd of="$1" bs=1 seek="$2" conv=notrunc status=none
}

# What is shown of a file is what was written, and all forms of a recording are whole.
for form in "" images compact uncompressed; do
    # shellcheck disable=SC2086
    "$sample" "whole$form.mcap" 40 $form || fail "there is no sample"
    ends 0 "$vqd" recording verify "whole$form.mcap"
    grep -Eq '^whole[a-z]*\.mcap: whole, [0-9]+ messages in [0-9]+ chunks$' out || fail "whole$form.mcap is not whole"
done
ends 0 "$vqd" recording info whole.mcap --json
json out '.schema == "vqd.recording-info/1" and .whole and .camera.serial == "24061100000001" and .camera.product == "VQD-HT120"'
json out '(.channels | map({(.topic): .messages}) | add) as $of | $of["/shelf/range/image_raw"] == 40
    and $of["/shelf/frame_header"] == 40 and $of["/shelf/parameters"] == 1 and $of["/diagnostics"] == 1'
json out '.["end-ns"] - .["begin-ns"] | . > 1333333000 and . < 1333334000'
json out '.attachments | map(.name + " " + (.bytes | tostring)) | index("24061100000001/eeprom.bin 128") != null'
ends 0 "$vqd" recording info whole.mcap
mentions out '^whole.mcap: .* MB, 1.3 s from 2026-09-21 '
mentions out '^      40  /shelf/range/image_raw  *sensor_msgs/msg/Image$'
ends 0 "$vqd" recording repair whole.mcap
mentions out 'whole.mcap is whole, so nothing is written'

# The reader of the documentation needs nothing of ours.
sed -n '/^```python$/,/^```$/p' "$tests/../../docs/recording-format.md" | sed '1d;$d' >reader.py
ends 0 python3 reader.py wholeuncompressed.mcap
[[ $(wc -l <out) -eq 40 ]] || fail "the documentation's reader finds other frames"
mentions out '^40 12[0-9]* mm$'

# A cut file, as a killed recording leaves it: what the chunks hold comes back, and nothing is ever overwritten.
head -c 2000000 wholeuncompressed.mcap >killed.mcap.part
ends 6 "$vqd" recording verify killed.mcap.part
mentions out 'the recording has no summary that is whole'
ends 0 "$vqd" recording info killed.mcap.part
mentions err 'warning: killed.mcap.part: the recording has no summary'
ends 0 "$vqd" recording repair killed.mcap.part --json
json out '.written == "killed-repaired.mcap" and .attachments == 3 and .messages > 10 and .["lost-count"] == 0'
ends 0 "$vqd" recording verify killed-repaired.mcap
cp killed-repaired.mcap before
ends 1 "$vqd" recording repair killed.mcap.part
mentions err 'killed-repaired.mcap exists'
cmp -s before killed-repaired.mcap || fail "the present file was changed"

# A damaged chunk is left out, and what follows it is kept.
cp wholeuncompressed.mcap damaged.mcap
change damaged.mcap 1500000 '\xff\xfe\xfd'
ends 6 "$vqd" recording verify damaged.mcap --json
json out '(.whole | not) and .["fault-count"] >= 1 and (.faults[0] | test("the chunk at byte [0-9]+ is damaged: its CRC is wrong"))'
ends 0 "$vqd" recording repair damaged.mcap -o mended.mcap
mentions err 'warning: lost: the chunk at byte [0-9]* is damaged'
ends 0 "$vqd" recording verify mended.mcap
ends 0 "$vqd" recording info mended.mcap --json
json out '(.channels | map({(.topic): .messages}) | add) as $of | $of["/shelf/frame_header"] | . > 30 and . < 40'
head -c 8000000 damaged.mcap >killed-2.mcap.part # which has no summary that names the damaged chunk
ends 0 "$vqd" recording repair killed-2.mcap.part --json
json out '.["lost-count"] == 1 and (.lost[0] | test("the chunk at byte [0-9]+ is damaged"))'
mentions err 'warning: lost: the chunk at byte [0-9]* is damaged'

# Nothing is left behind when a repair fails: a full disk, a file with nothing in it, a folder that is not there.
ends 1 bash -c 'trap "" XFSZ; ulimit -f 500; exec "$0" recording repair damaged.mcap -o full.mcap' "$vqd"
mentions err 'File too large'
head -c 60 whole.mcap >start.mcap
ends 2 "$vqd" recording repair start.mcap
mentions err 'start.mcap cannot be repaired: nothing in it is whole'
ends 1 "$vqd" recording repair damaged.mcap -o nowhere/new.mcap
mkdir folder
ends 2 "$vqd" recording repair damaged.mcap -o folder/
mentions err 'folder/ names a folder'
[[ -z $(find . -name '*full*' -o -name 'start-*' -o -name '*.mcap.part' ! -name 'killed*') ]] || fail "a failed repair leaves files"

# Files of others, and none at all.
cp wholeuncompressed.mcap future.mcap
at=$(grep -abo -m1 'format' future.mcap | head -n 1 | cut -d: -f1)
change future.mcap $((at + 10)) 9 # behind the length of the value
ends 0 "$vqd" recording info future.mcap
mentions err 'future.mcap is of format 9, and this version of vqd knows format 1 only'
echo 'no recording' >text.mcap
for way in info verify repair; do
    ends 2 "$vqd" recording "$way" text.mcap
    mentions err 'text.mcap is no recording: it does not begin as an MCAP file'
    ends 1 "$vqd" recording "$way" missing.mcap
    ends 2 "$vqd" recording "$way" .
    ends 2 "$vqd" recording "$way"
done
finish
