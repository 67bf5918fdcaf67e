#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# What the doctor finds on healthy cameras and on those that another program or the system blocks, and its report.
#   tool_doctor_test.sh VQD_BINARY
# shellcheck source=tests/system/tool_lib.sh
# shellcheck disable=SC2016 # variables of the inner shell
source "$(dirname "$0")/tool_lib.sh" "$1"
camera='$UMOCKDEV_DIR/sys/devices/pci0000:00/0000:00:14.0/usb1/1-1'

# problem TEXT REMEDY: ./out reports exactly this problem
problem() {
    json out '.schema == "vqd.doctor/1" and (.healthy | not)'
    jq -r '.findings[] | select(.level == "problem") | .text + "\n" + .remedy' out >problems
    mentions problems "$1"
    mentions problems "$2"
    [[ $(jq '[.findings[] | select(.level == "problem")] | length' out) -eq 1 ]] || fail "not one problem"
}

ends 0 "$vqd" sim VQD-HT120 VQD-RS110 -- "$vqd" doctor --report report.tar.gz
[[ $(grep -c '^ok .*EEPROM signed' out) -eq 2 && $(grep -c 'frames a second, 30.0 expected' out) -eq 2 ]] ||
    fail "not two cameras"
mentions out "refuses control transfers above 4096 bytes"
mentions err "README.txt"
mkdir report
tar -xzf report.tar.gz -C report || fail "the report is no archive"
(cd report && ls) | tr '\n' ' ' >names
[[ $(cat names) == "README.txt eeprom.txt findings.json findings.txt library.txt system.txt usb.txt " ]] ||
    fail "in the report: $(cat names)"
json report/findings.json .healthy
mentions report/library.txt "VQD_Library_Ver2.4"
cut -c 115-128 report/eeprom.txt | sort >serials
shows serials 24061100000001 24061100000002
grep -rqw -- "$(uname -n)" report && fail "the host's name is in the report"
ends 1 "$vqd" doctor --report report.tar.gz
mentions err "exists; --force replaces it"

# A slow camera is a warning, not a problem.
ends 0 "$vqd" sim --fps 10 -- "$vqd" doctor --json
json out '[.findings[] | select(.level == "warning")] | length == 1 and (.[0].text | test("^(10|[0-9])\\.. frames a second, 30.0"))'

# No camera; a node that this user may not open, of root's group and of another group; a node that does not exist
ends 1 on_an_empty_bus doctor --json
problem "no.*USB\|no camera is on the bus" "lsusb\|container"
unprivileged=("$vqd")
if [[ $EUID -eq 0 ]]; then # the user nobody runs a copy of the tool, because only root may be able to enter this tree
    carried=$(mktemp -d /tmp/vqd-carried-XXXXXX)
    trap 'rm -rf "$work" "$carried"' EXIT
    cp "$vqd" "$(ldd "$vqd" | sed -n 's/.* => \(.*libVQD_API.*\) (.*/\1/p')" "$carried"
    chmod 755 "$carried"
    unprivileged=(setpriv --reuid=65534 --regid=65534 --clear-groups "$carried/vqd")
fi
shut='chmod -R a+rwX "$UMOCKDEV_DIR"; chmod 000 "$UMOCKDEV_DIR"/dev/bus/usb/001/002; '
ends 4 "$vqd" sim -- bash -c "$shut"'exec "$@"' sh "${unprivileged[@]}" list
mentions err "/dev/bus/usb/001/002 cannot be opened: Permission denied"
ends 1 "$vqd" sim -- bash -c "$shut"'exec "$@"' sh "${unprivileged[@]}" doctor --json
problem "/dev/bus/usb/001/002 may not be opened" 'SUBSYSTEM=="usb", ATTR{idVendor}=="03a4", .*GROUP="plugdev"'
if [[ $EUID -eq 0 ]]; then
    ends 1 "$vqd" sim -- bash -c "$shut"'cd "$UMOCKDEV_DIR"/dev/bus/usb/001; chgrp plugdev 002; chmod 660 002; exec "$@"' \
        sh "${unprivileged[@]}" doctor --json
    problem "group plugdev, mode 0660" 'sudo adduser "$USER" plugdev'
fi
ends 1 "$vqd" sim -- bash -c 'rm "$UMOCKDEV_DIR"/dev/bus/usb/001/002; exec "$0" doctor --json' "$vqd"
problem "No such file" "pass /dev/bus/usb through"

# A kernel driver; a slow cable or hub; too little memory
ends 1 "$vqd" sim -- bash -c "mkdir $camera/1-1:1.0; ln -s /drivers/uvcvideo $camera/1-1:1.0/driver"'; exec "$0" doctor --json' "$vqd"
problem "driver uvcvideo holds" "1-1:1.0 | sudo tee /sys/bus/usb/drivers/uvcvideo/unbind"
ends 1 "$vqd" sim -- bash -c "echo 12 >$camera/speed"'; exec "$0" doctor --json' "$vqd"
problem "12 Mbit/s" "another cable"
ends 0 "$vqd" sim -- bash -c 'cd "$UMOCKDEV_DIR/sys"; mkdir -p module/usbcore/parameters
    echo 1 >module/usbcore/parameters/usbfs_memory_mb; exec "$0" doctor' "$vqd"
mentions out "^warning  usbfs memory: 1 MB is little"

# Another program that uses the camera, by its name; an EEPROM that does not answer; a camera that is lost
ends 1 "$vqd" sim -- bash -c '"$0" stats >stats.txt 2>&1 & until grep -q 1s stats.txt; do sleep 0.2; done
    "$0" doctor --json; code=$?; kill -INT $!; wait $!; exit $code' "$vqd"
problem "vqd (process [0-9]*) has /dev/bus/usb/001/002 open" "end that one"
ends 1 "$vqd" sim --fault "answers 40 of 128 bytes" -- "$vqd" doctor --json
problem "EEPROM cannot be read: 40 of 128 bytes" "Unplug"
ends 1 "$vqd" sim --fault "every frame is out of memory" -- "$vqd" doctor --json
problem "the kernel has none left for a frame" "usbfs_memory_mb"
ends 1 "$vqd" sim --fault "unplug after frame 5" -- "$vqd" doctor --json
problem "the camera is lost" "Unplug"
finish
