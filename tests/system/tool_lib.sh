# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#
# Sourced by the tests of the tool, with the binary as $1. It gives them a folder of their own, and checks that go on after a
# failure.
set -u
vqd=$(readlink -f "$1")
tests=$(dirname "$(readlink -f "$0")") # the folder of the test
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export TMPDIR=$work/tmp # for the buses
export XDG_STATE_HOME=$work/state # for the EEPROM backups
mkdir "$TMPDIR"
cd "$work" || exit 1
failures=0

fail() {
    echo "FAILED: $*"
    head -q -c 4000 out err 2>/dev/null | sed 's/^/    /' # a script of the test may be writing to out, which then never ends
    failures=$((failures + 1))
}

# on_an_empty_bus WORDS...: runs the tool. A variable passes its path, because umockdev-run accepts only ASCII words.
on_an_empty_bus() {
    # shellcheck disable=SC2016
    vqd=$vqd ASAN_OPTIONS=verify_asan_link_order=0 umockdev-run -- sh -c 'exec "$vqd" "$@"' sh "$@"
}

# ends CODE COMMAND...: its output is in ./out and ./err afterwards
ends() {
    local expected=$1 code=0
    shift
    "$@" >out 2>err </dev/null || code=$?
    [[ $code -eq $expected ]] || fail "exit code $code, not $expected: $*"
}

# shows FILE LINE...: the file is exactly these lines, each a regular expression
shows() {
    local file=$1 line=0 pattern
    shift
    [[ $(wc -l <"$file") -eq $# ]] || fail "$file has not $# lines"
    for pattern; do
        line=$((line + 1))
        sed -n "${line}p" "$file" | grep -Eqx -- "$pattern" || fail "$file, line $line is not $pattern"
    done
}

mentions() {
    grep -q -- "$2" "$1" || fail "$1 does not mention $2"
}

# png FILE BITS COLOURTYPE: 320 x 240 and complete
png() {
    local head
    head=$(od -An -v -tx1 -N 26 "$1" | tr -d ' \n')
    local expected="89504e470d0a1a0a0000000d4948445200000140000000f0$2$3"
    [[ $head == "$expected" ]] || fail "$1 starts with $head"
    tail -c 8 "$1" | head -c 4 | grep -q IEND || fail "$1 is cut short"
}

# json FILE FILTER: the filter of jq is true
json() {
    jq -e "$2" "$1" >/dev/null || fail "$1 is not: $2"
}

# finish: to be called last
finish() {
    [[ -z $(ls -A "$TMPDIR") ]] || fail "left behind: $(ls -A "$TMPDIR")"
    [[ $failures -eq 0 ]] && echo "all passed"
    exit $((failures > 0))
}
