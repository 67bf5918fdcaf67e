#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# vqd quality against virtual cameras whose errors are known, and what it says to bad input: quality_test.sh VQD
# shellcheck source=tests/system/tool_lib.sh
source "$(dirname "$0")/tool_lib.sh" "$1"
export VQD_RUNTIME_DIR=$work/run # of the worker that records
mkdir "$VQD_RUNTIME_DIR"

# near FILE METRIC TRUTH: of the first region, within 3 %
near() {
    jq -e --argjson truth "$3" ".regions[0].metrics[\"$2\"].value as \$v | (\$v - \$truth | fabs) <= 0.03 * (\$truth | fabs)" "$1" \
        >/dev/null || fail "$2 is $(jq -c ".regions[0].metrics[\"$2\"]" "$1"), not $3"
}
wall() { # CODE SENSOR WORDS...: before a wall at 1500 mm
    local code=$1 sensor=$2
    shift 2
    ends "$code" "$vqd" sim VQD-HT110 --scene wall:1500 --fps 0 --sensor "$sensor" -- "$vqd" quality -q "$@"
}

# What was put in is found, from all frames to the page.
wall 0 fixed-pattern=3,bias=-12,fill=0.93 -n 60 --distance 1.5m --json
for truth in fixed-pattern=3 bias=-12 fill-rate=93 distance=1488 read-out=6 shot=0.2 jitter=2 phase=2500; do
    near out "${truth%=*}" "${truth#*=}"
done
json out '.schema == "vqd.quality/1" and .frames == 60 and .met == null and .camera.serial == "24061100000001"'
json out '.temperature.first > 35 and .settings.undistortion == 0 and (.course.seconds | length) == 60'
json out '.regions[0].metrics["temperature-drift"] | .value == null and (.reason | test("0.5 K"))'
wall 0 drift=0.05,jitter=4 -n 100 --json --region middle=120,80,80,80 --region 'a<b>=0,0,320,240' --html page.html
near out drift 4.95
json out '[.regions[].name] == ["middle", "a<b>"] and .regions[0].metrics.bias.value == null'
grep -q '<svg' page.html || fail "the page has no plot"
mentions page.html 'a&lt;b&gt;'
grep -Eq '<script|<b>|https?:|src="[^d]' page.html && fail "the page needs something else, or has a name as it is"
wall 0 drift=0.01,jitter=0,phase=0 -n 1600 --json --region middle=150,110,20,20 # the virtual camera takes 3000 frames for a degree
near out temperature-drift 30
json out '.temperature.last - .temperature.first >= 0.5 and (.course.temperature | length) == 240'
ends 0 "$vqd" sim VQD-HT110 --scene plane --fps 0 --sensor jitter=4,phase=0 -- "$vqd" quality -n 30 --json
near out noise 4.01
ends 0 "$vqd" sim VQD-HT120 --scene wall:1500 --fps 0 -- "$vqd" quality -n 30 --json
near out distance 1500
json out '[.settings.orthogonal, .settings.fppn] == [0, 0] and .regions[0].metrics.flatness.value < 20'

# A recording gives what its camera gave, as far as there are frames enough.
ends 0 "$vqd" sim VQD-HT120 --scene wall:1500 --sensor bias=60 -- "$vqd" record -n 14 --no-images -o wall.mcap
ends 0 "$vqd" quality wall.mcap --distance 1500 --json
near out distance 1560
json out '.frames == 14 and .files == ["wall.mcap"] and .settings.undistortion == 0'
ends 0 "$vqd" quality wall.mcap --range 3:7 --json
json out '.frames == 5 and .regions[0].metrics.noise.value > 1 and .regions[0].metrics.drift.value == null'
ends 0 "$vqd" quality wall.mcap -n 1 --json
json out '.frames == 1 and (.regions[0].metrics.noise | .value == null and .reason == "it needs 2 frames, and there are 1")'

# All parts of a recording are one run.
ends 0 "$vqd" sim VQD-HT120 --scene wall --fps 60 -- "$vqd" record -q -n 75 --split 1s -o parts.mcap
parts=(parts*.mcap)
[[ ${#parts[@]} -gt 1 ]] || fail "the recording has one part"
ends 0 "$vqd" quality --region middle=120,80,80,80 --require 'noise<1m' "${parts[@]}" --json
json out '.frames == 75 and .met and .regions[0].name == "middle"'

# The parts of a recording may have been made with other settings, which no figure may mix.
for edges in 1 0; do
    ends 0 "$vqd" sim VQD-HT110 --scene wall --fps 60 -- "$vqd" record -q -n 8 -s "remove-edge=$edges" -o "edges-$edges.mcap"
done
ends 2 "$vqd" quality edges-1.mcap edges-0.mcap --html mixed.html
mentions err 'the settings change with frame 9 of the range; --range can choose frames'
[[ ! -e mixed.html ]] || fail "a page of mixed settings"
ends 0 "$vqd" quality edges-1.mcap edges-0.mcap --range 9: --json
json out '.frames == 8 and .settings["remove-edge"] == 0 and (.files | length) == 2'
ends 0 "$vqd" quality edges-1.mcap edges-0.mcap --range 2:8 --json
mentions err 'the camera removed edges before it was recorded'
json out '.frames == 7 and .settings["remove-edge"] == 1'

# Requirements have an exit code of their own; without a value they are not met.
wall 0 noise=0 -n 3 --require 'fill-rate>=100%' --require 'tilt<12deg' --require 'image:plane-rms < 1 mm' --distance 1500
tail -n 3 out >last
shows last 'met      fill-rate>=100%  \(image: 100.00 %\)' 'met      tilt<12deg .*' 'met      image:plane-rms < 1 mm .*'
wall 7 bias=-12 -n 3 --require 'fill-rate>50%' --require 'bias<1cm' --distance 1500 --json
json out '[.requirements[].met] == [true, false] and .met == false'
wall 7 noise=0 -n 3 --require 'bias<1cm'
mentions out 'NOT MET  bias<1cm  (image: no value: the known distance was not given)'

# Several runs become curves, from near to far.
for mm in 2000 800; do
    ends 0 "$vqd" sim VQD-HT110 --scene "wall:$mm" --fps 0 -- "$vqd" quality -q -n 20 --json --distance "$mm"
    cp out "$mm.json"
done
ends 0 "$vqd" quality --merge 2000.json 800.json --json --html curves.html
json out '.schema == "vqd.quality-merge/1" and [.curves[0].points[].distance] == [800, 2000]'
json out '.curves[0].points | .[0].metrics.noise.value < .[1].metrics.noise.value'
[[ $(grep -c '<svg' curves.html) -ge 14 ]] || fail "curves are missing"
ends 7 "$vqd" quality --merge 2000.json 800.json --require 'noise<5mm'
mentions out '800 mm     2000 mm'

# Bad input is a sentence and an exit code.
refused() { # CODE SENTENCE WORDS...
    local code=$1 sentence=$2
    shift 2
    ends "$code" "$vqd" quality "$@"
    mentions err "$sentence"
}
refused 2 'not inside the image' --region 300,0,21,10
refused 2 'not inside the image' --region 0,0,0,10
refused 2 'not of the form X,Y,WIDTH,HEIGHT' --region 1,2,3
refused 2 'two regions are called a' --region a=0,0,9,9 --region a=9,9,9,9
refused 2 'there is no metric' --require 'noize<5mm'
refused 2 'needs one of the units mm, um, cm, m, not deg' --require 'noise<5deg'
refused 2 'needs one of the units mm, um, cm, m$' --require 'noise<5'
refused 2 'is no number' --require 'noise<mm'
refused 2 'METRIC<VALUE' --require noise
refused 2 'the magnitude counts' --require 'bias>-3mm'
refused 2 'a limit below 0' --require 'noise>-3mm'
refused 2 "there is no region 'left'" --require 'left:noise<5mm'
refused 2 'is no distance' --distance 0
refused 2 'needs a recording' --range 1:2
refused 2 'no frame in the range 90:' wall.mcap --range 90:
refused 1 'exists; --force replaces it' --html page.html
refused 1 'missing/page.html' --html missing/page.html
refused 1 'missing.json' --merge missing.json
refused 2 '"schema" is not "vqd.quality/1"' --merge <("$vqd" settings --json)
head -c 700 800.json >cut.json
refused 2 'cut.json: ' --merge 800.json cut.json
jq '.regions[0].metrics.noise.value = "much"' 800.json >wrong.json
refused 2 'wrong.json: the value of "noise" is not a number' --merge wrong.json
jq '.regions[0].metrics.bias.value = -1e308' 800.json >huge.json
refused 2 'huge.json: the value of "bias"' --merge 2000.json huge.json
jq '.regions[0].metrics.noise.unit = "m"' 800.json >unit.json
refused 2 'unit.json: the unit of "noise" is not mm' --merge unit.json
refused 2 'needs files' --merge
refused 2 'frames excludes --merge' --merge -n 5 800.json
ends 0 "$vqd" quality --help
mentions out 'range \[FROM\]:\[TO\] '
refused 2 'is no recording' 800.json
ends 3 on_an_empty_bus quality --html none.html
[[ ! -e none.html ]] || fail "a page without a camera"
finish
