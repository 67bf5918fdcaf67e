#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Builds and runs every test; installs the Debian packages that they need.
#   ./test.sh          the tests
#   ./test.sh --asan   the same under the address and undefined-behaviour sanitizers
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
source tools/setup.sh

preset=dev
case "${1:-}" in
'') ;;
--asan) preset=asan ;;
*)
    sed -n 's/^#   //p' "$0" >&2
    exit 2
    ;;
esac

install_packages g++ cmake make pkg-config libusb-1.0-0-dev libgtest-dev umockdev libumockdev-dev libcli11-dev \
    libarchive-dev libpng-dev nlohmann-json3-dev usbutils jq
cmake --preset "$preset"
cmake --build --preset "$preset" -j "$(nproc)"
ctest --preset "$preset" -j "$(nproc)"
