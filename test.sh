#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Builds and runs every test; installs the Debian packages that they need.
#   ./test.sh                    every test, then the share of tests in the code
#   ./test.sh --kernel [CHECK]   the checks on a real kernel: Debian's in QEMU, without root and without KVM
#   ./test.sh --all              the tests and the checks on a real kernel, with one summary
#   ./test.sh --ros              the topics of ROS 2, on loopback, read by another DDS than ours
#   ./test.sh --asan             the same under the address and undefined-behaviour sanitizers
#   ./test.sh --valgrind         the same under valgrind, without the long sweeps
#   ./test.sh --soak [NUMBER]    disconnects streaming cameras NUMBER times (2000), under the sanitizers
#   ./test.sh --fuzz [SECONDS]   fuzzes each target for SECONDS (60); findings go to build/fuzz/findings
#   ./test.sh --gcc11            every test, built with g++ 11, which older systems have
#   ./test.sh --lint             clang-tidy and cppcheck
#   ./test.sh --mutations        breaks the library in 44 places, one at a time, and looks whether the tests notice
#   ./test.sh --bench            times the library against OpenCV; runs no tests
#   ./test.sh --packages         takes the Debian packages through a fresh Debian, from install to purge; with --arm64
#                                after it, those for 64-bit Arm under qemu-user
#   ./test.sh --arm64            the unit tests, built for 64-bit Arm, under qemu-user
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
source tools/setup.sh

build_packages=(g++ cmake make pkg-config libusb-1.0-0-dev libhwy-dev libgtest-dev umockdev libumockdev-dev
    libcli11-dev libarchive-dev libpng-dev nlohmann-json3-dev usbutils jq abigail-tools doxygen
    help2man python3)

# build PRESET: configures and builds everything.
build() {
    install_packages "${build_packages[@]}"
    build_preset "$1"
}

# check PRESET: builds and runs every test of it.
check() {
    build "$1"
    ctest --preset "$1" -j "$(nproc)"
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
--ros)
    build_packages+=(zlib1g-dev cyclonedds-dev libfastrtps-dev libfastcdr-dev tshark)
    install_packages "${build_packages[@]}"
    build_preset dev --target vqd worker_probe ros_test ros_receiver vqd-ros 9_dds_subscriber
    ctest --preset dev -L ros
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
--bench)
    install_packages g++ cmake make pkg-config libusb-1.0-0-dev libhwy-dev umockdev libumockdev-dev libbenchmark-dev \
        libopencv-dev
    build_preset bench
    exec build/bench/vqd_bench
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
