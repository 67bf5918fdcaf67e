#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Goes from a bare machine to depth pictures: installs the Debian packages that are missing, builds, plugs a virtual camera
# into the unmodified libusb, and grabs 30 frames from it into demo-out/.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
source tools/setup.sh

install_packages g++ cmake make pkg-config libusb-1.0-0-dev libhwy-dev umockdev libumockdev-dev libcli11-dev \
    libarchive-dev libmicrohttpd-dev libpng-dev zlib1g-dev libzstd-dev nlohmann-json3-dev help2man python3

build_preset release
build=build/release
echo "Grabbing from a virtual camera"
echo
rm -f demo-out/{depth,amplitude,depth16,amplitude16,points}.png demo-out/points.ply
if ! "$build/vqd" sim VQD-HT120 -- "$build/vqd" grab -n 30 -o demo-out --cloud \
    -s undistortion=1 -s orthogonal=1 -s remove-edge=1 2>"$build/demo-grab.log"; then
    cat "$build/demo-grab.log" >&2
    echo "Grabbing failed." >&2
    exit 1
fi
