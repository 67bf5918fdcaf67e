#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Cross-builds for 64-bit Arm and runs the unit tests under qemu-user. Run by ./test.sh --arm64.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source tools/setup.sh
source tests/debian.sh
source tests/arm64_sysroot.sh
build_preset arm64
ctest --preset arm64 -j "$(nproc)"
