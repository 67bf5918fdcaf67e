#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Whether readers that are not ours read our recordings: MCAP's own library with all CRCs checked, and Foxglove's decoder of
# ROS 2 messages. They come from npm into a temporary folder, in the versions of package-lock.json. Run by
# ./test.sh --recordings. Ends with one line: "N passed, N failed".
#   foxglove_test.sh VQD_BINARY RECORDING_SAMPLE_BINARY [MCAP_FILE...]
# shellcheck source=tests/recording/npm_readers.sh
set -uo pipefail
vqd=$(readlink -f "$1") sample=$(readlink -f "$2")
here=$(dirname "$(readlink -f "$0")")
files=()
for file in "${@:3}" "$here"/../recordings/*.mcap; do
    [[ ! -e $file ]] || files+=("$(readlink -f "$file")")
done
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
source "$here/npm_readers.sh"
install_readers "$here/read_all.mjs" || exit 1

passed=0 failed=0
# judge NAME COMMAND...
judge() {
    local name=$1
    shift
    if "$@" >out 2>&1; then
        passed=$((passed + 1))
    else
        failed=$((failed + 1))
        echo "FAILED: $name"
        head -c 4000 out | sed 's/^/    /'
    fi
}

# They find in a file what vqd finds in it, with every message decoded, and the same from front to back as by the index.
# shellcheck disable=SC2016
agrees() {
    node read_all.mjs "$1" >theirs.json && "$vqd" recording info --json "$1" >ours.json &&
        jq -e --slurpfile theirs theirs.json '
            ($theirs[0] | to_entries[0].value) as $read
            | (.channels | map(select(.messages > 0) | {(.topic): {type, messages}}) | add)
                == ($read.channels | map_values({type, messages}))
            and (.attachments | map({(.name): .bytes}) | add) == $read.attachments
            and .camera == $read.metadata.vqd and $read.profile == "ros2"
            and ($read.channels | map(.messages) | add) == $read.statistics.messages
            and $read.streamed == $read.statistics.messages
            and .chunks == $read.statistics.chunks and .chunks == $read.statistics.indexed and .chunks > 0' ours.json
}

refuses() {
    ! node read_all.mjs "$1"
}

hashes() {
    node read_all.mjs "$1" | jq -ce '.[].channels | map_values(.hash) | del(.["/diagnostics"])'
}

same_pixels() {
    [[ $(hashes "$1") == "$(hashes "$2")" ]]
}

for form in packed compact images uncompressed; do
    "$sample" "$form.mcap" 40 "$form"
    judge "$form" agrees "$form.mcap"
done
TMPDIR=$work VQD_RUNTIME_DIR=$work "$vqd" sim --fault 'unplug after frame 10, back after 300 ms' -- \
    "$vqd" record -n 40 -o real.mcap >real.log 2>&1 || cat real.log
judge "what vqd record writes" agrees real.mcap
judge "the same pixels, packed or not" same_pixels packed.mcap uncompressed.mcap

# What is repaired is whole for them, too. What is damaged is not, or this test could not fail.
head -c 5000000 uncompressed.mcap >killed.mcap
judge "a cut file is refused" refuses killed.mcap
"$vqd" recording repair -q killed.mcap >out 2>&1
judge "a repaired file" agrees killed-repaired.mcap
printf '\xff\xfe' | dd of=uncompressed.mcap bs=1 seek=1500000 conv=notrunc status=none
judge "a damaged file is refused" refuses uncompressed.mcap

for file in "${files[@]}"; do
    judge "$file" agrees "$file"
done
echo "$passed passed, $failed failed"
[[ $failed -eq 0 ]]
