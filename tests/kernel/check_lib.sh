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

udevd_runs() {
    udevadm control --ping --timeout=2 2>/dev/null
}

udevd_starts() {
    # Rules are read, but what is there already is not announced again.
    /lib/systemd/systemd-udevd --daemon 2>/run/udevd.log && waits_for 10 udevd_runs || {
        echo "udevd does not start: $(cat /run/udevd.log)"
        return 1
    }
}

udevd_stops() {
    udevadm control --exit
    ! waits_for 1 udevd_runs || fail "udevd does not stop"
}

