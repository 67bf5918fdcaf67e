# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#
# Sourced by run.sh: Debian's kernel in QEMU, with this machine's files as its own. Needs neither root nor KVM, and nothing of
# it is installed: kernel and busybox are only unpacked, into build/kernel.

# The kernel modules that the guest loads, by the names that modprobe takes; what they depend on comes along.
guest_modules=(virtio_pci 9pnet_virtio 9p overlay usbcore vhci-hcd usbserial)

# The version of a package that apt would fetch; nothing when it knows none.
candidate() {
    LC_ALL=C apt-cache policy "$1" | sed -n 's/^  Candidate: \([^(].*\)/\1/p'
}

# Unpacks the members of a Debian package that match the patterns into build/kernel/PACKAGE_VERSION, once for each version,
# and prints that folder.
#   unpack_package PACKAGE PATTERN...
unpack_package() {
    local package=$1 version folder work
    shift
    version=$(candidate "$package")
    folder=$PWD/build/kernel/${package}_$version
    if [[ ! -d $folder ]]; then
        echo "Fetching $package $version" >&2
        work=$(mktemp -d -p build/kernel)
        if ! (cd "$work" && apt-get -q=2 -o APT::Sandbox::User= download "$package=$version" >log 2>&1); then
            cat "$work/log" >&2
            rm -r "$work"
            echo "$package $version cannot be fetched." >&2
            return 1
        fi
        mkdir "$work/files"
        dpkg-deb --fsys-tarfile "$work"/*.deb | tar -x -C "$work/files" --wildcards "$@"
        rm -rf "build/kernel/${package}_"*
        mv "$work/files" "$folder"
        rm -r "$work"
    fi
    echo "$folder"
}

# Sets vmlinuz, modules (a folder) and busybox.
fetch_kernel() {
    local package folder
    if [[ -z $(candidate linux-image-amd64) ]]; then
        apt_get update >&2
    fi
    # The meta package depends on the kernel proper.
    package=$(LC_ALL=C apt-cache depends linux-image-amd64 | sed -n 's/^  Depends: \(linux-image-[0-9].*\)/\1/p' | head -n 1)
    if [[ -z $package ]]; then
        echo "apt knows no kernel for amd64: linux-image-amd64 is not among its packages." >&2
        return 1
    fi
    folder=$(unpack_package "$package" './boot/vmlinuz-*' './lib/modules/*/kernel/drivers/virtio/*' \
        './lib/modules/*/kernel/drivers/usb/*' './lib/modules/*/kernel/fs/*' './lib/modules/*/kernel/net/9p/*') || return
    vmlinuz=$(echo "$folder"/boot/vmlinuz-*)
    modules=$(echo "$folder"/lib/modules/*)
    folder=$(unpack_package busybox-static ./bin/busybox) || return
    busybox=$folder/bin/busybox
}

# Writes an initial RAM disk with busybox, the modules and a file of parameters, which its init reads.
#   make_initrd FILE PARAMETERS
make_initrd() {
    local file=$1 parameters=$2 root release module dependency
    root=$(mktemp -d)
    release=${modules##*/}
    mkdir -p "$root"/{bin,dev,proc,sys,lib/modules}
    [[ -e $modules/modules.dep ]] || "$busybox" depmod -b "${modules%/lib/modules/*}" "$release" || return
    # Lines of modules.dep are "kernel/fs/9p/9p.ko: kernel/net/9p/9pnet.ko ...".
    for module in "${guest_modules[@]}"; do
        module=${module//[-_]/[-_]}
        for dependency in $(grep -E "/$module\.ko:" "$modules/modules.dep" | tr -d :); do
            install -D -m 644 "$modules/$dependency" "$root/lib/modules/$release/$dependency"
        done
    done
    "$busybox" depmod -b "$root" "$release"
    install -m 755 "$busybox" "$root/bin/busybox"
    install -m 755 tests/kernel/init "$root/init"
    {
        echo "modules='${guest_modules[*]}'"
        echo "$parameters"
    } >"$root/parameters"
    (cd "$root" && find . | "$busybox" cpio -o -H newc 2>/dev/null) >"$file"
    rm -r "$root"
}

# Boots the kernel. The second serial port is standard input and output, the first one, with the kernel's own lines, a file.
# OUT is the one folder of this machine that the guest may write to. QEMU ends with 33 when the guest says that all is well.
#   boot INITRD OUT CONSOLE_LOG SECONDS
boot() {
    local initrd=$1 out=$2 console=$3 seconds=$4 khz
    # A guest without KVM reads this machine's time stamp counter. Measuring its rate while this machine is busy goes wrong,
    # and the guest's clock with it. /proc/cpuinfo has twice the rate in MHz.
    khz=$(awk '$1 == "bogomips" { printf "%d", $3 * 500; exit }' /proc/cpuinfo)
    # AVX2 is emulated too, but many times slower than what it replaces.
    timeout --foreground --kill-after=5 "$seconds" qemu-system-x86_64 -accel tcg,thread=multi -cpu max,avx=off,avx2=off \
        -smp 2 -m 1G -nodefaults -no-user-config -display none -no-reboot \
        -kernel "$vmlinuz" -initrd "$initrd" -append "console=ttyS0 panic=-1 tsc_early_khz=$khz" \
        -chardev "file,id=console,path=${console//,/,,}" -serial chardev:console \
        -chardev stdio,id=lines,signal="${guest_signals:-on}" -serial chardev:lines \
        -device isa-debug-exit,iobase=0xf4,iosize=4 \
        -fsdev local,id=root,path=/,security_model=none,multidevs=remap,readonly=on \
        -device virtio-9p-pci,fsdev=root,mount_tag=root \
        -fsdev "local,id=out,path=${out//,/,,},security_model=none" -device virtio-9p-pci,fsdev=out,mount_tag=out
}
