#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Drives the tool as people do, on virtual cameras: output, pictures, exit codes, signals, and what is left behind.
#   tool_test.sh VQD_BINARY
set -u
vqd=$(readlink -f "$1")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export TMPDIR=$work/tmp # where buses live
export XDG_STATE_HOME=$work/state # where EEPROM backups go
mkdir "$TMPDIR"
cd "$work" || exit 1
failures=0

fail() {
    echo "FAILED: $*"
    sed 's/^/    /' out err 2>/dev/null
    failures=$((failures + 1))
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

# Data on standard output and nothing else there; the library's lines on standard error.
ends 0 "$vqd" --version
shows out 'vqd 2\.4\.0'
ends 0 "$vqd" sim VQD-HT120 VQD-RS110 -- "$vqd" list
mentions err VQD_Library_Ver
sort -k3 out >sorted
shows sorted '[01]  VQD-HT120   24061100000001  03a4:871a  1-2' '[01]  VQD-RS110   24061100000002  03a4:8720  1-3'

# A camera that does not correct on the host passes an even scene through. Old pictures are replaced.
mkdir -p pictures/new
echo old >pictures/new/depth.png
ends 0 "$vqd" sim --scene plane --fps 100 VQD-HT120 VQD-HT110 -- \
    "$vqd" grab -n 3 -o pictures/new -c 24061100000002 --force
shows out 'camera [01]: VQD-HT110, serial 24061100000002, USB 03a4:8718' \
    'sensor temperature [234][0-9]\.[0-9], logic version 2\.5' '3 frames, [0-9]+\.[0-9] frames per second' \
    'depth at the centre (149|150)[0-9] mm' 'pictures in pictures/new: .*'
png pictures/new/depth.png 08 02
png pictures/new/amplitude.png 08 00
png pictures/new/depth16.png 10 00
png pictures/new/amplitude16.png 10 00
[[ $(ls -A pictures/new | wc -l) -eq 4 ]] || fail "more than four pictures: $(ls -A pictures/new)"

# Usage
while read -r mentioned arguments; do
    # shellcheck disable=SC2086 # words on purpose
    ends 2 "$vqd" $arguments
    mentions err "$mentioned"
done <<'END'
subcommand
subcommand  nonsense
--frames    grab -n 0
--frames    grab -n some
PROGRAM     sim VQD-HT120
VQD-WN120   sim VQD-X1 -- true
--scene     sim --scene moon -- true
--fps       sim --fps -1 -- true
at.most.11  sim VQD-HT120 VQD-HT120 VQD-HT120 VQD-HT120 VQD-HT120 VQD-HT120 VQD-HT120 VQD-HT120 VQD-HT120 VQD-HT120 VQD-HT120 VQD-HT120 -- true
END

# Settings: shown, changed for good, refused with the range, two clients one after the other
ends 0 "$vqd" sim -- sh -c '"$0" set offset=-5 depth-range=300,4000 --save -y >&2 && "$0" get offset depth-range' "$vqd"
shows out 'offset            -5' 'depth-range       300,4000'
ends 0 "$vqd" sim VQD-RS110 -- sh -c '"$0" set fps-delay=7 >&2 && "$0" get frequency fps-delay' "$vqd"
shows out 'frequency         10' 'fps-delay         0'
mentions err "not saved"
ends 1 "$vqd" sim -- "$vqd" set offset=256
mentions err "Offset Range: -255 ~ 255"
ends 2 "$vqd" sim VQD-HT120 VQD-HT120 -- "$vqd" set offset=1
ends 0 "$vqd" sim --scene plane -- "$vqd" get temperature logic-version
shows out 'temperature       3[0-9]\.[0-9]*' 'logic-version     2\.5'
ends 0 "$vqd" sim -- "$vqd" grab -o set -s undistortion=2 -s flip-horizontal=1
png set/depth16.png 10 00
for words in 'set offset' 'set offset=' 'set offset=1,2' 'set offset=x' 'set temperature=3' 'set nothing=1' 'get nothing'; do
    # shellcheck disable=SC2086
    ends 2 "$vqd" $words
done

# Calibration: out, changed and in again; what is not a calibration is refused before the camera is touched.
ends 0 "$vqd" sim -- sh -c '"$0" lens >lens.json && sed -i "s/\"cx\": 160.0/\"cx\": 161.3/" lens.json && "$0" lens --set lens.json -y >&2 &&
    "$0" lens' "$vqd"
grep -q '"cx": 161.3' out || fail "the lens is not stored"
cmp -s out lens.json || fail "the calibration does not come back as it was sent"
for text in '' '"depth": {"fx": 1}' '"lens": {}' '"extrinsic": {"rotation": [[1, 0, 0]]}' '"depth": 3'; do
    ends 2 sh -c 'echo "{\"schema\": \"vqd.lens/1\", $1}" | "$0" lens --set - -y' "$vqd" "$text"
done
ends 1 "$vqd" lens --set no-such-file

# Point cloud: as many points as the header says, 16 bytes each
ends 0 "$vqd" sim -- "$vqd" grab -o cloud --cloud -s undistortion=2
points=$(sed -n 's/^element vertex //p;/^end_header/q' cloud/points.ply)
header=$(sed '/^end_header/q' cloud/points.ply | wc -c)
[[ $(stat -c %s cloud/points.ply) -eq $((header + 16 * points)) && $points -gt 50000 ]] || fail "points.ply: $points points"
head -c 26 cloud/points.png | od -An -tx1 | tr -d ' \n' | grep -q 494844520000028000 || fail "points.png"

# Tables: out, changed and in again; sizes are looked at before anything is sent.
ends 0 "$vqd" sim -- sh -c '"$0" table load orthogonal o.bin && printf "\001\002" | dd of=o.bin conv=notrunc status=none &&
    "$0" table save orthogonal o.bin -y && "$0" table load orthogonal o2.bin && cmp o.bin o2.bin &&
    "$0" table load orthogonal o.csv --csv' "$vqd"
mentions out "o.bin: verified"
[[ $(stat -c %s o2.bin) -eq 4096 && $(head -c 7 o.csv) == 0.0258, ]] || fail "the orthogonal table"
head -c 9600 /dev/urandom >f.bin
ends 0 "$vqd" sim -- "$vqd" table save fppn-4x4 f.bin -y
mentions out "not verified: this libusb refuses control transfers above 4096 bytes"
ends 1 "$vqd" sim -- "$vqd" table load fppn-4x4 zeros.bin
[[ ! -e zeros.bin ]] || fail "a table that was not read"
ends 1 "$vqd" table save wiggling o.bin
mentions err "3840 bytes"
ends 1 "$vqd" table save wiggling no-such-file
for words in 'table' 'table load' 'table load nothing x' 'table load fppn x' 'table save orthogonal'; do
    # shellcheck disable=SC2086
    ends 2 "$vqd" $words
done

# No camera, no such camera, one too many
ends 3 env ASAN_OPTIONS=verify_asan_link_order=0 umockdev-run -- "$vqd" list
mentions err "no camera found"
ends 3 "$vqd" sim -- "$vqd" grab -o none -c 7
[[ ! -e none ]] || fail "a directory for no pictures"
# shellcheck disable=SC2046
ends 1 "$vqd" sim $(printf 'VQD-HT120 %.0s' {1..11}) -- "$vqd" list
mentions err "11 cameras"

# Nowhere to write: said before grabbing, which would print two lines more. No room: no half file.
ends 1 "$vqd" sim -- "$vqd" grab -o err/below
mentions err "err/below: Not a directory"
[[ $(grep -vc '^vqd:' err) -eq 2 ]] || fail "grabbed before looking at the directory"
ends 1 "$vqd" sim -- sh -c 'trap "" XFSZ; ulimit -f 8; exec "$0" grab -o full' "$vqd"
mentions err "depth.png: File too large"
[[ -d full && -z $(ls -A full) ]] || fail "left in the full directory: $(ls -A full)"
ends 1 sh -c '"$0" sim -- "$0" list >/dev/full' "$vqd"
mentions err "standard output: No space left"

# The program's own end
ends 7 "$vqd" sim -- sh -c 'exit 7'
ends 137 "$vqd" sim -- sh -c 'kill -KILL $$'
ends 127 "$vqd" sim -- ./no-such-program
mentions err "no-such-program: No such file"
ends 126 "$vqd" sim -- "$work"

# Signals: passed on; grabbing ends in good order and saves nothing.
for signal in INT TERM; do
    ends 130 "$vqd" sim -- sh -c '
        trap "" INT TERM
        env --default-signal=INT,TERM "$0" grab -n 1000000 -o stopped & sleep 2; kill -'$signal' $!; wait $!' "$vqd"
    mentions err "interrupted, nothing saved"
    [[ -z $(ls -A stopped) ]] || fail "saved after an interrupt: $(ls -A stopped)"
done
"$vqd" sim -- "$vqd" grab -n 1000000 -o stopped >out 2>err &
sleep 2
kill -TERM $!
wait $!
[[ $? -eq 130 ]] || fail "SIGTERM to the simulator"

[[ -z $(ls -A "$TMPDIR") ]] || fail "left behind: $(ls -A "$TMPDIR")"
[[ $failures -eq 0 ]] && echo "all passed"
exit $((failures > 0))
