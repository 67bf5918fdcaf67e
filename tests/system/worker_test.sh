#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Workers with real processes: what readers get and may ask, and what becomes of cameras that are late, taken or lost.
#   worker_test.sh VQD_BINARY PROBE_BINARY
# shellcheck source=tests/system/worker_lib.sh
# shellcheck disable=SC2086,SC2317 # serial numbers; the functions run under vqd sim
source "$(dirname "$0")/worker_lib.sh" "$1" "$2"

# Two cameras, two corrections: each worker's settings are its own. Frames come in order, a slow reader gets the newest.
readers() {
    local first second saving
    worker $one -s undistortion=2
    first=$started
    worker $two -s undistortion=0
    second=$started
    until_true streams $one
    until_true streams $two
    "$probe" "$(socket $one)" frames 20 >fast || fail "no frames of the first camera"
    "$probe" "$(socket $two)" frames 3 1000 >slow || fail "no frames of the second camera"
    [[ $(wc -l <fast) -eq 20 && $(cut -d ' ' -f 2 fast | sort -u) == 2 ]] || fail "not 20 corrected frames"
    [[ $(cut -d ' ' -f 2 slow | sort -u) == 0 ]] || fail "the other camera's frames are corrected, too"
    [[ $(tail -n 1 slow | cut -d ' ' -f 1) -gt $(($(head -n 1 slow | cut -d ' ' -f 1) + 4)) ]] || fail "no gap for a slow reader"

    sed -n '/^```python$/,/^```$/p' "$tests/../../docs/worker.md" | sed '/^```/d' >reader.py
    python3 reader.py "$(socket $one)" 2>/dev/null | head -n 3 >out
    shows out '[0-9]+ [1-9][0-9]{2,3} mm' '[0-9]+ [1-9][0-9]{2,3} mm' '[0-9]+ [1-9][0-9]{2,3} mm'
    "$probe" "$(socket $two)" packed || fail "a packed frame is not the frame"

    "$probe" "$(socket $one)" until saved >events &
    saving=$!
    until_true grep -q vqd.parameters events
    "$probe" "$(socket $one)" ask '{"do":"get","names":["undistortion"]}' '{"do":"set","settings":{"offset":7}}' \
        '{"do":"set","settings":{"illumination":0}}' '{"do":"set","settings":{"offset":1000}}' '{"do":"dance"}' \
        '{"do":"get","names":["offset"]}' '{"do":"save"}' '[' >out
    shows out '.*"ok":true,"settings":\{"undistortion":2\}.*' '.*"ok":true,"settings":\{"offset":7\}.*' \
        '.*"ok":false,"error":"illumination=0 .*"code":2.*' '.*"ok":false,"error":"offset takes -255 to 255.*"code":2.*' \
        '.*"ok":false,"error":"a worker knows no request .dance.*' '.*"settings":\{"offset":7\}.*' '.*"ok":true.*' \
        '.*"ok":false,"error":"the request: .*"code":2.*'
    wait $saving
    jq -s . events >all || fail "not an object a line"
    json all 'map(.schema + " " + (.event // (.settings.offset | tostring))) | .[1:] == ["vqd.parameters/1 0",
        "vqd.parameters/1 7", "vqd.event/1 set", "vqd.event/1 saved"]'
    json all '.[0].clients | any(.process == '$saving' and .program == "worker_probe")'
    "$probe" "$(socket $one)" frames 2 >/dev/null || fail "no frames after saving"

    # A save that comes too soon stops no frames and makes no backup.
    touch -d '+9 seconds' "$XDG_STATE_HOME/vqd/saved-$one" # however slow this machine is
    "$probe" "$(socket $one)" ask '{"do":"set","settings":{"offset":8}}' '{"do":"save"}' '{"do":"set","settings":{"offset":7}}' >out
    mentions out '"ok":false,"error":"the EEPROM of camera .* was written'
    [[ $(find "$XDG_STATE_HOME" -name 'eeprom-*' | wc -l) -eq 1 ]] || fail "a backup of a save that was refused"

    # Nobody else gets at the camera, and everybody learns who has it. The socket is for the group of the cameras.
    "$vqd" grab -c $one >/dev/null 2>err && fail "grabbed from a worker's camera"
    mentions err "cannot be opened; vqd worker (process [0-9]*) has it open"
    "$vqd" worker -c $one 2>err && fail "two workers on one socket"
    mentions err "another worker (process [0-9]*) has this socket"
    until_true state '[.cameras[].holder.program] == ["vqd worker", "vqd worker"]'
    [[ $(stat -c %a "$(socket $one)") == 660 ]] || fail "the socket is not for user and group alone"
    "$probe" "$(socket $one)" ask '{"do":"stop"}' >out
    ends_soon "$first" || fail "the end by a reader is no success"
    "$vqd" get offset -c $one >out || fail "the camera was not let go"
    mentions out '^offset  *7$'
    kill "$second"
    ends_soon "$second" || fail "the end by SIGTERM is no success"
    [[ -z $(ls "$VQD_RUNTIME_DIR") ]] || fail "left behind: $(ls "$VQD_RUNTIME_DIR")"
}
under_sim VQD-HT120 VQD-RS110 -- readers

# No camera at first: the worker answers for itself. A held camera is waited for, and taken when it is free.
late() {
    local first
    "$vqd" list >/dev/null 2>&1 # unplugs it
    worker $one
    first=$started
    until_true grep -q "waiting for a camera" said-$one
    "$probe" "$(socket $one)" ask '{"do":"state"}' '{"do":"get"}' >out
    shows out '.*"ok":true,"state":.*"state":"waiting".*' '.*"ok":false,"error":"no camera streams".*"code":3.*'
    "$probe" "$(socket $one)" frames 1 && fail "a frame of no session" || [[ $? -eq 3 ]] || fail "the connection did not end"
    until_true streams $one
    worker $one --socket "$PWD/second.sock"
    until_true grep -q "vqd worker (process [0-9]*) has it open" said-$one
    until_true state 'any(.workers[]; .state == "held" and (.error | test("has it open")))'
    kill "$first"
    until_true state '.workers | length == 1 and .[0].state == "streaming" and .[0].restarts == 1'
    [[ $(grep -c "has it open" said-$one) -eq 1 ]] || fail "it did not wait quietly"
    kill "$started"
    wait
}
under_sim --fault "request 0xB8 unplugs, back after 3 s" -- late

# Without -c, a worker finds its first camera again also when that is not the only one with its serial number.
alike() {
    "$vqd" worker 2>/dev/null &
    local worker=$! port
    until_true streams $one
    port=$("$vqd" status --json | jq -c '.workers[0].camera.port')
    kill -9 "$("$vqd" status --json | jq '.workers[0].process')"
    until_true state ".workers[0] | .restarts == 1 and .frames > 0 and .camera.port == $port"
    kill $worker
    wait
}
under_sim VQD-HT110 VQD-RS110 --serial $one -- alike

# A camera that vanishes comes back in the same session; what was set and not saved is there also after a new process.
lost() {
    worker $one
    until_true streams $one
    "$probe" "$(socket $one)" until reopened >events || fail "no event of the re-open"
    grep -q '"event":"lost"' events || fail "nobody learned that the camera was lost"
    "$probe" "$(socket $one)" frames 3 >/dev/null || fail "no frames after the re-open"
    "$probe" "$(socket $one)" ask '{"do":"set","settings":{"offset":9}}' >/dev/null
    kill -9 "$("$vqd" status --json | jq '.workers[0].process')"
    until_true grep -q "ended by signal 9" said-$one
    until_true state '.workers[0] | .restarts == 1 and .state == "streaming" and .frames > 0'
    "$probe" "$(socket $one)" ask '{"do":"get","names":["offset"]}' >out
    mentions out '"offset":9'
    local camera stalling
    camera=$("$vqd" status --json | jq '.workers[0].process')
    "$probe" "$(socket $one)" stall & # a reader that does not read does not hold up the end
    stalling=$!
    kill "$started"
    ends_soon "$started" || fail "the end by SIGTERM is no success"
    has_ended "$camera" || fail "the camera's process is left"
    kill $stalling
    wait
}
under_sim --fault "unplug after frame 60, back after 500 ms" -- lost
[[ -z $(ls "$VQD_RUNTIME_DIR") ]] || fail "left behind: $(ls "$VQD_RUNTIME_DIR")"

# Readers that send what is no message are told so, whatever they send; others do not notice.
rubbish() {
    worker $one
    until_true streams $one
    local path reading others=()
    path=$(socket $one)
    "$probe" "$path" frames 100 >beside &
    reading=$!
    "$probe" "$path" stall &
    others+=($!)
    for bytes in 474554202f20485454502f312e310d0a 56514457020007001000000001000000 56514457010005000000004001000000 \
        56514457010002000000000001000000 5651445701000700040000000100000000000000; do
        "$probe" "$path" send $bytes 1000000000
    done >out
    shows out '.*this is not the wire.*"code":2.*' '.*speaks version 1 of the wire, not 2.*' '.*1073741824 bytes is announced.*' \
        '.*takes no message of kind 2.*' '.*a pull has 16 bytes, not 4.*'
    "$probe" "$path" send 565144570100070010 & # cut short
    others+=($!)
    wait $reading
    [[ $(wc -l <beside) -eq 100 ]] || fail "the others noticed"
    kill -9 "$started" # the worker itself: its camera's process follows, and the next one takes the name
    wait "$started"
    worker $one
    until_true streams $one
    "$probe" "$path" frames 1 >/dev/null || fail "no frames after the worker was killed"
    kill "$started" "${others[@]}"
    wait
}
under_sim -- rubbish

# A worker that was started to outlive its terminal does so.
(
    trap '' HUP
    exec "$vqd" worker -c $one 2>said-$one
) &
started=$!
until_true "$probe" "$(socket $one)" ask '{"do":"state"}'
kill -HUP $started
for _ in 1 2 3; do
    "$probe" "$(socket $one)" ask '{"do":"state"}' >out || fail "a hangup that was to be ignored ended the worker"
done
kill $started
wait

# Sockets that cannot be made
mkdir held.sock
for case in "held.sock|exists and is not a socket" "no/folder.sock|No such file" "$(printf 'x%.0s' {1..108})|no more than 107 bytes" \
    "/proc/x.sock|/proc"; do
    ends 1 "$vqd" worker --socket "${case%|*}"
    mentions err "${case#*|}"
done
ends 1 env VQD_RUNTIME_DIR=/proc/x "$vqd" worker
mentions err "/proc/x (VQD_RUNTIME_DIR): No such file"
ends 2 "$vqd" worker -c 0
mentions err "named by its serial number or its port"
ends 2 "$vqd" worker -s offset=1000
[[ -z $(ls "$VQD_RUNTIME_DIR") ]] || fail "left behind: $(ls "$VQD_RUNTIME_DIR")"
finish
