#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# vqd profile: what a machine keeps of a camera acts on the frames of every command, and on nothing in the camera.
#   tool_profile_test.sh VQD_BINARY BINARY_OF_EXAMPLE_8
source "$(dirname "$0")/tool_lib.sh"
example=$(readlink -f "$2")
export XDG_DATA_HOME=$work/data
profile=$XDG_DATA_HOME/vqd/profiles/24061100000001.json

# The camera's own FPPN table reaches the depth, block by block, which libusb alone cannot do.
for i in $(seq 4800); do printf '%b' "\\x00\\x$(printf %02x $((i % 200)))"; done >fppn.bin
sim=("$vqd" sim --fps 0 --scene plane --table fppn-4x4=fppn.bin -- "$vqd")
grab=(grab --format raw -n 1 --json -s fppn=1 -s orthogonal=0 -s undistortion=0 -s remove-edge=0)
ends 0 "${sim[@]}" profile import --fppn camera
ends 0 "${sim[@]}" "${grab[@]}" -o without --no-profile
cp out without.json
ends 0 "${sim[@]}" "${grab[@]}" -o with
mentions err "the profile $profile is in use"
json out ".camera.profile == \"$profile\""
json without.json '.camera.profile == null'
json "$profile" '.serial == "24061100000001" and (.fppn | length) == 4800 and .fppn[4799] == 0'
paste <(od -An -v -w2 -tu2 with/depth-000001.raw) <(od -An -v -w2 -tu2 without/depth-000001.raw) | awk '
    $2 > 0 { pixel = NR - 1; block = int(pixel / 1280) * 80 + int(pixel % 320 / 4) + 1; wrong += $1 - $2 != block % 200; seen++ }
    END { print seen, wrong; exit !(seen > 60000 && wrong == 0) }' >out || fail "the depth is not that of the table"

# An exact lens turns into the maps, the factors and a plain file. A lens that changed in the EEPROM ends the profile.
cat >lens.json <<'END'
{"schema": "vqd.lens/1", "depth": {"fx": 207.3456, "fy": 207.25, "cx": 160.5, "cy": 120.125,
    "k1": -0.34567, "k2": 0.1234, "k3": 0, "p1": 0.00123, "p2": 0, "skew": 0}}
END
ends 0 "$vqd" sim --fps 0 -- sh -c '"$0" profile import --lens lens.json --orthogonal lens && "$0" profile show --json >show.json &&
    "$0" profile export --plain plain.txt && "$0" profile export whole.json &&
    "$0" cloud exact.pcd -n 1 && "$0" cloud stored.pcd -n 1 --no-profile && "$0" set offset=3 --save -y --force && "$0" profile show &&
    "$0" lens >stored.json && sed s/204.0/205.0/ stored.json >changed.json && "$0" lens --set changed.json -y --force && "$0" profile show
    "$0" cloud refused.pcd -n 1' "$vqd"
json show.json '.profile.depth.k1 < -0.34566 and .profile.orthogonal == "lens" and (.profile.fppn | length) == 4800'
[[ $(sed -n 4p plain.txt) == 207.34559* && $(grep -c . plain.txt) -eq $((5 + 10 + 4800 + 76800)) ]] || fail "the plain profile"
awk 'NR == 4816 { exit !($1 > 0.7187 && $1 < 0.7190) }' plain.txt || fail "the factor of the corner: $(sed -n 4816p plain.txt)"
! cmp -s exact.pcd stored.pcd || fail "the exact lens changes nothing"
mentions err "is not applied: the lens in the EEPROM of camera 0 at 1-1 has changed"
json changed.json '.depth.fx == 205'

# The library's own frame with the same values in its tables is the same to the last bit, and no other.
ends 0 "$vqd" sim -- sh -c '"$0" set fppn=1 orthogonal=1 undistortion=1 --save -y --force && "$0" eeprom backup settings.bin' "$vqd"
# differs FRAME ARGUMENTS OF GRAB...: whether the tool's frame is another one than the example's
differs() {
    local frame=$1
    shift
    ends 0 "$vqd" sim --fps 0 --eeprom settings.bin -- "$vqd" grab --format raw -n 1 -o "$frame" "$@"
    ! cmp -s "$frame/depth-000001.raw" library.raw
}
ends 0 "$vqd" sim --fps 0 --eeprom settings.bin -- "$example" plain.txt library.raw
! differs same || fail "the tool's frame is not the library's with the same tables"
differs without-profile --no-profile || fail "the profile changes nothing"
ends 1 "$vqd" sim --serial 24061100000002 -- "$example" plain.txt other.raw
ends 2 "$vqd" sim -- "$example" lens.json other.raw

# A pose is kept beside the rest, and a second one to the same place replaces it.
pose='{"schema": "vqd.pose/1", "to": "24061100000002", "rotation": [[0, -1, 0], [1, 0, 0], [0, 0, 1]], "translation": [580, 0, 7.25]}'
echo "$pose" >pose.json
sed s/580/581/ pose.json >moved.json
ends 0 "$vqd" sim -- sh -c '"$0" profile import --pose pose.json && "$0" profile import --pose moved.json && "$0" profile show' "$vqd"
mentions out "depth lens, FPPN, orthogonal factors, 1 pose$"
json "$profile" '.poses[0].translation == [581, 0, 7.25] and .poses[0].rotation[0][1] == -1'

# Nothing but a whole and true profile of this camera is taken, and what was there stays.
cp "$profile" before.json
while IFS='|' read -r filter message; do
    jq "$filter" whole.json >bad.json
    ends 2 "$vqd" sim -- "$vqd" profile import bad.json
    mentions err "bad.json.*$message"
done <<'END'
.serial = "24061100000002"|is the profile of camera 24061100000002
.fppn[7] = 1e300|fppn.7. is not a number from -32768 to 65535
.fppn[7] = 1.5|fppn has a value that is not a whole number
.fppn = .fppn[1:]|fppn is not an array of 4800 numbers
.depth.fx = -1|depth.fx is not from 1 to 100000
.depth.f = 1|depth has members that no lens has
.depth.cx = 10|depth: no camera has such a lens
.lens = 1|there is no member "lens"
.poses = [{to: "b", rotation: [[1,0,0],[0,1,0],[0,0,-1]], translation: [0,0,0]}]|poses.0..rotation is a mirror image
.eeprom = "0"|was made for another lens
.schema = "vqd.profile/2"|"schema" is not "vqd.profile/1"
END
cmp -s "$profile" before.json || fail "a refused profile has replaced the old one"
sed 's/"k3": 0.0/"k3": NaN/' whole.json >bad.json
ends 2 "$vqd" sim -- "$vqd" profile import bad.json
yes ' ' | "$vqd" sim -- "$vqd" profile import - >out 2>err
mentions err "larger than 1 MiB"
# What an import would put together is judged before it replaces what was there.
sed s/160.5/10.5/ lens.json >bad.json
ends 2 "$vqd" sim -- "$vqd" profile import --lens bad.json
mentions err "no camera has such a lens"
# A part does not make the old lens valid again for a lens in the EEPROM that has changed since.
ends 2 "$vqd" sim -- sh -c '"$0" lens --set changed.json -y --force && "$0" profile import --pose pose.json' "$vqd"
mentions err "was made for another lens"
# Two cameras with one serial number: nobody knows which of them it is.
ends 0 "$vqd" sim VQD-HT120 VQD-HT120 --serial 2:24061100000001 --fps 0 -- "$vqd" grab -c 0 -o two
mentions err "is not applied: several cameras have the serial number 24061100000001"
cmp -s "$profile" before.json || fail "a refused import has replaced the old profile"
# A broken profile does not pass as none.
echo '{' >"$profile"
ends 2 "$vqd" sim -- "$vqd" cloud broken.pcd -n 1
mentions err "24061100000001.json: .*--no-profile works without it"
ends 0 "$vqd" sim -- sh -c '"$0" profile remove && ! "$0" profile show' "$vqd"
mentions err "there is no profile of camera 24061100000001"
ends 2 "$vqd" profile import

finish
