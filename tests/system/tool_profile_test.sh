#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# vqd profile: what a machine keeps of a camera acts on the frames of every command, and on nothing in the camera.
#   tool_profile_test.sh VQD_BINARY
source "$(dirname "$0")/tool_lib.sh"
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
    "$0" cloud exact.pcd -n 1 && "$0" cloud stored.pcd -n 1 --no-profile && "$0" set offset=3 --save -y && "$0" profile show &&
    "$0" lens >stored.json && sed s/204.0/205.0/ stored.json >changed.json && "$0" lens --set changed.json -y && "$0" profile show
    "$0" cloud refused.pcd -n 1' "$vqd"
json show.json '.profile.depth.k1 < -0.34566 and .profile.orthogonal == "lens" and (.profile.fppn | length) == 4800'
[[ $(sed -n 2p plain.txt) == 207.34559* && $(grep -c . plain.txt) -eq $((3 + 10 + 4800 + 76800)) ]] || fail "the plain profile"
awk 'NR == 4814 { exit !($1 > 0.7187 && $1 < 0.7190) }' plain.txt || fail "the factor of the corner: $(sed -n 4814p plain.txt)"
! cmp -s exact.pcd stored.pcd || fail "the exact lens changes nothing"
mentions err "is not applied: the lens in the EEPROM of camera 0 at 1-1 has changed"
json changed.json '.depth.fx == 205'

# Nothing but a whole and true profile of this camera is taken, and what was there stays.
cp "$profile" before.json
while IFS='|' read -r filter message; do
    jq "$filter" whole.json >bad.json
    ends 2 "$vqd" sim -- "$vqd" profile import bad.json
    mentions err "bad.json.*$message"
done <<'END'
.serial = "24061100000002"|is the profile of camera 24061100000002
.fppn[7] = 1e300|fppn.7. is not a number from -32768 to 65535
.fppn = .fppn[1:]|fppn is not an array of 4800 numbers
.depth.fx = -1|depth: a focal length is not above 0
.depth.cx = 10|depth: no camera has such a lens
.lens = 1|there is no member "lens"
.poses = [{to: "b", rotation: [[1,0,0],[0,1,0],[0,0,-1]], translation: [0,0,0]}]|poses.0..rotation is a mirror image
.eeprom = "0"|was made for another lens
.schema = "vqd.profile/2"|"schema" is not "vqd.profile/1"
END
cmp -s "$profile" before.json || fail "a refused profile has replaced the old one"
sed 's/"k3": 0.0/"k3": NaN/' whole.json >bad.json
ends 2 "$vqd" sim -- "$vqd" profile import bad.json
echo '{' >"$profile"
ends 0 "$vqd" sim --fps 0 -- "$vqd" cloud broken.pcd -n 1
mentions err "no profile is applied: .*24061100000001.json"
ends 0 "$vqd" sim -- sh -c '"$0" profile remove && ! "$0" profile show' "$vqd"
mentions err "there is no profile of camera 24061100000001"
ends 2 "$vqd" profile import

finish
