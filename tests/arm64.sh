#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Cross-builds for 64-bit Arm and runs the unit tests under qemu-user. The Arm packages are only unpacked, into
# build/arm64-sysroot: this machine's own package system does not change. Run by ./test.sh --arm64.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source tools/setup.sh

install_packages cmake make crossbuild-essential-arm64 qemu-user mmdebstrap
sysroot=$PWD/build/arm64-sysroot
if [[ ! -d $sysroot ]]; then
    work=$(mktemp -d)
    trap 'rm -rf "$work"' EXIT
    apt-get indextargets --format 'deb $(REPO_URI) $(RELEASE) $(COMPONENT)' 'Created-By: Packages' 'Origin: Debian' |
        sort -u >"$work/sources.list"
    apt-config dump Acquire >"$work/apt.conf"
    mkdir -p build
    mmdebstrap --quiet --variant=extract --architectures=arm64 --include=libusb-1.0-0-dev,libhwy-dev,libgtest-dev,libstdc++6 \
        --aptopt="$work/apt.conf" "$(sed -n 's/^VERSION_CODENAME=//p' /etc/os-release)" "$work/sysroot" "$work/sources.list"
    mv "$work/sysroot" "$sysroot" # only a complete one
fi
build_preset arm64
ctest --preset arm64 -j "$(nproc)"
