#!/bin/bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# The guest after its init: prepares the system as far as the checks need it, runs them one by one and turns the machine off.
# With mode=shell, a shell takes the place of the checks.
set -u
bed=/run/bed
source $bed/parameters
export PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 TERM=$term
export TMPDIR=/run/tmp
mkdir -m 1777 $TMPDIR /dev/shm
mkdir /dev/pts
mount -t devpts devpts /dev/pts
ln -s /proc/self/fd /dev/fd
$bed/busybox ip link set lo up
export tree build bed vqd=$build/vqd

power_off() {
    # QEMU ends with twice this number plus 1: 33 if all is well, 35 if not.
    # shellcheck disable=SC2059
    printf "\\$1" | dd of=/dev/port bs=1 seek=$((0xf4)) status=none
}

cd "$tree" || power_off 021
if [[ $mode == shell ]]; then
    stty rows "$rows" columns "$columns" </dev/ttyS1
    setsid -c bash -c 'echo "This is the guest; exit turns it off. The tool is \$vqd; run checks with tests/kernel/checks.sh NAME..."
        exec bash -i' </dev/ttyS1 >/dev/ttyS1 2>&1
    power_off 020
else
    stty raw -echo </dev/ttyS1
    # shellcheck disable=SC2086 # a list of words
    if tests/kernel/checks.sh $checks </dev/null >/dev/ttyS1 2>&1; then
        power_off 020
    else
        power_off 021
    fi
fi
