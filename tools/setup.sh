# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#
# Sourced by demo.sh and test.sh: installs the Debian packages that they need. Says nothing when all are there.

# Runs a command with its output in a file; when it fails, shows the end of that and what failed.
#   quietly WHAT LOG COMMAND [ARGUMENTS...]
quietly() {
    local what=$1 log=$2
    shift 2
    "$@" >"$log" 2>&1 </dev/null && return
    local code=$?
    tail -n 40 "$log" >&2
    echo "$what failed (exit code $code)." >&2
    return "$code"
}

# Runs apt-get, as root or with sudo.
apt_get() {
    local root=(env)
    [[ $EUID -eq 0 ]] || root=(sudo env)
    "${root[@]}" DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=120 "$@"
}

install_packages() {
    local package missing=()
    for package; do
        dpkg-query -W -f '${db:Status-Status}\n' "$package" 2>/dev/null | grep -x installed >/dev/null ||
            missing+=("$package")
    done
    [[ ${#missing[@]} -gt 0 ]] || return 0
    if ! command -v apt-get >/dev/null; then
        echo "Missing, and there is no apt-get to install them: ${missing[*]}" >&2
        return 1
    fi
    if [[ $EUID -ne 0 ]] && ! command -v sudo >/dev/null; then
        echo "Missing: ${missing[*]}. Run this as root, or install them or sudo first." >&2
        return 1
    fi
    echo "Installing ${missing[*]}"
    [[ $EUID -eq 0 ]] || sudo -v || { echo "sudo refused to install packages." >&2; return 1; }
    local log code=0
    log=$(mktemp)
    quietly "apt-get update" "$log" apt_get update &&
        quietly "Installing packages" "$log" apt_get install -y --no-install-recommends "${missing[@]}" || code=$?
    rm -f "$log"
    return "$code"
}
