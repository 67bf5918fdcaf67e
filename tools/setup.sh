# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#
# Sourced by demo.sh, test.sh and what they run: installs the Debian packages that they need, and builds. Says nothing of
# packages when all are there.

# Runs a command with its output in a file and shows how far it is: "[ 12%]" of a build, "dlstatus:1:12.3:" and "pmstatus:..."
# of apt-get. On a terminal the line changes, elsewhere there is one every ten per cent. When the command fails, shows the
# end of its output and what failed.
#   follow WHAT LOG COMMAND [ARGUMENTS...]
follow() {
    local what=$1 log=$2 line now shown=-1 code=0
    shift 2
    "$@" 2>&1 </dev/null | while IFS= read -r line; do
        printf '%s\n' "$line"
        [[ $line =~ ^\[\ *([0-9]+)%\] || $line =~ ^(dl|pm)status:[^:]*:([0-9]+) ]] || continue
        case ${BASH_REMATCH[1]} in
        dl) now=$((BASH_REMATCH[2] / 2)) ;; # downloading is the first half
        pm) now=$((50 + BASH_REMATCH[2] / 2)) ;;
        *) now=${BASH_REMATCH[1]} ;;
        esac
        if [[ -t 2 ]]; then
            printf '\r%s: %3d %%' "$what" "$now" >&2
            shown=$now
        elif [[ $((now / 10)) -gt $((shown / 10)) || $shown -lt 0 ]]; then
            echo "$what: $now %" >&2
            shown=$now
        fi
    done >"$log" || code=$?
    [[ ! -t 2 ]] || printf '\r\033[K' >&2
    [[ $code -ne 0 ]] || return 0
    tail -n 40 "$log" >&2
    echo "$what failed (exit code $code)." >&2
    return "$code"
}

# Configures and builds a preset; its output is in configure.log and build.log of its folder.
#   build_preset PRESET [BUILD ARGUMENTS...]
build_preset() {
    local preset=$1
    shift
    mkdir -p "build/$preset"
    follow "Configuring build/$preset" "build/$preset/configure.log" cmake --preset "$preset" || return
    sed -n 's/^-- \(.* is missing\)$/\1/p' "build/$preset/configure.log" # what is off, and why
    NINJA_STATUS='[%p] ' follow "Building build/$preset" "build/$preset/build.log" \
        cmake --build --preset "$preset" -j "$(nproc)" "$@"
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
    follow "Updating the list of packages" "$log" apt_get update &&
        follow "Installing packages" "$log" apt_get install -y --no-install-recommends -o APT::Status-Fd=1 "${missing[@]}" ||
        code=$?
    rm -f "$log"
    return "$code"
}
