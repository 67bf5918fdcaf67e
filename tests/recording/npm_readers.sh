# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#
# Sourced by tests whose readers come from npm, in the versions of package-lock.json.

# install_readers SCRIPT: with what this script imports, into the current folder, which is a temporary one
install_readers() {
    cp "$(dirname "${BASH_SOURCE[0]}")"/{package.json,package-lock.json} "$1" .
    npm ci --ignore-scripts --no-audit --no-fund --cache npm-cache >npm.log 2>&1 && return
    tail -n 20 npm.log >&2
    echo "The readers cannot be installed; they come from npm." >&2
    return 1
}
