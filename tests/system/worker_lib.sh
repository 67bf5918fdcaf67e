# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#
# Sourced by the tests of workers with the tool as $1 and the probe as $2.
# shellcheck source=tests/system/tool_lib.sh
probe=$(readlink -f "$2")
source "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/tool_lib.sh" "$1"
export VQD_RUNTIME_DIR=$work/run
mkdir -p "$VQD_RUNTIME_DIR"
one=24061100000001
two=24061100000002

socket() { # SERIAL
    echo "$VQD_RUNTIME_DIR/$1.sock"
}

# until_true COMMAND...: for as long as any machine should need
until_true() {
    local i
    for ((i = 0; i < 600; i++)); do
        "$@" >/dev/null 2>&1 && return
        sleep 0.1
    done
    fail "never: $*"
}

# worker SERIAL ARGUMENTS...: starts one as process $started; what it says is in ./said-SERIAL. Each has other descriptors than the one before,
# since programs of the same descriptors share a socket of the bus.
worker() {
    local serial=$1 descriptor
    shift
    first_descriptor=$((${first_descriptor:-4} + 6))
    (
        for ((descriptor = 5; descriptor < first_descriptor; descriptor++)); do
            eval "exec $descriptor</dev/null"
        done
        exec "$vqd" worker -c "$serial" "$@"
    ) 2>"said-$serial" >/dev/null &
    export started=$!
}

# state FILTER: of all workers
state() {
    "$vqd" status --json | jq -e "$1"
}

streams() { # SERIAL
    state ".workers[] | select(.camera.serial == \"$1\" and .state == \"streaming\" and .frames > 0)"
}

# under_sim OPTIONS... -- FUNCTION: runs it with cameras, in a shell that has these functions
under_sim() {
    local options=()
    while [[ $1 != -- ]]; do
        options+=("$1")
        shift
    done
    export vqd probe tests one two
    declare -f >functions
    # shellcheck disable=SC2016 # for the inner shell
    echo 'fail() { echo "FAILED: $*"; failures=$((failures + 1)); }' >>functions # its own output is what fail would show
    # shellcheck disable=SC2016
    "$vqd" sim "${options[@]}" -- bash -uc 'failures=0; source ./functions; "$0"; exit $failures' "$2" >inside 2>&1 </dev/null ||
        { cat inside; fail "$2"; }
}

# ends_soon PROCESS: it ends by itself, and is then waited for
ends_soon() {
    until_true has_ended "$1"
    wait "$1"
}

has_ended() { # PROCESS: of which only its entry is left, if that
    [[ ! -e /proc/$1 || $(cut -d ' ' -f 3 "/proc/$1/stat") == Z ]]
}
