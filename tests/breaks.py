#!/usr/bin/env python3
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Do the tests notice? Breaks a copy of the tree in one line at a time and runs the tests.

  tests/breaks.py listed                      each break of tests/mutations.txt; fails if more than two go unnoticed
  tests/breaks.py page                        the same with tests/page/breaks.txt, for the page and its server
  tests/breaks.py random [-n 300] [-o FILE]   as many random breaks, the same ones each time for the same tree
  tests/breaks.py again FILE [-o FILE]        the breaks of an earlier run; those whose line is gone are left out

A result is a row of fields separated by tabs: file, line, what stands there instead, and the tests that noticed it. The slow tests
are asked only where no quick one notices. A run that is started again goes on where it stopped.
"""
import argparse
import collections
import os
import random
import re
import shutil
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
TREE = ROOT / "build/breaks"
BUILD = TREE / "build"
SEED = 20261124
JOBS = str(os.cpu_count())
# Half of the breaks are in the library. A short run has the same proportions as a long one.
TURNS = [("src/",), ("sim/",), ("src/",), ("tools/", "host/")]
LISTS = {"listed": "tests/mutations.txt", "page": "tests/page/breaks.txt"}
OF_PAGE = "^(page|serve|Access)"
SLOW = "tool|example|install|soak|Usb|fuzz|Simd|FaultSweep|abi|api_docs|clone"

# Strings and characters are not broken.
QUOTED = re.compile(r'"(?:\\.|[^"\\])*"|(?<![0-9A-Fa-f])\'(?:\\.|[^\'\\])+\'')
UNTOUCHED = re.compile(r"^\s*(#|static_assert|template|namespace|using|extern)|\bkill\(")
SWAPS = [
    (" == ", " != "), (" != ", " == "), (" < ", " <= "), (" < ", " >= "), (" <= ", " < "), (" > ", " >= "), (" >= ", " > "),
    (" && ", " || "), (r" \|\| ", " && "), (r"(?<=[( ])!(?=[\w(])", ""), (r"\btrue\b", "false"), (r"\bfalse\b", "true"),
    (r" \+ ", " - "), (" - ", " + "), (r" \* ", " / "), (" / ", " * "), (" & ", " | "), (r" \| ", " & "), (" << ", " >> "),
    (r" \+= ", " -= "), (" -= ", " += "), (r"\+\+", "--"), (r"\bmin\(", "max("), (r"\bmax\(", "min("),
    (r"\b(?:if|while) \((?=[^;]*\)(?: \{)?$)", "if (not "),
]
STATEMENT = re.compile(r"\s+((?:[\w:.\[\]>-]+\(.*\)|[\w:.\[\]>*()-]+ [-+*/|&^]?= .*|return|break|continue);)$")
NUMBER = re.compile(r"(?<![\w.'])([1-9]\d*|0(?!\d))(?=[uUlL]*\b)")

Break = collections.namedtuple("Break", "file old new")


def breaks_of(line):
    """The lines that may replace a line."""
    code = QUOTED.sub(lambda m: "_" * len(m[0]), line).split("//")[0].rstrip()
    if UNTOUCHED.search(code):
        return []
    found = [(m.span(), new) for old, new in SWAPS for m in re.finditer(old, code)]
    found += [(m.span(), str(int(m[0]) + step)) for m in NUMBER.finditer(code) for step in (1, -1)]
    if statement := STATEMENT.match(code):
        found.append((statement.span(1), ";"))
    return [line[:start] + new + line[end:] for (start, end), new in found]


def tracked():
    names = subprocess.check_output(["git", "ls-files"], cwd=ROOT, text=True).splitlines()
    return [name for name in names if (ROOT / name).is_file()]


def random_breaks():
    """Breaks in the order of the draw, without an end."""
    draw, piles = random.Random(SEED), {}
    for folders in sorted(set(TURNS)):
        files = [name for name in tracked() if name.startswith(folders) and name.endswith((".cpp", ".h"))]
        piles[folders] = [(name, line) for name in files for line in (ROOT / name).read_text().splitlines() if breaks_of(line)]
        draw.shuffle(piles[folders])
    while any(piles.values()):
        for folders in TURNS:
            if piles[folders]:
                name, line = piles[folders].pop()
                yield Break(name, line, draw.choice(breaks_of(line)))


def listed_breaks(name):
    for row in (ROOT / name).read_text().splitlines():
        if not row.startswith("#"):
            file, old, new = (part.strip().replace(r"\|", "|").replace(r"\n", "\n") for part in re.split(r"(?<!\\)\|", row))
            if old not in (ROOT / file).read_text():
                sys.exit(f"{file}: no such text: {old}")
            yield Break(file, old, new)


def breaks_again(path):
    texts = {name: (ROOT / name).read_text() for name in tracked() if name.endswith((".cpp", ".h"))}
    for file, old, new, *_ in (row.split("\t") for row in path.read_text().splitlines()):
        for name in [file, *texts]:  # because a file may have been split or moved
            if old in texts.get(name, "").splitlines():
                yield Break(name, old, new)
                break
        else:
            print(f"gone: {file}: {old.strip()}")


def build(*targets):
    with open(TREE / "build.log", "w", encoding="utf-8") as log:
        command = ["cmake", "--build", BUILD, "-j", JOBS, *(["--target", *targets] if targets else [])]
        return subprocess.run(command, stdout=log, stderr=log, check=False).returncode == 0


def failed_tests(*choice):
    """Runs tests, and returns those that fail. Limits keep a break from harming anything but the test that meets it."""
    limits = ["prlimit", f"--as={8 << 30}", f"--fsize={1 << 30}", "--core=0", "--"]
    run = subprocess.run([*limits, "ctest", "--test-dir", BUILD, "-j", JOBS, "--timeout", "120", *choice],
                         capture_output=True, text=True, check=False)
    listed = run.stdout.partition("The following tests FAILED:")[2]
    return re.findall(r"^\s*\d+ - (\S+)", listed, re.MULTILINE)


def noticed(a_break, only):
    """The tests that notice a break, or None if it does not build. Only some are asked when a choice of them is given."""
    file = TREE / a_break.file
    whole = file.read_text()
    file.write_text(whole.replace(a_break.old, a_break.new, 1))
    try:
        in_tool = a_break.file.startswith(("tools/", "host/"))
        if not build():
            return None
        if only:
            return failed_tests("--stop-on-failure", "-C", "Browser", "-R", only)
        return ([] if in_tool else failed_tests("-E", SLOW)) or failed_tests("--stop-on-failure", "-R", SLOW)
    finally:
        file.write_text(whole)


def prepare(only):
    for name in tracked():
        (TREE / name).parent.mkdir(parents=True, exist_ok=True)
        if not (TREE / name).is_file() or (TREE / name).read_bytes() != (ROOT / name).read_bytes():
            shutil.copy(ROOT / name, TREE / name)
    subprocess.run(["cmake", "-S", TREE, "-B", BUILD, "-DCMAKE_BUILD_TYPE=RelWithDebInfo", "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON"],
                   check=True, stdout=subprocess.DEVNULL)
    if not build() or (failed := failed_tests(*(["-C", "Browser", "-R", only] if only else []))):
        sys.exit(f"Without a break: {' '.join(failed) if build() else 'does not build'}")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("what", choices=[*LISTS, "random", "again"])
    parser.add_argument("before", type=Path, nargs="?")
    parser.add_argument("-n", type=int, default=300)
    parser.add_argument("-o", type=Path)
    arguments = parser.parse_args()
    output = arguments.o or ROOT / f"build/breaks-{arguments.what}.tsv"
    sources = {"random": random_breaks, "again": lambda: breaks_again(arguments.before)}
    breaks = sources.get(arguments.what, lambda: listed_breaks(LISTS[arguments.what]))()
    done = [row.split("\t") for row in output.read_text().splitlines()] if output.exists() and arguments.what not in LISTS else []
    results = [row[3] for row in done]
    only = OF_PAGE if arguments.what == "page" else None
    prepare(only)
    for a_break in breaks:
        if len(results) >= arguments.n:
            break
        if list(a_break) in [row[:3] for row in done]:
            continue
        tests = noticed(a_break, only)
        if tests is None and arguments.what not in LISTS:  # no test notices a listed break that does not build
            continue
        results.append(" ".join(tests or []))
        print(f"{len(results):3} {a_break.file}: {a_break.old.strip()}  ->  {a_break.new.strip()}: {results[-1] or 'NOT NOTICED'}",
              flush=True)
        with open(output, "a", encoding="utf-8") as file:
            file.write("\t".join([*a_break, results[-1]]).replace("\n", " ") + "\n")
    missed = results.count("")
    print(f"{len(results) - missed} of {len(results)} breaks noticed")
    return arguments.what in LISTS and missed > 2


if __name__ == "__main__":
    sys.exit(main())
