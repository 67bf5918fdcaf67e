#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Whether a decoder of ROS 2 messages that is not ours reads what DDS has brought: Foxglove's, which comes from npm.
#   payloads_test.sh VQD_BINARY PROBE_BINARY RECEIVER_BINARY
# shellcheck source=tests/ros/ros_lib.sh
# shellcheck source=tests/recording/npm_readers.sh
# shellcheck disable=SC2154,SC2317 # variables of others; functions run under vqd sim
source "$(dirname "$0")/ros_lib.sh" "$1" "$2" "$3"
source "$tests/../recording/npm_readers.sh"
install_readers "$tests/read_payloads.mjs" || exit 1

payloads() {
    mkdir kept
    publish_all
    receive received "$(socket "$one")" left depth/image_rect 10 points transforms socket=4000000 keep=kept
    kill "$publishing"
    ends_soon "$publishing"
}

under_sim VQD-HT120 -- payloads
reads() {
    node read_payloads.mjs "$tests/../../recording/msg" kept received >said 2>&1
}
reads || fail "$(tail -n 20 said)"
[[ $(wc -l <said) -eq 7 ]] || fail "not all topics"

# A changed pixel, and a message that is cut, or this test could not fail.
image=$(jq -r '.payloads["/left/depth/image_rect"][-1]' received)
cp "kept/$image" whole
head -c 100000 whole >"kept/$image"
reads && fail "a message that is cut is read"
cp whole "kept/$image"
reads || fail "$(tail -n 20 said)"
for plane in kept/*.depth; do
    printf '\xff\xff\xff\xff' | dd of="$plane" bs=1 seek=80000 conv=notrunc status=none
done
reads && fail "other pixels are taken"
finish
