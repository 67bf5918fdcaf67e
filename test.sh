#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Builds and runs every test; installs the Debian packages that they need.
#   ./test.sh                    every test, then the share of tests in the code
#   ./test.sh --kernel [CHECK]   the checks on a real kernel: Debian's in QEMU, without root and without KVM
#   ./test.sh --recordings       recordings in readers that are not ours, which come from npm
#   ./test.sh --page             the page of vqd serve, in a browser; installs one
#   ./test.sh --ros              the topics of ROS 2, on loopback, read by another DDS than ours
#   ./test.sh --all              the tests and the four stages above, with one summary
#   ./test.sh --asan             the same under the address and undefined-behaviour sanitizers
#   ./test.sh --valgrind         the same under valgrind, without the long sweeps
#   ./test.sh --soak [NUMBER]    disconnects streaming cameras NUMBER times (2000), under the sanitizers
#   ./test.sh --fuzz [SECONDS]   fuzzes each target for SECONDS (60); findings go to build/fuzz/findings
#   ./test.sh --gcc11            every test, built with g++ 11, which older systems have
#   ./test.sh --lint             clang-tidy and cppcheck
#   ./test.sh --mutations        breaks the library in 44 places, one at a time, and looks whether the tests notice
#   ./test.sh --page-breaks      the same in 20 places of the page and its server
#   ./test.sh --bench            times the library against OpenCV, and recordings and the server; runs no tests
#   ./test.sh --packages         takes the Debian packages through a fresh Debian, from install to purge; with --arm64
#                                after it, those for 64-bit Arm under qemu-user
#   ./test.sh --arm64            the unit tests, built for 64-bit Arm, under qemu-user
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
source tools/setup.sh

build_packages=(g++ cmake make pkg-config libusb-1.0-0-dev libhwy-dev libgtest-dev umockdev libumockdev-dev
    libcli11-dev libarchive-dev libmicrohttpd-dev libpng-dev zlib1g-dev libzstd-dev nlohmann-json3-dev usbutils jq
    abigail-tools doxygen help2man python3 python3-numpy python3-pytest python3-zstandard python3-opencv python3-matplotlib
    python3-jsonschema python3-venv python3-setuptools python3-wheel mypy zstd libgstreamer1.0-dev
    libgstreamer-plugins-base1.0-dev gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good
    gir1.2-gst-plugins-base-1.0 python3-gi)
browser_packages=(chromium-headless-shell fonts-dejavu-core)

# build PRESET: configures and builds everything.
build() {
    install_packages "${build_packages[@]}"
    build_preset "$1"
}

# check PRESET: builds and runs every test of it.
check() {
    build "$1"
    ctest --preset "$1" -j "$((4 * $(nproc)))" # the long ones mostly wait for virtual cameras
}

# Other packages of node conflict with Debian's npm.
install_npm() {
    command -v npm >/dev/null || install_packages nodejs npm
}

case "${1:-}" in
'')
    check dev
    tests/share.sh
    ;;
--kernel)
    build dev
    exec tests/kernel/run.sh "${@:2}"
    ;;
--recordings)
    build dev
    install_npm
    exec tests/recording/foxglove_test.sh build/dev/vqd build/dev/recording_sample
    ;;
--page)
    build_packages+=("${browser_packages[@]}")
    build dev
    exec ctest --preset dev -C Browser -R '^page$'
    ;;
--ros)
    build_packages+=(cyclonedds-dev libfastrtps-dev libfastcdr-dev tshark)
    install_packages "${build_packages[@]}"
    install_npm
    build_preset dev --target vqd worker_probe ros_test ros_receiver vqd-ros 9_dds_subscriber
    ctest --preset dev -C Npm -L ros -j "$(nproc)"
    ;;
--all) exec tests/all.sh ;;
--asan) check asan ;;
--gcc11)
    build_packages+=(g++-11)
    check gcc11
    ;;
--valgrind)
    build_packages+=(valgrind)
    check valgrind
    ;;
--soak)
    build asan
    build/asan/soak "${2:-2000}"
    ;;
--fuzz) exec tests/fuzz.sh "${@:2}" ;;
--lint)
    build_packages+=(clang clang-tidy cppcheck)
    build dev
    exec tests/lint.sh
    ;;
--mutations)
    install_packages "${build_packages[@]}"
    exec tests/breaks.py listed
    ;;
--page-breaks)
    install_packages "${build_packages[@]}" "${browser_packages[@]}"
    exec tests/breaks.py page
    ;;
--bench)
    install_packages g++ cmake make pkg-config libusb-1.0-0-dev libhwy-dev umockdev libumockdev-dev libbenchmark-dev \
        libopencv-dev libcli11-dev libarchive-dev libmicrohttpd-dev libpng-dev zlib1g-dev libzstd-dev nlohmann-json3-dev \
        python3
    build_preset bench
    code=0 # a limit that is missed keeps nothing from being measured
    build/bench/vqd_bench || code=1
    for costs in playback recording serve; do
        bench/$costs.py build/bench/vqd || code=1
    done
    exit $code
    ;;
--packages) exec tests/packages.sh "${@:2}" ;;
--arm64)
    source tests/debian.sh
    arm64_sysroot
    build_preset arm64
    ctest --preset arm64 -j "$(nproc)"
    ;;
--help) sed -n 's/^#   //p' "$0" ;;
*)
    sed -n 's/^#   //p' "$0" >&2
    exit 2
    ;;
esac
