#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Recordings as cameras of vqd sim and as images of vqd convert, from the command line: play_test.sh VQD
# shellcheck source=tests/system/tool_lib.sh
source "$(dirname "$0")/tool_lib.sh" "$1"
export VQD_RUNTIME_DIR=$work/run # of the workers that record
mkdir "$VQD_RUNTIME_DIR"

count() { find "$1" -name "$2" | wc -l; }

mkdir recordings
ends 0 "$vqd" sim VQD-HT120 VQD-RS110 -- "$vqd" record -c all -n 12 --no-images -o recordings
hosts=$(echo recordings/24061100000001-*.mcap)
own=$(echo recordings/24061100000002-*.mcap)

# What a program sees of a played camera is what convert makes of its recording, file by file.
ends 0 "$vqd" convert "$hosts" -o converted --format npy --json
[[ $(jq -r '"\(.product) \(.serial) \(.frames)"' out) == "VQD-HT120 24061100000001 12" ]] || fail "convert's JSON"
ends 0 "$vqd" sim --play "$hosts" --fps 0 -- "$vqd" grab -n 12 --format npy -o played
[[ $(count converted '*.npy') -eq 24 ]] || fail "convert wrote other files"
for file in converted/*.npy; do
    cmp -s "$file" "played/$(basename "$file")" || fail "$file is not what was played"
done
[[ $(sed 1d converted/frames.csv | cut -d, -f3 | sort -nu | wc -l) -eq 12 ]] || fail "the times of frames.csv"

# The same numbers as text, in the rows of the image.
ends 0 "$vqd" convert "$hosts" -o numbers --format csv --range 12:12
for plane in depth amplitude; do
    od -An -v -tu2 -w640 -j128 converted/$plane-000012.npy | sed 's/^ *//; s/  */,/g' | cmp -s - numbers/$plane-*.csv || fail "$plane as csv"
done

# Every second frame, as a cloud and as pictures.
ends 0 "$vqd" convert "$hosts" -o some --range 3:8 --every 2 --cloud ply
[[ $(count some 'depth-*.png') -eq 3 && $(count some 'points-*.ply') -eq 3 ]] || fail "not three frames of 3 to 8"
mentions err "undistortion=1 orthogonal=1"

# Several recordings are several cameras, in the order of the command line.
ends 0 "$vqd" sim --play "$own" "$hosts" -- "$vqd" list --json
[[ $(jq -r '.cameras[] | "\(.product) \(.serial)"' out) == $'VQD-RS110 24061100000002\nVQD-HT120 24061100000001' ]] ||
    fail "two recordings are not two cameras"

ends 0 "$vqd" sim VQD-RS110 -- "$vqd" record -n 3 -o same.mcap # another model, with the number of the first
ends 0 "$vqd" sim --play same.mcap "$hosts" -- "$vqd" list --json
[[ $(jq -r '.cameras[].product' out) == $'VQD-RS110\nVQD-HT120' ]] || fail "two models with one number are not two cameras"

# At the end the camera is unplugged, or the recording begins again.
ends 5 "$vqd" sim --play "$hosts" --fps 0 -- "$vqd" stats -n 13
ends 0 "$vqd" sim --play "$hosts" --fps 0 --loop -- "$vqd" grab -n 13 --format raw -o looped
cmp -s looped/depth-000013.raw looped/depth-000001.raw || fail "the recording does not begin again"
cmp -s looped/depth-000012.raw looped/depth-000001.raw && fail "all frames are alike"

# Recordings of earlier days stay readable, and their images are what they were then.
of_old() { # FILE CKSUM
    ends 0 "$vqd" convert "$tests/../recordings/$1" -o "old-$1" --format raw
    [[ $(cat "old-$1"/{depth,amplitude}-000001.raw | cksum) == "$2 307200" ]] || fail "$1 gives other images"
}
of_old format_1_compact.mcap 1571469223
of_old format_1_images.mcap 3284686375

# A file that was cut gives what it has.
head -c "$(($(stat -c %s "$own") * 2 / 3))" "$own" >cut.mcap
ends 0 "$vqd" convert cut.mcap -o cut
mentions err "warning: cut.mcap: "
[[ $(count cut 'depth-*.png') -ge 1 ]] || fail "nothing is left of a cut file"

# So does one whose beginning is damaged: the settings in it are lost, but not those that were stored.
cp "$hosts" spoilt.mcap
dd if=/dev/zero of=spoilt.mcap bs=1 seek=300000 count=9 conv=notrunc status=none # in the first chunk
ends 0 "$vqd" convert spoilt.mcap -o spoilt --format npy
mentions err "the settings of the first frames are lost"
kept=$(count spoilt 'depth-*.npy')
[[ $kept -ge 6 && $kept -lt 12 ]] || fail "$kept frames are left of 12"
cmp -s spoilt/depth-000001.npy "converted/depth-$(printf %06d $((13 - kept))).npy" || fail "other frames are left"
ends 0 "$vqd" sim --play spoilt.mcap --fps 0 -- "$vqd" stats -n 4
mentions err "the settings of the first frames are lost"

# Mistakes are said before anything is written.
before=$(cat converted/*.npy | cksum)
cp "$hosts" later.mcap
format=$(grep -abo 'format' later.mcap | head -n 1 | cut -d: -f1)
printf 2 | dd of=later.mcap bs=1 seek=$((format + 10)) conv=notrunc status=none
printf 'no recording\n' >text
refused() { # CODE SENTENCE WORDS...
    local code=$1 sentence=$2
    shift 2
    ends "$code" "$vqd" "$@"
    mentions err "$sentence"
}
refused 1 "exists; --force replaces it" convert "$hosts" -o converted --format npy
refused 2 "acts in the camera" convert "$hosts" -o new -s offset=5
refused 2 "acts in the camera" convert "$own" -o new -s fppn=1
refused 2 "no frame in the range 13:" convert "$hosts" -o new --range 13:
refused 2 "not of the form FROM:TO" convert "$hosts" -o new --range 13
refused 2 "neither the number" convert "$hosts" -o new --range 0:
refused 3 "no camera 24061100000002" convert "$hosts" -o new -c 24061100000002
refused 2 "is of another camera" convert "$hosts" "$own" -o new
refused 2 "format 2" convert later.mcap -o new
refused 2 "is no recording" convert text -o new
refused 1 "missing.mcap" convert missing.mcap -o new
refused 2 "is no recording" sim --play text -- true
refused 2 "excludes" sim VQD-HT120 --play "$hosts" -- true
refused 2 "requires" sim --loop -- true
[[ ! -e new ]] || [[ -z $(ls new) ]] || fail "files of a conversion that was refused"
[[ $(cat converted/*.npy | cksum) == "$before" ]] || fail "a refused conversion changed files"

# A reader that goes away ends a stream with a sentence.
"$vqd" convert "$hosts" --stream 2>err | head -c 100 >/dev/null
[[ ${PIPESTATUS[0]} -eq 1 ]] || fail "a stream that nobody reads"
mentions err "standard output: Broken pipe"

finish
