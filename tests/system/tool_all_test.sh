#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# grab and stats with -c all: every camera by way of a worker of its own, whatever becomes of the others.
#   tool_all_test.sh VQD_BINARY
# shellcheck source=tests/system/tool_lib.sh
# shellcheck disable=SC2016 # variables of the inner shell
source "$(dirname "$0")/tool_lib.sh" "$1"
export VQD_RUNTIME_DIR=$work/run
mkdir "$VQD_RUNTIME_DIR"
one=24061100000001 two=24061100000002

nothing_is_left() {
    [[ -z $(find "$VQD_RUNTIME_DIR" -name '*.s*') ]] || fail "sockets are left: $(ls "$VQD_RUNTIME_DIR")"
}

# A series of each, and settings for this grab only: the plane is behind the range.
ends 0 "$vqd" sim VQD-HT110 VQD-RS110 --scene plane -- "$vqd" grab -c all -n 20 --format raw -o series --json -s depth-range=300,900
json out '.schema == "vqd.grab/1" and [.cameras[].camera.serial] == ["24061100000001", "24061100000002"]'
json out '.cameras | all(.frames == 20 and ."centre-depth" == null and .temperature > 0 and ."logic-version" == "2.5")'
for camera in $one $two; do
    [[ $(wc -l <series/$camera/frames.csv) -eq 21 && $(find series/$camera -name 'depth-*.raw' -size 300b | wc -l) -eq 20 ]] ||
        fail "not a whole series of $camera"
done
nothing_is_left
ends 1 "$vqd" sim VQD-HT110 VQD-RS110 -- "$vqd" grab -c all --format raw -o series
mentions err '--force replaces it'
ends 2 "$vqd" grab -c all --cloud
mentions err '--cloud needs one camera'
ends 3 on_an_empty_bus stats -c all

# Cameras with one serial number are told apart by their ports.
ends 0 "$vqd" sim VQD-HT110 VQD-RS110 --serial 2:$one -- "$vqd" grab -c all -o alike
[[ $(cd alike && echo *) == "1-1 1-2" ]] || fail "the folders are $(ls alike)"

# A worker that runs already serves this command, too, and stays. Its settings are not this command's.
ends 0 "$vqd" sim VQD-HT110 VQD-RS110 -- sh -c '
    "$0" worker -q -c '$one' & worker=$!
    until "$0" status | grep -q streaming; do sleep 0.05; done
    "$0" grab -c all -o shared || exit 92
    "$0" grab -c all -s offset=3 -o refused && exit 93
    kill $worker && wait $worker' "$vqd"
[[ -s shared/$one/depth.png && -s shared/$two/depth.png && ! -e refused/$one ]] || fail "the folders are $(ls shared refused)"
mentions err 'has a worker already'
nothing_is_left

# One is lost for good: the other delivers all of its frames, and what there was is kept.
ends 5 "$vqd" sim VQD-HT110 VQD-RS110 --fault "2: unplug after frame 10" -- "$vqd" grab -c all -n 60 --format raw -o lost --json
json out '.cameras[0].frames == 60 and .cameras[1].frames < 10 and (.cameras[1].error | test("no frames come: .*frames are complete"))'
mentions err "camera $two is lost, searching"
[[ $(wc -l <lost/$one/frames.csv) -eq 61 && $(wc -l <lost/$two/frames.csv) -lt 11 ]] || fail "not what there was"

# One is away for a while: it comes back, and the others do not notice.
ends 0 "$vqd" sim VQD-HT110 VQD-RS110 --fault "2: unplug after frame 10, back after 300 ms" -- "$vqd" stats -c all -n 40 --json
jq -s . out >all || fail "not an object a line"
json all '[.[] | select(.type == "summary")] | length == 2 and all(.frames >= 40) and [.[].reopens] == [0, 1] and .[1]."interval-ms".max > 300'
json all '[.[] | select(.type == "second")] | [.[].camera] | unique == ["24061100000001", "24061100000002"]'
mentions err "camera $two is back after"
ends 0 "$vqd" sim VQD-HT110 VQD-RS110 -- "$vqd" stats -c all --for 1
grep -Eq "^ +all  $two +[0-9.]+ +[0-9.]+ms" out || fail "no summary"

# The command's end is the workers' end, whichever way it comes.
ends 1 "$vqd" sim VQD-HT110 VQD-RS110 -- sh -c '
    "$0" grab -c all -n 100000 --format raw -o stopped & until [ -e stopped/'$two'/frames.csv ]; do sleep 0.05; done
    kill -INT $!; wait $!' "$vqd"
mentions err 'interrupted; [0-9]* of 100000 frames are complete'
nothing_is_left
ends 0 "$vqd" sim VQD-HT110 VQD-RS110 -- sh -c '
    "$0" grab -c all -n 100000 --format raw -o killed & until [ -e killed/'$two'/frames.csv ]; do sleep 0.05; done
    kill -KILL $!; while [ -n "$(find "$VQD_RUNTIME_DIR" -name "*.s*")" ]; do sleep 0.05; done' "$vqd"

finish
