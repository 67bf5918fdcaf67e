#!/bin/sh
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Writes vqd.bash and, where help2man is given, a man page for the tool and for each of its commands.
#   make_reference.sh VQD_BINARY DIRECTORY [HELP2MAN]
set -eu
vqd=$1
directory=$2
help2man=${3:-}

mkdir -p "$directory"
rm -f "$directory"/*.1 # of commands that are gone
if [ -n "$help2man" ]; then
    version=$("$vqd" --version)
    page() { # NAME DESCRIPTION COMMAND
        "$help2man" --no-info --section 1 --name "$2" --version-string "$1 ${version#* }" --output "$directory/$1.1" "$3"
    }
    page vqd "USB time-of-flight depth cameras from the command line" "$vqd"
    "$vqd" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\)  *\(.*\)/\1 \2/p' | while read -r command text; do
        page "vqd-$command" "$text" "$vqd $command"
    done
fi
"$vqd" completion >"$directory/vqd.bash.part"
mv "$directory/vqd.bash.part" "$directory/vqd.bash" # last: the build takes it as the sign that all is there
