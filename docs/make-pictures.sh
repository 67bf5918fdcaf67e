#!/usr/bin/env bash
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Makes docs/pictures/*.png again, from virtual cameras. It needs what demo.sh needs, pngquant, python3-opencv, and
# chromium-headless-shell for the pictures of pages.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

build=build/release
cmake --preset release
cmake --build --preset release -j "$(nproc)"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

g++ -std=c++20 -O2 -Wall -Wextra -Iinclude -I. -Isim docs/make-pictures.cpp tools/vqd/pictures.cpp \
    -o "$work/make-pictures" "$build/sim/libvqd_sim_camera.a" "$build/libVQD_API.so" -Wl,-rpath,"$PWD/$build" -lpng

root=$PWD
for scene in room wall; do
    (cd "$work" && "$root/$build/vqd" sim VQD-HT120 --scene "$scene" --fps 0 -- ./make-pictures "$scene" >/dev/null)
done
"$build/vqd" sim VQD-HT120 --fps 0 -- "$build/vqd" grab -q -n 30 -o "$work/demo" --cloud \
    -s undistortion=1 -s orthogonal=1 -s remove-edge=1
for picture in depth amplitude points; do
    mv "$work/demo/$picture.png" "$work/demo-$picture.png"
done

# A board all over the image, as python/tests/calibration.py holds it, before a camera with another lens than its EEPROM says.
PYTHONPATH=python:python/tests VQD_LIBRARY=$build/libVQD_API.so VQD_TOOL=$build/vqd python3 - "$work" <<'END'
import pathlib, sys
from calibration import BOARD, FRAMES_PER_POSE, LENS, all_over_the_image, board_file, calibrate, lens_option
work = pathlib.Path(sys.argv[1])
scene = board_file(work / "board.json", all_over_the_image(1, 30))
options = ["VQD-HT120", "--scene", scene, "--lens", lens_option(LENS)]
calibrate(options, "lens", *BOARD, "-n", str(30 * FRAMES_PER_POSE), "-o", str(work / "lens"))
END
mv "$work/lens/views.png" "$work/calibrate-lens.png"

mkdir "$work/page"
tests/page/page_test.py "$build/vqd" --pages "$work/page"

# It ends with 7, because one of the requirements is not met.
"$build/vqd" sim VQD-HT110 --scene wall:1500,25 --sensor fixed-pattern=2,bias=-6,drift=0.005,fill=0.98 -- "$build/vqd" quality -q -n 360 \
    --distance 1500 --region middle=120,80,80,80 --region corner=8,8,72,56 --require 'noise<8mm' --require 'bias<10mm' \
    --require 'middle:flatness<1mm' --html "$work/quality.html" || [[ $? -eq 7 ]]
chromium-headless-shell --no-sandbox --disable-gpu --hide-scrollbars --window-size=1400,1660 --screenshot="$work/page/quality.png" \
    "file://$work/quality.html"
pngquant --force --nofs --strip --ext .png 128 "$work"/page/*.png
mv "$work"/page/*.png docs/pictures/

# Noise makes these files large, so they get fewer colours.
pngquant --force --nofs --strip --ext .png 48 "$work"/*.png
mv "$work"/*.png docs/pictures/
ls -l docs/pictures
