# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#
# Sourced by scripts that need a Debian of their own in a folder.

# Fills a folder with Debian, with this machine's archive and settings of apt.
#   new_debian ROOT ARCHITECTURE VARIANT PACKAGES
new_debian() {
    local settings
    settings=$(mktemp -d)
    apt-get indextargets --format 'deb $(REPO_URI) $(RELEASE) $(COMPONENT)' 'Created-By: Packages' 'Origin: Debian' |
        sort -u >"$settings/sources.list"
    apt-config dump Acquire >"$settings/apt.conf"
    mmdebstrap --quiet --variant="$3" --architectures="$2" --include="$4" --aptopt="$settings/apt.conf" \
        "$(sed -n 's/^VERSION_CODENAME=//p' /etc/os-release)" "$1" "$settings/sources.list"
    rm -r "$settings"
}

# Runs a command in such a folder, with nothing of this machine's environment. SHARED, if not empty, is a folder of this
# machine that the command sees too. The mounts for it go with the process, however it ends.
#   in_debian ROOT SHARED COMMAND [ARGUMENTS]
in_debian() {
    unshare --mount --pid --fork --kill-child bash -euc '
        root=$1 shared=$2
        shift 2
        mount -t proc proc "$root/proc"
        mount --rbind /sys "$root/sys"
        mount --rbind /dev "$root/dev"
        if [[ -n $shared ]]; then
            mkdir -p "$root$shared"
            mount --bind "$shared" "$root$shared"
        fi
        exec env -i PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin DEBIAN_FRONTEND=noninteractive HOME=/root \
            chroot "$root" "$@"' bash "$@"
}

# Prepares to cross-build for 64-bit Arm. The Arm packages are only unpacked into build/arm64-sysroot, so this machine's own
# package system does not change.
arm64_sysroot() {
    install_packages cmake make crossbuild-essential-arm64 qemu-user mmdebstrap
    local sysroot=$PWD/build/arm64-sysroot
    if [[ ! -d $sysroot ]]; then
        mkdir -p build
        rm -rf "$sysroot.part"
        new_debian "$sysroot.part" arm64 extract libusb-1.0-0-dev,libhwy-dev,libgtest-dev,libstdc++6,libumockdev-dev,libcli11-dev,libarchive-dev,libmicrohttpd-dev,libpng-dev,zlib1g-dev,libzstd-dev,nlohmann-json3-dev,libgstreamer1.0-dev,libgstreamer-plugins-base1.0-dev
        # Links such as libz.so lead to folders of this machine. Where they lead nowhere, the static library would be linked.
        find "$sysroot.part" -type l -lname '/*' | while IFS= read -r link; do
            ln -sfnr "$sysroot.part$(readlink "$link")" "$link"
        done
        mv "$sysroot.part" "$sysroot" # so that it is complete
    fi
}
