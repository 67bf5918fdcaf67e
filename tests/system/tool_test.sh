#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Drives the tool as people do, on virtual cameras: choice of a camera, exit codes, signals, what is left behind.
#   tool_test.sh VQD_BINARY
source "$(dirname "$0")/tool_lib.sh"
manual=$tests/../../docs/vqd.md

# Data on standard output and nothing else there; the library's lines on standard error.
ends 0 "$vqd" --version
shows out 'vqd 2\.4\.0'
ends 0 "$vqd" sim VQD-HT120 VQD-RS110 -- "$vqd" list
mentions err VQD_Library_Ver
sort -k3 out >sorted
place='[1-9][0-9]*-[1-9][0-9]*'
shows sorted "[01]  VQD-HT120   24061100000001  03a4:871a  $place" "[01]  VQD-RS110   24061100000002  03a4:8720  $place"

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

# No camera, no such camera, one too many
ends 3 env ASAN_OPTIONS=verify_asan_link_order=0 umockdev-run -- "$vqd" list
mentions err "no camera found"
ends 3 "$vqd" sim -- "$vqd" grab -o none -c 7
[[ ! -e none ]] || fail "a directory for no pictures"
# shellcheck disable=SC2046
ends 1 "$vqd" sim $(printf 'VQD-HT120 %.0s' {1..11}) -- "$vqd" list
mentions err "11 cameras"

# A camera that this user may not open
carry
# shellcheck disable=SC2016
ends 4 "$vqd" sim -- bash -c 'chmod -R a+rwX "$UMOCKDEV_DIR"; chmod 000 "$UMOCKDEV_DIR"/dev/bus/usb/001/002; exec "${@:1}"' \
    sh "${unprivileged[@]}" list
mentions err "/dev/bus/usb/001/002 can not be opened: Permission denied"

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
ends 1 "$vqd" sim -- sh -c '"$0" grab -n 1000000 --format raw -o series & sleep 3; kill $!; wait $!' "$vqd"
mentions err "interrupted; [0-9]* of 1000000 frames are complete"
[[ $(find series -name '*.raw' -size 153600c | wc -l) -eq $(find series -type f | wc -l) ]] || fail "an incomplete frame"
"$vqd" sim -- "$vqd" grab -n 1000000 -o stopped >out 2>err &
sleep 2
kill -TERM $!
wait $!
[[ $? -eq 130 ]] || fail "SIGTERM to the simulator"

# Man pages and completion speak of every command, and so does the manual.
ends 0 "$vqd" reference reference
while read -r command; do
    [[ -s reference/vqd-$command.1 ]] || fail "no man page of $command"
    grep -q "^## $command\$" "$manual" || fail "$manual does not describe $command"
done < <("$vqd" --help | sed '1,/Subcommands:/d' | sed -En 's/^  ([a-z]+) .*/\1/p')
complete_words() {
    bash -c 'source reference/vqd.bash; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _vqd 2>/dev/null; echo "${COMPREPLY[@]}"' vqd "$@"
}
[[ $(complete_words vqd ee) == eeprom ]] || fail "completion of a command"
[[ $(complete_words vqd eeprom re) == restore ]] || fail "completion of a sub-command"
[[ $(complete_words vqd grab --format p) == 'png pgm' ]] || fail "completion of a value"
[[ $(complete_words vqd set off) == offset= ]] || fail "completion of a setting"

finish
