# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#
# Sourced by the tests of ROS 2 topics with the tool as $1, the probe as $2 and the receiver as $3. All stays on loopback.
# shellcheck source=tests/system/worker_lib.sh
# shellcheck disable=SC2034,SC2154 # variables of and for others
receiver=$(readlink -f "$3")
source "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/../system/worker_lib.sh" "$1" "$2"
export receiver
export XDG_DATA_HOME=$work/data
# Domains that nobody else on this machine uses, so that tests can run beside each other.
export ROS_LOCALHOST_ONLY=1 ROS_DOMAIN_ID=$((1 + $$ % 200))
unset CYCLONEDDS_URI ROS_AUTOMATIC_DISCOVERY_RANGE ROS_STATIC_PEERS

# The virtual bus's preload is for programs that use USB.
plainly() {
    env -u LD_PRELOAD "$@"
}

# receive FILE WORDS...: what another DDS has got is in FILE
receive() {
    local file=$1
    shift
    plainly timeout 100 "$receiver" "$@" >"$file" 2>err || fail "ros_receiver $*: $(cat err "$file")"
}

# publish_all ARGUMENTS...: the corrected camera with all topics and a pose, as process $publishing; what it says is in ./said
publish_all() {
    cat >pose.json <<<'{"schema": "vqd.pose/1", "to": "table", "rotation": [[0, -1, 0], [1, 0, 0], [0, 0, 1]], "translation": [100, 200, 300]}'
    "$vqd" profile import --pose pose.json -c "$one" 2>err || fail "no pose"
    "$vqd" publish -c "$one" -s undistortion=1 -s orthogonal=1 --images rect --depth depth --name left --points 2>said &
    publishing=$!
    until_true grep -q "publishes /left/depth/image_rect" said
}
