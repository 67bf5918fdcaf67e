# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#
# Sourced by the scripts that cross-build for 64-bit Arm. The Arm packages are only unpacked, into build/arm64-sysroot:
# this machine's own package system does not change.
install_packages cmake make crossbuild-essential-arm64 qemu-user mmdebstrap
sysroot=$PWD/build/arm64-sysroot
if [[ ! -d $sysroot ]]; then
    mkdir -p build
    rm -rf "$sysroot.part"
    new_debian "$sysroot.part" arm64 extract libusb-1.0-0-dev,libhwy-dev,libgtest-dev,libstdc++6,libumockdev-dev,libcli11-dev,libarchive-dev,libpng-dev,nlohmann-json3-dev
    # Links such as libz.so lead to this machine's own folders; where they lead nowhere, the static library would be linked.
    find "$sysroot.part" -type l -lname '/*' | while IFS= read -r link; do
        ln -sfnr "$sysroot.part$(readlink "$link")" "$link"
    done
    mv "$sysroot.part" "$sysroot" # only a complete one
fi
