#!/bin/sh
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Writes vqd.bash and, where help2man is given, a compressed man page for the tool and for each of its commands, such as
# vqd-eeprom-backup.1.gz.
#   make_reference.sh VQD_BINARY DIRECTORY [HELP2MAN]
set -eu
mkdir -p "$2"
directory=$(cd "$2" && pwd)
help2man=${3:-}
cd "$(dirname "$1")" # help2man takes a command with its words as one text, where a folder's name may hold no space
vqd=./$(basename "$1")

rm -f "$directory"/*.1 "$directory"/*.1.gz # of commands that are gone
pages() { # DESCRIPTION [COMMAND...]: of the command and of those below it
    text=$1
    shift
    name=$(echo vqd "$@" | tr ' ' -)
    "$help2man" --no-info --section 1 --name "$text" --version-string "$name ${version#* }" --output "$directory/$name.1" \
        "$vqd${*:+ $*}"
    "$vqd" "$@" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\)  *\(.*\)/\1 \2/p' | while read -r command text; do
        pages "$text" "$@" "$command"
    done
}
if [ -n "$help2man" ]; then
    version=$("$vqd" --version)
    pages "USB time-of-flight depth cameras from the command line"
    gzip -9n "$directory"/*.1
fi
"$vqd" completion >"$directory/vqd.bash.part"
mv "$directory/vqd.bash.part" "$directory/vqd.bash" # last: the build takes it as the sign that all is there
