#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Recording with real workers: the files, whichever way it ends, and what is left when it is killed.
#   record_test.sh VQD_BINARY PROBE_BINARY
# shellcheck source=tests/system/worker_lib.sh
# shellcheck disable=SC2012,SC2016,SC2086,SC2317 # plain names; variables of inner shells; serial numbers; functions run under vqd sim
source "$(dirname "$0")/worker_lib.sh" "$1" "$2"

whole() { # FILE...
    local file
    for file; do
        "$vqd" recording verify -q "$file" >verified 2>&1 || fail "$file is not whole: $(cat verified)"
        [[ ! -e $file.part ]] || fail "$file.part is left"
    done
}

# frames FILE: how many are in it
frames() {
    "$vqd" recording info -q --json "$1" | jq '[.channels[] | select(.topic | test("/(frame_header|raw)$")).messages] | add // 0'
}

# events FILE: how many are in it
events() {
    "$vqd" recording info -q --json "$1" | jq '[.channels[] | select(.topic | endswith("/events")).messages] | add // 0'
}

recording() { # FILTER: of the first worker's recording
    state ".workers[0].recording | $1"
}

# Files of several cameras and of one, in parts, and as the options say.
ends 0 "$vqd" sim VQD-HT120 VQD-RS110 -- "$vqd" record -c all -n 20 -o all --json
json out '.schema == "vqd.record/1" and [.cameras[].camera.serial] == ["24061100000001", "24061100000002"]'
json out '.cameras | all(.frames == 20 and ."not-recorded" == 0 and .error == null and (.files | length) == 1)'
whole all/$one-*.mcap all/$two-*.mcap
[[ $(ls all | wc -l) -eq 2 && $(frames all/$one-*.mcap) -eq 20 && $(frames all/$two-*.mcap) -eq 20 ]] || fail "not two of 20 frames"
ends 0 "$vqd" sim -- "$vqd" record -c $one --compact --no-images --for 2.5s --split 1s -o parts/shelf.mcap --json
[[ $(cd parts && echo *) == "shelf.mcap shelf_002.mcap shelf_003.mcap" ]] || fail "the parts are $(ls parts)"
whole parts/*
[[ $(jq '.cameras[0].frames' out) -eq $(($(frames parts/shelf.mcap) + $(frames parts/shelf_002.mcap) + $(frames parts/shelf_003.mcap))) ]] ||
    fail "not all frames are in a part"
"$vqd" recording info --json parts/shelf_002.mcap >out
json out '.camera.part == "2" and .camera.serial == "24061100000001" and ([.channels[].topic] | any(endswith("/raw")) and all(test("image|frame_header") | not))'
json out '[.attachments[].name] == ["24061100000001/eeprom.bin", "24061100000001/orthogonal.bin", "24061100000001/fppn.bin"]'

# What is refused leaves nothing behind.
ends 1 "$vqd" sim -- "$vqd" record -n 2 -o parts/shelf.mcap
mentions err 'shelf.mcap exists, and a recording replaces nothing'
ends 3 "$vqd" sim -- "$vqd" record -c 24061100000009 -n 2
ends 3 on_an_empty_bus record -n 2
ends 2 "$vqd" sim VQD-HT110 VQD-RS110 -- "$vqd" record -c all -n 2 -o two.mcap
ends 2 "$vqd" sim -- "$vqd" record -n 2 -o '.. .mcap'
ends 1 "$vqd" sim -- "$vqd" record -n 2 -o parts/shelf.mcap/folder
ends 1 "$vqd" sim -- "$vqd" record -n 2 --keep-free 900T
mentions err 'are to stay free'
for wrong in '-n 3 --for 3' '--for 0' '--for week' '--split many' '--split 5' '--split 0.5s' '--compact --no-compress' '--images --no-images' '-n 0'; do
    # shellcheck disable=SC2086
    ends 2 "$vqd" record $wrong
done
[[ -z $(ls -- *.mcap *.part 2>/dev/null) && $(ls parts | wc -l) -eq 3 ]] || fail "left behind: $(ls . parts)"

# A signal is the usual end. When the command is killed, its worker ends the file.
for signal in INT TERM HUP KILL; do
    ends 0 "$vqd" sim -- bash -c '
        "$0" record -o $1.mcap 2>$1.err & until grep -q . $1.mcap.part 2>/dev/null; do sleep 0.05; done
        sleep 1; kill -$1 $!; wait $!; code=$?
        for ((i = 0; i < 200; i++)); do [[ -e $1.mcap.part ]] || break; sleep 0.05; done
        [[ $1 == KILL && $code == 137 || $code == 0 ]]' "$vqd" $signal
    whole $signal.mcap
    [[ $(frames $signal.mcap) -gt 5 ]] || fail "SIG$signal leaves $(frames $signal.mcap) frames"
done

# A full disk ends it with what fits, and so does the room that is to stay free.
ends 1 "$vqd" sim -- bash -c 'ulimit -f 6000; "$0" record --no-compress -o limit.mcap' "$vqd"
mentions err 'the recording cannot be written: File too large'
whole limit.mcap
[[ $(frames limit.mcap) -gt 5 ]] || fail "only $(frames limit.mcap) frames below the limit"
if unshare -Urm true 2>/dev/null; then
    mkdir disk
    for free in 0 12M; do
        ends 1 unshare -Urm bash -c 'mount -t tmpfs -o size=24M none disk &&
            "$0" sim -- "$0" record --no-compress --keep-free $1 -o disk/full.mcap; code=$?; cp disk/* .; exit $code' "$vqd" $free
        whole full.mcap
        [[ $(stat -c %s full.mcap) -gt 5000000 ]] || fail "there was room for more"
        [[ $free != 12M ]] || mentions err '12 MB are to stay free'
        rm full.mcap
    done
fi

# A camera that comes back goes on in the same file, a process of the camera that died in the next one.
ends 0 "$vqd" sim --fault "unplug after frame 20, back after 300 ms" -- "$vqd" record -n 40 -o lost.mcap
whole lost.mcap
[[ $(frames lost.mcap) -eq 40 && $(events lost.mcap) -ge 2 ]] || fail "$(frames lost.mcap) frames, $(events lost.mcap) events"
ends 0 "$vqd" sim -- bash -c '"$0" record -n 60 -o again.mcap & until [[ -s again.mcap.part ]]; do sleep 0.05; done
    sleep 0.5; kill -9 $("$0" status --json | jq ".workers[0].process"); wait $!' "$vqd"
mentions err 'is back'
whole again_002.mcap
[[ -e again.mcap.part ]] || fail "what the killed process wrote is gone"

# A worker that runs already records below its own folder, if it has one.
others() {
    worker $one --recordings theirs
    until_true streams $one
    "$vqd" record -n 5 --json >out 2>err || fail "a worker does not record"
    mentions err "has a worker already, which records to .*theirs"
    "$vqd" doctor --report held.tar.gz --with-recording 1 >said 2>&1 && fail "a camera that a worker has is no problem"
    mentions said "recording: none is made"
    whole "$(jq -r '.cameras[0].files[0]' out)"
    "$probe" "$(socket $one)" ask '{"do":"stop-recording"}' '{"do":"record"}' '{"do":"record","name":"../up"}' \
        '{"do":"record","name":"a","folder":"/tmp"}' '{"do":"record","name":"a"}' '{"do":"record","name":"b"}' \
        '{"do":"stop-recording"}' >out
    shows out '.*"ok":true.*"state":"done".*' '.*"ok":false,"error":"the name of a recording has.*"code":2.*' \
        '.*"ok":false,"error":"the name of a recording has.*' '.*"ok":false,"error":"a recording has no .*' \
        '.*"ok":true.*"state":"recording".*' '.*"ok":false,"error":"this worker is recording already.*"code":1.*' '.*"ok":true.*'
    kill $started
    ends_soon $started || fail "the end by SIGTERM is no success"
    worker $one
    until_true streams $one
    "$vqd" record -n 5 2>err && fail "a worker without a folder records"
    mentions err "this worker has no folder for recordings"
    kill $started
    wait
}
under_sim VQD-HT110 -- others

# A worker that is to end while it waits for its camera completes the file all the same.
silent() {
    worker $one --recordings silent
    until_true streams $one
    "$probe" "$(socket $one)" ask '{"do":"record","name":"s"}' >/dev/null
    until_true state '.workers[0].state == "silent"'
    kill $started
    ends_soon $started
    whole silent/s.mcap
}
under_sim VQD-HT110 --fault "silent after frame 150" -- silent

# Killed at any moment, it has lost no more than the chunk that was open: a MiB.
killed_off() {
    local round seen supervisor
    RANDOM=20261125 # the same moments in each run
    for round in 1 2 3 4; do
        worker $one --recordings killed
        until_true streams $one
        "$probe" "$(socket $one)" ask "{\"do\":\"record\",\"name\":\"k$round\"}" >/dev/null
        until_true recording '.frames > 4'
        sleep "$((RANDOM % 2)).$((RANDOM % 90 + 10))"
        "$vqd" status --json >now
        seen=$(jq '.workers[0].recording.frames' now)
        supervisor=$started
        kill -9 "$(jq '.workers[0].supervisor' now)" "$(jq '.workers[0].process' now)"
        wait $supervisor
        "$vqd" recording verify -q killed/k$round.mcap.part >/dev/null 2>&1 && fail "a killed recording counts as whole"
        "$vqd" recording repair -q killed/k$round.mcap.part -o killed/k$round.mcap >/dev/null || fail "no repair of k$round"
        rm killed/k$round.mcap.part "$VQD_RUNTIME_DIR"/*
        whole killed/k$round.mcap
        [[ $(frames killed/k$round.mcap) -ge $((seen - 4)) ]] ||
            fail "$(frames killed/k$round.mcap) frames are left of $seen"
    done
}
under_sim VQD-HT110 -- killed_off

ends 0 "$vqd" sim VQD-HT110 VQD-RS110 -- "$vqd" doctor --report report.tar.gz --with-recording 1
tar -xzf report.tar.gz || fail "the report is no archive"
whole recordings/$one-*.mcap recordings/$two-*.mcap
mentions README.txt 'what the cameras saw'
ends 2 "$vqd" doctor --with-recording 1

[[ -z $(find "$VQD_RUNTIME_DIR" -name '*.s*') ]] || fail "sockets are left: $(ls "$VQD_RUNTIME_DIR")"
finish
