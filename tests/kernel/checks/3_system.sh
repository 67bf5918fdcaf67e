# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2016 # variables of the inner shell
#
# What only a whole system has: udev and its rule, containers, usbfs' memory, kernel drivers.

check doctor 'the doctor finds nothing wrong with a healthy camera, and writes its report'
doctor() {
    ends 0 plugged -- vqd doctor --report report.tar.gz
    mentions out 'refuses control transfers above 4096 bytes'
    mentions out 'frames a second, 30.0 expected'
    ends 0 tar -tzf report.tar.gz
    [[ $(wc -l <out) -eq 7 ]] || fail "the report holds other files"
}

# Programs of other users cannot read a tree below a private folder.
carry_tool() {
    cp "$build/vqd" "$build"/libVQD_API.so "$1"
    chmod -R a+rX "$work" "$1"
}

check udev_rule 'with the packaged rule a member of plugdev uses the camera, also after a replug; others get exit code 4'
udev_rule() {
    cp "$tree/packaging/udev/60-vqd-camera.rules" /usr/lib/udev/rules.d/
    udevadm control --reload
    carry_tool "$work"
    export member='setpriv --reuid=12345 --regid=12345 --groups=46' other='setpriv --reuid=12345 --regid=12345 --clear-groups'
    ends 0 plugged --fault 'unplug after frame 5, back after 300 ms' -- bash -c '
        udevadm settle
        $other ./vqd list 2>other; [[ $? -eq 4 ]] || exit 11
        $member ./vqd list >member || exit 12
        mkdir -m 777 grabbed; cd grabbed; $member ../vqd grab -n 10 --format raw -o replugged || exit 13'
    mentions other 'cannot be opened: Permission denied'
    [[ $(cut -d , -f 5 grabbed/replugged/frames.csv | tr -d '\n') == reopened0000010000 ]] || fail "not one re-open"
    rm /usr/lib/udev/rules.d/60-vqd-camera.rules
    udevadm control --reload
}

# contexts FILE: how many contexts of libusb a program began, by libusb's own lines
contexts() {
    grep -c 'libusb_init.*libusb v' "$1"
}

check one_context 'where udev is healthy, a lost camera is found again without a second context of libusb'
one_context() {
    ends 0 plugged --fault 'unplug after frame 5, back after 500 ms' -- \
        env LIBUSB_DEBUG=4 vqd grab -n 10 --format raw -o series -v
    [[ $(contexts err) -eq 1 ]] || fail "$(contexts err) contexts"
}

# Without udev's events the library finds the camera through a fresh context.
found_without_events() {
    ends 0 plugged VQD-HT120 VQD-HT120 --fps 0 --fault '1: unplug after frame 5, back after 500 ms' -- \
        env LIBUSB_DEBUG=4 "$@" vqd grab -c 24061100000001 -n 10 --format raw -o series -v
    [[ $(cut -d , -f 5 series/frames.csv | tr -d '\n') == reopened0000010000 ]] || fail "not one re-open"
    [[ $(contexts err) -eq 2 ]] || fail "$(contexts err) contexts"
    ends 0 plugged VQD-HT120 VQD-HT120 --fps 0 --fault '1: unplug after frame 2, back after 500 ms' -- "$@" in_turn 2 4
    ends 0 bash -c '
        exec 9> >(:); in_turn=("$@" in_turn 2 1)
        vqd sim --kernel --fps 0 -- bash -c "
            \"\$@\" >late 2>&1 & late=\$!
            until grep -q ^1 late; do sleep 0.1; done
            vqd sim --kernel --serial 24061100000002 --fps 0 -- bash -c \"while kill -0 \$late 2>/dev/null; do sleep 0.2; done\"
            wait \$late" sh "${in_turn[@]}"' sh "$@"
    [[ $(grep -c '^2406110000000[12] frame' late) -eq 2 ]] || fail "the camera that came later: $(cat late)"
}
check container 'in a network namespace of its own: re-open with two cameras, a camera that comes later'
container() {
    found_without_events unshare -n
}

check no_udevd 'without udevd: the same'
no_udevd() {
    udevd_stops
    found_without_events
    udevd_starts
}

check usbfs_memory "when other programs hold usbfs' memory, the message names the limit; when they let go, grabbing goes on"
usbfs_memory() {
    local limit=/sys/module/usbcore/parameters/usbfs_memory_mb before
    before=$(cat $limit)
    echo 1 >$limit
    ends 1 plugged -- hold_memory 900 vqd grab -n 3 -o none
    mentions err 'no memory left for a frame.*usbfs_memory_mb'
    [[ ! -e none/depth.png ]] || fail "a picture of no frame"
    ends 1 plugged -- hold_memory 900 vqd doctor --json
    json out '[.findings[] | select(.level == "problem")] | length == 1 and (.[0].remedy | test("usbfs_memory_mb"))'
    ends 0 plugged -- bash -c 'timeout 2 hold_memory 900 sleep 10 & sleep 0.5; vqd grab -n 3 -o later'
    echo "$before" >$limit
}

check kernel_driver 'a kernel driver on the interface is named, and the remedy that the doctor gives cures it'
kernel_driver() {
    local ids=/sys/bus/usb-serial/drivers/generic
    echo 03a4 871a >$ids/new_id
    ends 0 plugged -- bash -c '
        sleep 0.5
        vqd grab -o none 2>refused; [[ $? -eq 4 ]] || exit 11
        vqd doctor --json >findings; [[ $? -eq 1 ]] || exit 12
        remedy=$(jq -r ".findings[] | select(.level == \"problem\") | .remedy" findings)
        bash -c "$(sed "s/.*\(echo .*unbind\).*/\1/; s/sudo //" <<<"$remedy")" || exit 13
        vqd grab -o cured'
    echo 03a4 871a >$ids/remove_id
}
