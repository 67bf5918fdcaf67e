#!/bin/sh
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Runs a program on virtual cameras, in a directory of its own, and checks that it prints a certain line.
#   example_test.sh VQD_BINARY LINE [CAMERAS AND OPTIONS OF VQD SIM...] -- COMMAND...
set -eu
vqd=$1 line=$2
shift 2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
"$vqd" sim --scene plane "$@" >out
cat out
grep -Eqx -- "$line" out
