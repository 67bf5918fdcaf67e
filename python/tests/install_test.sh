#!/bin/sh
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Installs the package by pip into a virtual environment, without a network, and uses it there with its types.
#   install_test.sh PYTHON SOURCE
set -eu
python=$1 source=$2
"$python" -c 'import ensurepip, setuptools, wheel' 2>/dev/null || {
    echo "Skipped: needs python3-venv, python3-setuptools and python3-wheel."
    exit 77
}
unset PYTHONPATH LD_PRELOAD # with which the environment of the tests finds the package without an installation
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp -r "$source" "$work/python" # pip leaves files beside what it builds
"$python" -m venv --system-site-packages "$work/venv"
"$work/venv/bin/pip" install -q --no-index --no-build-isolation "$work/python"
cd /
"$work/venv/bin/vqd-calibrate" --help >/dev/null
"$work/venv/bin/python" - "$work/venv" <<'END'
import importlib.metadata, pathlib, sys
import vqd
folder = pathlib.Path(vqd.__file__).parent
assert str(folder).startswith(sys.argv[1]) and (folder / "py.typed").exists()
assert importlib.metadata.version("vqd") == vqd.__version__
assert not list(folder.parent.glob("tests"))
END
