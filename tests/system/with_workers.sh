#!/bin/sh
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Starts a worker for each of the virtual cameras 1 to N, with sockets in the current folder, and runs a program with
# them. Ends as the program does. To be run under vqd sim.
#   with_workers.sh VQD_BINARY N PROGRAM...
set -eu
vqd=$1 cameras=$2
shift 2
export VQD_RUNTIME_DIR="$PWD"
workers=
for camera in $(seq "$cameras"); do
    "$vqd" worker -q -c "2406110000000$camera" &
    workers="$workers $!"
done
code=0
"$@" || code=$?
# shellcheck disable=SC2086 # numbers
kill $workers
wait
exit $code
