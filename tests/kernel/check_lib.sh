# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#
# Sourced by checks.sh after the functions of the tests of the tool: what only checks on a kernel need.

# The tool and the test programs by their names.
export PATH=$here:$build:$build/examples:$PATH

# plugged OPTIONS -- COMMAND...: runs the command with cameras at the kernel
plugged() {
    vqd sim --kernel "$@"
}

# waits_for SECONDS COMMAND...: until the command succeeds
waits_for() {
    local tenths=$(($1 * 10))
    shift
    until "$@"; do
        ((tenths-- > 0)) || return 1
        sleep 0.1
    done
}

# No camera is plugged in, at any port of the virtual controllers.
all_unplugged() {
    ! grep -h '^[hs]s ' /sys/devices/platform/vhci_hcd.*/status* | grep -qv '^.. *[0-9]* 004 '
}

udevd_starts() {
    # Rules are read, but what is there already is not announced again.
    /lib/systemd/systemd-udevd --daemon 2>>udevd.log || fail "udevd does not start"
    waits_for 10 udevadm control --ping || fail "udevd does not answer"
}

udevd_stops() {
    udevadm control --exit
}

# The lines of the kernel since the last call
kernel_says() {
    dmesg --read-clear
}
