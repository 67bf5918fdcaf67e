#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Builds the Debian packages and takes them through a fresh Debian: install, use, build against, upgrade, remove, purge.
# Nothing may be left behind. ./test.sh --packages runs it.
#   packages.sh            for this machine
#   packages.sh --arm64    cross-built for 64-bit Arm; the fresh Debian runs under qemu-user
set -euo pipefail
script=$(readlink -f "$0")
cd "$(dirname "$script")/.."
source tests/debian.sh
native=$(dpkg --print-architecture)

if [[ ${1:-} != --as-root ]]; then
    source tools/setup.sh
    arch=$native preset=packages
    install_packages g++ cmake make pkg-config libusb-1.0-0-dev libhwy-dev umockdev libumockdev-dev libcli11-dev libarchive-dev libmicrohttpd-dev libpng-dev \
        zlib1g-dev libzstd-dev nlohmann-json3-dev libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev cyclonedds-dev \
        python3 dpkg-dev file doxygen help2man lintian mmdebstrap
    if [[ ${1:-} == --arm64 ]]; then
        arch=arm64 preset=packages-arm64
        arm64_sysroot
        install_packages qemu-user-static binfmt-support
        if [[ ! -e /proc/sys/fs/binfmt_misc/qemu-aarch64 ]]; then
            echo "The kernel does not run programs for 64-bit Arm under qemu-aarch64: mount binfmt_misc and run update-binfmts." >&2
            exit 1
        fi
    fi
    for revision in 2 1; do # 2 is for the upgrade
        cmake --preset $preset -DVQD_DEB_REVISION=$revision
        cmake --build --preset $preset -j "$(nproc)" --target all docs
        cp build/$preset/CPackConfig.cmake build/$preset/revision-$revision.cmake
        rm -rf build/$preset/packages-$revision
        [[ $arch != "$native" ]] || (cd build/packages && cpack --config revision-$revision.cmake -B packages-$revision)
    done
    as_root=()
    [[ $EUID -eq 0 ]] || as_root=(sudo)
    exec "${as_root[@]}" "$script" --as-root "$arch" build/$preset
fi
arch=$2 build=$PWD/$3

work=$(mktemp -d)
trap 'rm -rf --one-file-system "$work"' EXIT
root=$work/root
new_debian "$root" "$arch" minbase g++,cmake,make,pkg-config,udev
if [[ $arch != "$native" ]]; then
    # Packing runs Debian's tools to find the packages of the libraries, and the tool to make its man pages. Both must run on
    # the architecture of the packages.
    cp -a "$root" "$work/packing"
    in_debian "$work/packing" "$PWD" bash -euc '
        apt-get -qq update
        apt-get -qq -y install --no-install-recommends dpkg-dev file help2man libusb-1.0-0-dev libumockdev-dev libarchive-dev \
            libmicrohttpd-dev libpng-dev zlib1g-dev libzstd-dev libgstreamer-plugins-base1.0-0 >/dev/null
        cd "$1"
        "$2/tools/vqd/make_reference.sh" "$1/vqd" "$1/reference" help2man
        for revision in 2 1; do cpack --config revision-$revision.cmake -B packages-$revision; done' bash "$build" "$PWD"
fi
# The address is only an example, and no bug report asked for packages.
lintian --allow-root --fail-on error --suppress-tags bogus-mail-host,initial-upload-closes-no-bugs "$build"/packages-1/*.deb
mkdir "$root/tmp/old" "$root/tmp/new"
cp "$build"/packages-1/*.deb "$root/tmp/old"
cp "$build"/packages-2/*.deb "$root/tmp/new"

cat >"$root/tmp/life.sh" <<'END'
set -euo pipefail
step() { echo "== $*"; }
get() { apt-get -qq -y --no-install-recommends "$@" >/tmp/apt.log 2>&1 || { cat /tmp/apt.log; return 1; }; }
listing() {
    find / -xdev \( -path /proc -o -path /sys -o -path /dev -o -path /tmp -o -path /run -o -path /var/cache -o -path /var/log \
        -o -path /var/lib/apt -o -path /var/lib/dpkg \) -prune -o -print | sort
    dpkg --get-selections
}
said() { grep -qx -- "$1" /tmp/udevadm.log && : >/tmp/udevadm.log; }
must_fail() { if "$@"; then return 1; fi; }
as_user() { setpriv --reuid=nobody --regid=nogroup --clear-groups "$@"; }

# udev does not run here, so this notes what it would be told.
dpkg-divert --quiet --local --rename --add /usr/bin/udevadm
printf '#!/bin/sh\necho "$@" >>/tmp/udevadm.log\n' >/usr/bin/udevadm
chmod +x /usr/bin/udevadm
mkdir -p /run/udev
perl -MIO::Socket::UNIX -e 'IO::Socket::UNIX->new(Listen => 1, Local => "/run/udev/control") or die'
get update
listing >/tmp/before

step "install"
get install /tmp/old/*.deb
grep -qx 'trigger --action=change --subsystem-match=usb --attr-match=idVendor=03a4' /tmp/udevadm.log
said 'control --reload-rules'
/usr/bin/udevadm.distrib test /sys/devices/virtual/mem/null >/tmp/rules 2>&1
grep -q 'Reading rules file: /usr/lib/udev/rules.d/60-vqd-camera.rules' /tmp/rules
must_fail grep 'vqd-camera.rules:' /tmp/rules

step "use, as an ordinary user"
cd /tmp
as_user vqd sim --scene plane -- vqd grab -o /tmp/pictures --cloud | grep 'depth at the centre 1[0-9]* mm'
[[ -s /tmp/pictures/depth.png ]]

[[ -e /usr/share/man/man1/vqd.1.gz && -e /usr/share/man/man1/vqd-grab.1.gz && -e /usr/share/man/man3/VQD_API.h.3.gz ]]
[[ ! -e /usr/bin/vqd-ros || -e /usr/share/man/man1/vqd-ros.1.gz ]]
bash -c '. /usr/share/bash-completion/completions/vqd && complete -p vqd' >/dev/null

step "use from Python"
as_user vqd sim --scene plane -- python3 /usr/share/doc/python3-vqd/examples/mean_depth.py | grep ' mm, noise '
[[ -e $(python3 -c 'import importlib.util, vqd; print(importlib.util.cache_from_source(vqd.__file__))') ]]
python3 -c 'import importlib.metadata, vqd; assert importlib.metadata.version("vqd") == vqd.__version__'

as_user vqd calibrate fppn --help | grep '@MM is its measured'
(as_user vqd sim -- vqd calibrate check --board 8x5 --square 60 2>&1 || true) | grep 'Debian: python3-opencv'

step "use in GStreamer"
get install gstreamer1.0-tools
as_user vqd sim --scene plane -- sh -c 'vqd worker -q &
    gst-launch-1.0 -q vqdsrc num-buffers=3 ! filesink location=/tmp/depth
    kill $!'
[[ $(stat -c %s /tmp/depth) -eq $((3 * 2 * 320 * 240)) ]]

step "build against"
examples=/usr/share/doc/libvqd-api-dev/examples
cmake -S $examples -B /tmp/cmake >/tmp/cmake.log
cmake --build /tmp/cmake -j "$(nproc)" >/tmp/cmake.log
as_user vqd sim --scene plane -- /tmp/cmake/3_point_cloud | grep ' points in '
gcc -Wall -Wextra -Werror $examples/1_first_frame.c -o /tmp/first_frame $(pkg-config --cflags --libs vqd_api)
as_user vqd sim --scene plane -- /tmp/first_frame | grep ' mm ahead'

if [[ -e /usr/bin/vqd-ros ]]; then # it is built for this machine's architecture only
    step "publish, and read by DDS alone"
    get install cyclonedds-dev cyclonedds-tools
    cmake -S $examples -B /tmp/cmake-dds >/tmp/cmake.log
    cmake --build /tmp/cmake-dds -j "$(nproc)" --target 9_dds_subscriber >/tmp/cmake.log
    as_user mkdir /tmp/nobody
    as_user env VQD_RUNTIME_DIR=/tmp/nobody ROS_LOCALHOST_ONLY=1 ROS_DOMAIN_ID=$((1 + $$ % 200)) vqd sim VQD-HT110 -- bash -c '
        vqd publish &
        publisher=$!
        export CYCLONEDDS_URI="<General><Interfaces><NetworkInterface address=\"127.0.0.1\"/></Interfaces><AllowMulticast>false</AllowMulticast>
            </General><Discovery><ParticipantIndex>auto</ParticipantIndex><MaxAutoParticipantIndex>32</MaxAutoParticipantIndex><Peers>
            <Peer address=\"127.0.0.1\"/></Peers></Discovery>"
        timeout 100 env -u LD_PRELOAD /tmp/cmake-dds/9_dds_subscriber /vqd_24061100000001/depth/image_raw 5
        kill $publisher
        wait $publisher' | grep ' 320 x 240 16UC1, 1[0-9]* in the middle'
    get purge cyclonedds-dev cyclonedds-tools
fi

step "upgrade"
get install /tmp/new/*.deb
said 'control --reload-rules'
packages=$(for package in /tmp/new/*.deb; do dpkg-deb -f "$package" Package; done)
[[ $(dpkg-query -W -f '${Version}\n' $packages | uniq) == "$(dpkg-deb -f /tmp/new/vqd-tools*.deb Version)" ]]
as_user vqd sim --scene plane -- /tmp/first_frame | grep ' mm ahead'

step "remove and purge"
get remove libvqd-api
said 'control --reload-rules'
must_fail command -v vqd
[[ ! -e /usr/lib/udev/rules.d/60-vqd-camera.rules ]]
dpkg --purge $packages gstreamer1.0-tools
get autoremove --purge
listing >/tmp/after
diff /tmp/before /tmp/after
step "nothing is left behind"
END
in_debian "$root" "" bash /tmp/life.sh
