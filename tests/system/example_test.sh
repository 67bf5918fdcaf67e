#!/bin/sh
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Runs a program on virtual cameras, in a directory of its own, and looks for a line of its output.
#   example_test.sh VQD_BINARY "CAMERAS AND OPTIONS, QUOTED AS FOR A SHELL" LINE COMMAND...
set -eu
vqd=$1 cameras=$2 line=$3
shift 3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
eval '"$vqd" sim --scene plane '"$cameras"' -- "$@"' >out
cat out
grep -Eqx -- "$line" out
