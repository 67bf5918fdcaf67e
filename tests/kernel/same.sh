# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#
# Sourced: commands that end with the same code and print the same on a kernel as on the mocked bus. The host runs them on
# the mocked bus while the guest boots; in the guest each is a check.

declare -A same_options same_command

# same NAME WHAT OPTIONS COMMAND: the options of vqd sim, and lines for bash
same() {
    same_options[$1]=$3
    same_command[$1]=$4
    check "$1" "$2: as on the mocked bus"
    eval "$1() { compare_with_mock $1; }"
}

# Runs a command and prints its exit code and all that it says, but for where the cameras are and when frames came.
#   transcript NAME OPTIONS_OF_THE_BUS
transcript() {
    local code=0 options
    eval "options=(${same_options[$1]})"
    # shellcheck disable=SC2086 # none or one
    vqd sim $2 "${options[@]}" -- bash -c "${same_command[$1]}" >transcript.out 2>transcript.err </dev/null || code=$?
    echo "exit code $code"
    normalised transcript.out
    echo "standard error:"
    normalised transcript.err
}

# Where the cameras are, when something came, and where a backup is, differ from run to run.
normalised() {
    sed -E 's/\b[0-9]+-[0-9]+\b */PORT /g; s/\b[0-9]{3}:[0-9]{3}\b/BUS:ADDRESS/g; s/("bus"|"address"): [0-9]+/\1: N/
        s/\b[0-9]+\.[0-9] s\b/N s/; s/is in .*eeprom-.*\.bin/is in FILE/' "$1"
}

compare_with_mock() {
    local expected=$bed/out/mock/$1
    transcript "$1" --kernel >transcript
    waits_for 60 test -e "$expected" || fail "the mocked bus has no transcript"
    diff "$expected" transcript >difference || fail "not as on the mocked bus: $(cat difference)"
}

# Writes the transcripts on the mocked bus into a folder; several at a time, as each has a bus of its own.
#   transcripts_of_mock FOLDER NAME...
transcripts_of_mock() {
    local folder=$1 name work
    shift
    for name; do
        [[ -n ${same_command[$name]:-} ]] || continue
        while (($(jobs -rp | wc -l) >= 4)); do wait -n; done
        (
            work=$(mktemp -d)
            cd "$work"
            export PATH=$build:$build/examples:$PATH
            export XDG_STATE_HOME=$work/state
            transcript "$name" '' >"$folder/$name.part"
            mv "$folder/$name.part" "$folder/$name" # only a complete one
            rm -r "$work"
        ) &
    done
    wait
}
