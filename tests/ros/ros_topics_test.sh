#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# The topics of virtual cameras, read by another implementation of DDS, and seen by a network analyser. On loopback only.
#   ros_topics_test.sh VQD_BINARY PROBE_BINARY RECEIVER_BINARY PUBLISHER_BINARY SUBSCRIBER_EXAMPLE
# shellcheck source=tests/ros/ros_lib.sh
# shellcheck disable=SC2086,SC2089,SC2090,SC2154,SC2317 # serial numbers; XML; variables and functions of others and under vqd sim
publisher=$(readlink -f "$4") example=$(readlink -f "$5")
source "$(dirname "$0")/ros_lib.sh" "$1" "$2" "$3"
export publisher example
loopback='<CycloneDDS><Domain><General><Interfaces><NetworkInterface address="127.0.0.1"/></Interfaces>
    <AllowMulticast>false</AllowMulticast></General><Discovery><ParticipantIndex>auto</ParticipantIndex>
    <MaxAutoParticipantIndex>32</MaxAutoParticipantIndex><Peers><Peer address="127.0.0.1"/></Peers></Discovery></Domain></CycloneDDS>'
export loopback

# All messages of a corrected camera, with its pose. A later reader gets the pose, too.
everything() {
    publish_all
    receive first "$(socket $one)" left depth/image_rect 10 points transforms socket=4000000
    receive later "$(socket $one)" left depth/image_rect 3 transforms best-effort socket=4000000
    json first '.info.model == "plumb_bob" and .info.d == [0, 0, 0, 0, 0] and .info.width == 320 and .info.frame == "left_optical_frame"'
    json first '.info.k[0] > 100 and .info.k[0] == .info.p[0] and .info.k[2] == .info.p[2] and .frame == "left_optical_frame"'
    json first '.diagnostics[0] | .hardware == "24061100000001" and .name == "vqd: left" and (.temperature | tonumber) > 0'
    json later '.transforms[0] | .parent == "table" and .child == "left_optical_frame" and
        (.values | map(. * 1e6 | round)) == [100000, 200000, 300000, 0, 0, 707107, 707107]'

    # The hashes of the definitions, which ROS 2 looks for since Iron.
    local type hash
    while read -r type hash; do
        json first "[.writers[] | select(.type == \"${type/\//::msg::dds_::}_\")] | length > 0 and all(.\"user-data\" == \"typehash=RIHS01_$hash;\")"
    done < <("$tests/type_hashes.py" "$tests/../../recording/msg" sensor_msgs/{Image,CameraInfo,PointCloud2} tf2_msgs/TFMessage diagnostic_msgs/DiagnosticArray)

    # Somebody sets the camera to other images: those are not sent under the names of these.
    "$probe" "$(socket $one)" ask '{"do":"set","settings":{"undistortion":0}}' >/dev/null
    until_true grep -q "so nothing is published" said
    "$probe" "$(socket $one)" ask '{"do":"set","settings":{"undistortion":1}}' >/dev/null
    until_true grep -q "are those of the topics again" said
    receive again "$(socket $one)" left depth/image_rect 3 socket=4000000

    # A publisher that is killed comes back, and one reader sees both of its lives.
    receive both "$(socket $one)" left depth/image_rect 40 socket=4000000 &
    local reading=$!
    sleep 1
    pkill -9 -P $publishing -x vqd-ros || fail "no publisher"
    wait $reading
    json both '.faults == [] and .depth >= 40'
    [[ $(grep -c "publishes /left" said) -eq 2 ]] || fail "it did not come back"
    kill $publishing
    ends_soon $publishing || fail "the end by SIGTERM is no success"
    "$vqd" profile remove -c $one >/dev/null 2>&1
}

# The same topics by a reader of plain DDS in C; images along the ray where the camera gives those.
example() {
    local publish
    "$vqd" publish -c $one -s undistortion=0 -s orthogonal=0 2>said &
    publish=$!
    CYCLONEDDS_URI=$loopback plainly timeout 60 "$example" /vqd_$one/range/image_raw 5 >out || fail "the example got nothing"
    grep -Eq "vqd_${one}_optical_frame: [0-9.]+, 320 x 240 16UC1, [0-9]+ in the middle" out || fail "the example shows something else"
    kill $publish
    ends_soon $publish || fail "the end by SIGTERM is no success"
}

# A worker that comes back without a camera, and then with another one, whose images are not those of the topics.
exchanged() {
    local publisher_of_one
    worker $one --socket exchanged.sock
    until_true [ -S exchanged.sock ]
    env -u LD_PRELOAD "$publisher" "$PWD/exchanged.sock" 2>exchanged &
    publisher_of_one=$!
    until_true grep -q "publishes /vqd_$one/range" exchanged
    kill $started
    ends_soon $started
    worker 24061100000009 --socket exchanged.sock
    receive away "$PWD/exchanged.sock" vqd_$one range/image_raw 0 "diagnosis=no frames: no camera has the"
    until_true grep -q "vqd-ros: no frames: no camera has the" exchanged
    kill $started
    ends_soon $started
    worker $two --socket exchanged.sock
    ends_soon $publisher_of_one && fail "the publisher goes on with another camera: $(cat exchanged)"
    mentions exchanged "another camera now than that of the topics /vqd_$one"
    kill $started
    ends_soon $started
}

# Ten publishers of one worker. Neither a reader that was stopped nor a publisher that was killed takes anything from the others.
ten() {
    local worker number publishers=() stopped reading
    worker $one -s undistortion=1 -s orthogonal=1
    worker=$started
    until_true streams $one
    for number in {0..9}; do
        env -u LD_PRELOAD "$publisher" $one --name "camera$number" 2>>said &
        publishers+=($!)
    done
    env -u LD_PRELOAD "$receiver" "$(socket $one)" camera0 depth/image_rect 100000 >/dev/null 2>&1 &
    stopped=$!
    receive a "$(socket $one)" camera0 depth/image_rect 10 socket=4000000
    kill -STOP $stopped
    receive b "$(socket $one)" camera0 depth/image_rect 30 socket=4000000
    json b '.faults == [] and .diagnostics[0].level != 2'
    receive killed "$(socket $one)" camera5 depth/image_rect 40 socket=4000000 &
    reading=$!
    receive before "$(socket $one)" camera9 depth/image_rect 5 socket=4000000
    kill -9 "${publishers[5]}"
    receive meanwhile "$(socket $one)" camera9 depth/image_rect 10 socket=4000000
    env -u LD_PRELOAD "$publisher" $one --name camera5 2>>said &
    publishers[5]=$!
    wait $reading
    json killed '.faults == [] and .depth >= 40'
    kill -9 $stopped
    kill "${publishers[@]}"
    for number in "${publishers[@]}"; do
        wait $number || fail "a publisher did not end well"
    done
    kill $worker
    ends_soon $worker || fail "the worker did not end well"
}

refusals() {
    ends 3 "$publisher" nobody-$$
    mentions err "^vqd-ros: "
    ROS_DOMAIN_ID=233 ends 2 "$publisher" nobody
    mentions err "ROS_DOMAIN_ID is a number from 0 to 232, not '233'"
    CYCLONEDDS_URI='<CycloneDDS' ends 1 "$publisher" nobody
    mentions err "Cyclone DDS does not accept its configuration"
    ends 2 "$publisher" nobody --name 1left
    mentions err "does not begin with a digit"
    ends 2 "$publisher" nobody --images bent
    ROS_DOMAIN_ID=233 ends 2 "$vqd" publish
    mentions err "vqd-ros does not start"
    ends 2 "$vqd" publish --name left
    mentions err "name is for one camera"
}

# What is on the wire: names, types, and the hashes that ROS 2 since Iron looks for, as published with Jazzy.
if tshark -i lo -a duration:0 >/dev/null 2>&1; then
    tshark -q -i lo -s 1500 -w "$work/lo.pcap" -f "udp" >/dev/null 2>&1 &
    capture=$!
    tshark -q -i any -w "$work/outside.pcap" -f "udp and not net 127.0.0.0/8 and portrange 7400-65535" >/dev/null 2>&1 &
    outside=$!
    sleep 2
fi
under_sim VQD-HT120 -- everything
if [[ -n ${capture:-} ]]; then
    kill $capture $outside
    wait $capture $outside
    tshark -r lo.pcap -Y 'rtps.param.topicName contains "rt/"' -T fields \
        -e rtps.param.topicName -e rtps.param.typeName -e rtps.param.userData >wire 2>/dev/null
    while read -r topic type hash; do
        grep -q "rt/$topic" wire || fail "no topic $topic on the wire"
        grep "rt/$topic" wire | grep -q "$type" || fail "$topic is not of the type $type"
        grep "rt/$topic" wire | grep -q "$(printf 'typehash=RIHS01_%s;' "$hash" | od -An -v -tx1 | tr -d ' \n')" || fail "$topic has another hash"
    done <<'END'
left/depth/image_rect sensor_msgs::msg::dds_::Image_ d31d41a9a4c4bc8eae9be757b0beed306564f7526c88ea6a4588fb9582527d47
left/amplitude/image_rect sensor_msgs::msg::dds_::Image_ d31d41a9a4c4bc8eae9be757b0beed306564f7526c88ea6a4588fb9582527d47
left/depth/camera_info sensor_msgs::msg::dds_::CameraInfo_ b3dfd68ff46c9d56c80fd3bd4ed22c7a4ddce8c8348f2f59c299e73118e7e275
left/points sensor_msgs::msg::dds_::PointCloud2_ 9198cabf7da3796ae6fe19c4cb3bdd3525492988c70522628af5daa124bae2b5
diagnostics diagnostic_msgs::msg::dds_::DiagnosticArray_ 5a8a36efb05fb25070fa0fb3810290c0e6cd4862b54a8fb975a1ee8dc55a333e
tf_static tf2_msgs::msg::dds_::TFMessage_ e369d0f05a23ae52508854b66f6aa0437f3449d652e8cbf22d5abe85d020f087
END
    [[ $(tshark -r outside.pcap 2>/dev/null | grep -c RTPS) -eq 0 ]] || fail "packets of DDS have left the machine"
else
    echo "Nobody looks at the wire: tshark may not capture here."
fi
under_sim VQD-HT120 -- example
under_sim VQD-HT120 -- ten
under_sim VQD-HT120 VQD-HT120 -- exchanged
under_sim VQD-HT120 VQD-RS110 -- refusals
finish
