# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2016 # variables of the inner shell
#
# What the tool shows, writes and reads back, the pictures, and what it says of faults: the same as on the mocked bus.
# The scene is a plane where it does not matter, because an emulated processor needs a second for the room.

same list 'vqd list' 'VQD-HT120 VQD-RS110 VQD-WN120 --scene plane' 'vqd list && vqd list --json'
same info 'vqd info, get, lens' 'VQD-HT110 --fps 0 --scene plane' 'vqd info && vqd info --json && vqd get logic-version temperature && vqd lens'
same settings 'vqd set --save, dump, reset, load' 'VQD-HT120 --scene plane' '
    vqd set offset=-9 depth-range=300,4000 flip-vertical=1 undistortion=2 remove-edge=1 --save -y --force -q && vqd dump -o set.json -q
    vqd set offset=3 -q; vqd get offset; vqd set offset=256
    vqd reset -y --force -q && vqd load set.json --save -y --force -q && vqd get'
same eeprom 'vqd eeprom backup, diff, restore' 'VQD-RS110 --scene plane' '
    vqd eeprom backup factory.bin -q && vqd set offset=7 fps-delay=3 --save -y --force -q
    vqd eeprom diff factory.bin; vqd eeprom restore factory.bin -y --force -q && vqd eeprom diff factory.bin && sha256sum factory.bin'
same tables 'vqd table restore, backup' 'VQD-HT120 --scene plane' '
    seq -w 1 9999 >numbers
    for table in orthogonal=4096 fppn-5x5=6144 wiggling-a=8192; do
        head -c ${table#*=} numbers >in.bin
        vqd table restore ${table%=*} in.bin -y -q
        vqd table backup ${table%=*} out.bin -q --force && cmp in.bin out.bin
    done'
same selftest 'vqd selftest' VQD-RS110 '
    vqd selftest -n 10 --json >checks; code=$?; jq -c ".passed, (.checks[] | [.name, .result])" checks; exit $code'

# A checksum for each plane of each frame. The camera's picture has noise, so that no two frames are equal.
same raw_frames '60 uncorrected frames, bit for bit' '--fps 0 --seed 7' '
    vqd grab -n 60 --format raw -o raw -s undistortion=0 -s orthogonal=0 -s fppn=0 -q >/dev/null && sha256sum raw/*.raw'
for model in VQD-HT120 VQD-RS110; do
    same frames_${model#VQD-} "10 corrected frames of the $model, bit for bit" "$model --fps 0 --seed 7" '
        vqd grab -n 10 --format raw -o corrected -s undistortion=1 -s orthogonal=1 -s motion-blur=1,7 -q >/dev/null && sha256sum corrected/*.raw'
done

number=0
while IFS= read -r plan; do
    number=$((number + 1))
    same fault_$number "$plan" "--fps 0 --fault '$plan'" '
        vqd grab -n 8 --format raw -o series -v >/dev/null; code=$?
        [[ ! -e series/frames.csv ]] || { cut -d , -f 2,5 series/frames.csv; sha256sum series/*.raw; }
        exit $code'
done <<'END_OF_PLANS'
third frame stalls
third frame stalls, 3 times
5th frame overflows
5th frame times out
5th frame has a bad start code
first EEPROM read stalls
every EEPROM read answers 40 of 128 bytes
every image refused
unplug after frame 3, back after 300 ms
unplug after frame 3
END_OF_PLANS
same fault_eeprom 'every EEPROM write refused' "--scene plane --fault 'every EEPROM write refused'" 'vqd set offset=1 --save -y'
unset model number plan
