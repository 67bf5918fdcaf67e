#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Files that the tool writes (pictures, series, point clouds, tables), and what it does where it cannot.
#   tool_files_test.sh VQD_BINARY
source "$(dirname "$0")/tool_lib.sh"

# The frames of a camera without host corrections show an even scene unchanged. Old pictures are replaced.
mkdir -p pictures/new
echo old >pictures/new/depth.png
ends 0 "$vqd" sim --scene plane --fps 100 VQD-HT120 VQD-HT110 -- \
    "$vqd" grab -n 3 -o pictures/new -c 24061100000002 -s undistortion=2 -s flip-horizontal=1 --force
shows out 'camera [01]: VQD-HT110, serial 24061100000002, USB 03a4:8718' \
    'sensor temperature [234][0-9]\.[0-9], logic version 2\.5' '3 frames, [0-9]+\.[0-9] frames per second' \
    'depth at the centre (149|150)[0-9] mm' 'pictures in pictures/new: .*'
png pictures/new/depth.png 08 02
png pictures/new/amplitude.png 08 00
png pictures/new/depth16.png 10 00
png pictures/new/amplitude16.png 10 00
[[ $(ls -A pictures/new | wc -l) -eq 4 ]] || fail "more than four pictures: $(ls -A pictures/new)"

# The point cloud has as many points as its header says, of 16 bytes each.
ends 0 "$vqd" sim -- "$vqd" grab -o cloud --cloud
mentions err "true to scale, with undistortion=1 orthogonal=1; -s overrides"
points=$(sed -n 's/^element vertex //p;/^end_header/q' cloud/points.ply)
header=$(sed '/^end_header/q' cloud/points.ply | wc -c)
[[ $(stat -c %s cloud/points.ply) -eq $((header + 16 * points)) && $points -gt 50000 ]] || fail "points.ply: $points points"
head -c 26 cloud/points.png | od -An -tx1 | tr -d ' \n' | grep -q 494844520000028000 || fail "points.png"

# A flat wall is flat without any setting, its right side is farther, and y points down, or up with --axes camera.
ends 0 "$vqd" sim --scene wall -- sh -c '"$0" cloud wall.ply && "$0" cloud up.ply -n 1 --axes camera -s undistortion=0' "$vqd"
for file_top in wall.ply=-1 up.ply=1; do
    file=${file_top%=*}
    tail -c +$(($(sed '/^end_header/q' "$file" | wc -c) + 1)) "$file" | od -An -v -w16 -tf4 | awk -v file="$file" -v top="${file_top#*=}" '
        NR == 1 { upright = $2 * top > 0 }
        { x += $1; y += $2; z += $3; xx += $1 * $1; xy += $1 * $2; yy += $2 * $2; xz += $1 * $3; yz += $2 * $3; zz += $3 * $3 }
        END { # the plane z = a x + b y + c that fits best
            x /= NR; y /= NR; z /= NR
            xx = xx / NR - x * x; yy = yy / NR - y * y; zz = zz / NR - z * z
            xy = xy / NR - x * y; xz = xz / NR - x * z; yz = yz / NR - y * z
            a = (xz * yy - yz * xy) / (xx * yy - xy * xy); b = (yz * xx - xz * xy) / (xx * yy - xy * xy)
            rms = 1000 * sqrt((zz - a * xz - b * yz) / (1 + a * a + b * b))
            print file, rms, a
            exit !(upright && (file != "wall.ply" || (rms <= 9 && a > 0.19 && a < 0.21)))
        }' >out ||
        fail "the wall is bent, or on its head"
done

# A series keeps every frame, in every format. Nothing is replaced without --force.
ends 0 "$vqd" sim --fps 0 -- bash -ec 'for format in png pgm npy raw csv; do
        "$0" grab -n 2 --format $format --cloud pcd -o series-$format
    done; "$0" cloud mean.pcd -n 3; "$0" cloud mean --format ply -n 1' "$vqd"
for plane in depth amplitude; do
    [[ $(head -c 16 series-pgm/$plane-000002.pgm) == $'P5\n320 240\n65535' ]] || fail "head of a pgm file"
    [[ $(head -c 10 series-npy/$plane-000002.npy | od -An -tx1) == ' 93 4e 55 4d 50 59 01 00 76 00' ]] || fail "head of an npy file"
    [[ $(head -c 128 series-npy/$plane-000002.npy | tail -c +11) == "{'descr': '<u2', 'fortran_order': False, 'shape': (240, 320), }"*' ' ]] ||
        fail "header of an npy file"
    [[ $(stat -c %s series-npy/$plane-000002.npy) -eq $((128 + 153600)) ]] || fail "size of an npy file"
    [[ $(stat -c %s series-pgm/$plane-000002.pgm) -eq $((17 + 153600)) ]] || fail "size of a pgm file"
    [[ $(stat -c %s series-raw/$plane-000002.raw) -eq 153600 ]] || fail "size of a raw file"
    [[ $(wc -l <series-csv/$plane-000002.csv) -eq 240 ]] || fail "rows of a csv file"
    png series-png/$plane-000002.png 10 00
done
for file in series-raw/points-000001.pcd mean.pcd; do
    points=$(sed -n 's/^POINTS //p;/^DATA/q' $file)
    header=$(sed '/^DATA binary/q' $file | wc -c)
    [[ $(stat -c %s $file) -eq $((header + 16 * points)) && $points -eq 76800 ]] || fail "$file: $points points"
    grep -aqx 'WIDTH 320' $file && grep -aqx 'HEIGHT 240' $file || fail "$file is not organised"
done
mentions mean 'element vertex'
for words in 'grab -o cloud' 'grab --format raw -o series-raw' 'cloud mean.pcd' 'dump -o mean' 'table backup orthogonal mean' \
    'eeprom backup mean'; do
    # shellcheck disable=SC2086
    ends 1 "$vqd" sim -- "$vqd" $words
    mentions err '--force replaces it'
done
ends 2 "$vqd" cloud mean.obj

# A directory holds one series: any file of it makes a new one fail, and --force replaces all of it and nothing else.
touch series-raw/depth-000007.png series-raw/depth-7.raw
rm series-raw/*-00000[12].*
ends 1 "$vqd" sim -- "$vqd" grab --format raw -o series-raw
mentions err 'depth-000007.png exists; --force replaces it'
ends 0 "$vqd" sim -- "$vqd" grab -n 2 --format raw -o series-raw --force
[[ $(ls series-raw | tr '\n' ' ') == 'amplitude-000001.raw amplitude-000002.raw depth-000001.raw depth-000002.raw depth-7.raw frames.csv ' ]] ||
    fail "in the series: $(ls series-raw)"
shows series-raw/frames.csv 'file,frame,host_time,stamp_ms,reopened,lost_estimate' 'depth-000001.raw,1,[0-9]+\.[0-9]{6},[0-9]+,0,0' \
    'depth-000002.raw,2,[0-9.]+,[0-9]+,0,[0-9]+'

# Tables are backed up, changed and restored. Their size is checked before anything is sent.
ends 0 "$vqd" sim -- sh -c '"$0" table backup orthogonal o.bin && printf "\001\002" | dd of=o.bin conv=notrunc status=none &&
    "$0" table restore orthogonal o.bin -y && "$0" table backup orthogonal o2.bin && cmp o.bin o2.bin &&
    "$0" table backup orthogonal o.csv --csv' "$vqd"
mentions out "o.bin: verified"
[[ $(cat "$XDG_STATE_HOME"/vqd/orthogonal-*.bin | wc -c) -eq 4096 ]] || fail "the table before is not backed up"
[[ $(stat -c %s o2.bin) -eq 4096 && $(head -c 7 o.csv) == 0.0258, ]] || fail "the orthogonal table"
head -c 9600 /dev/urandom >f.bin
ends 0 "$vqd" sim -- "$vqd" table restore fppn-4x4 f.bin -y
mentions out "not verified: this libusb refuses control transfers above 4096 bytes"
mentions err "is not backed up.*--direct can"
ends 1 "$vqd" sim -- "$vqd" table backup fppn-4x4 zeros.bin
[[ ! -e zeros.bin ]] || fail "a table that was not read"

# Past libusb, every table is read from where it was written, even while another descriptor streams, and a restore is
# verified.
for table in wiggling fppn fppn-4x4 fppn-5x5; do
    bytes=$("$vqd" table --help | sed -n "s/^ *$table, \([0-9]*\) bytes.*/\1/p")
    head -c "$bytes" /dev/urandom >$table.in
done
ends 0 "$vqd" sim --table wiggling=wiggling.in --table fppn=fppn.in --table fppn-4x4=fppn-4x4.in -- sh -c '
    "$0" stats --for 2 --json >stats.json & sleep 0.3
    for table in wiggling fppn fppn-4x4; do "$0" table backup $table $table.out --direct || exit; cmp $table.in $table.out || exit; done
    wait $! && "$0" table restore fppn-5x5 fppn-5x5.in -y --direct' "$vqd"
mentions out "fppn-5x5.in: verified"
json <(tail -n 1 stats.json) '.frames > 10 and .reopens == 0 and .["transfer-errors"] == 0'
ends 0 "$vqd" sim --table fppn-4x4=fppn-4x4.in -- "$vqd" table backup fppn-4x4 direct.csv --csv --direct
[[ $(head -c 12 direct.csv | cut -d, -f1) -eq $((0x$(head -c 2 fppn-4x4.in | od -An -tx1 | tr -d ' \n'))) ]] || fail "the first value"
ends 1 "$vqd" sim --fault "2nd table read answers 4000; 4th table read silent" -- sh -c '
    ! "$0" table backup wiggling-b cut --direct || exit 9; "$0" table backup wiggling-b cut --direct' "$vqd"
mentions err "4000 bytes came"
mentions err "no answer within a second"
[[ ! -e cut ]] || fail "a table that was cut short"
ends 2 "$vqd" table backup fppn x --direct --csv
ends 2 "$vqd" table restore wiggling o.bin
mentions err "3840 bytes"
ends 1 "$vqd" table restore wiggling no-such-file
ends 1 "$vqd" sim --fault "2nd table read answers 4000" -- "$vqd" table backup orthogonal short.bin
[[ ! -e short.bin ]] || fail "a table that was cut short"
for words in 'table' 'table backup' 'table backup nothing x' 'table backup fppn x' 'table restore orthogonal'; do
    # shellcheck disable=SC2086
    ends 2 "$vqd" $words
done

# When there is nowhere to write, the tool says so before it grabs, which would print two lines more. Without room it leaves
# no half file.
ends 1 "$vqd" sim -- "$vqd" grab -o err/below
mentions err "err/below: Not a directory"
[[ $(grep -vc '^vqd:' err) -eq 2 ]] || fail "grabbed before looking at the directory"
ends 1 "$vqd" sim -- sh -c 'trap "" XFSZ; ulimit -f 8; exec "$0" grab -o full' "$vqd"
mentions err "depth.png: File too large"
[[ -d full && -z $(ls -A full) ]] || fail "left in the full directory: $(ls -A full)"
ends 1 "$vqd" sim -- "$vqd" cloud /proc/nowhere.ply
mentions err "/proc/nowhere.ply: "
[[ $(grep -vc '^vqd:' err) -eq 0 ]] || fail "listed cameras before looking at the file"

# --force replaces only files; a link still names its file.
mkfifo pipe
ends 1 "$vqd" sim -- "$vqd" dump -o pipe --force
mentions err "pipe exists and is not a regular file"
[[ -p pipe ]] || fail "the pipe is gone"
echo old >named
ln -s named link
ends 0 "$vqd" sim -- "$vqd" dump -o link --force
[[ -L link ]] && grep -q vqd.dump named || fail "the link is replaced"
ends 2 "$vqd" sim VQD-HT120 VQD-HT110 -- "$vqd" grab -o either -s offset=5
mentions err "choose one with -c"
# shellcheck disable=SC2016
ends 1 "$vqd" sim -- bash -c '"$0" get | true; exit ${PIPESTATUS[0]}' "$vqd"
mentions err "standard output: Broken pipe"
ends 1 sh -c '"$0" sim -- "$0" list >/dev/full' "$vqd"
mentions err "standard output: No space left"

finish
