#!/usr/bin/env python3
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Which tests notice which breaks? Makes random one-line breaks in a copy of the tree, one at a time, and runs the tests.

  tests/random_breaks.py all [-n NUMBER] [-o FILE]   draws NUMBER (300) breaks and records the tests that notice each
  tests/random_breaks.py quick BEFORE [-o FILE]      makes the breaks of BEFORE again, until one test notices each
  tests/random_breaks.py chosen [-o FILE]            makes those of tests/mutations.txt; at most two may go unnoticed
  tests/random_breaks.py report FILE                 what each suite and each test notices

The seed is fixed, so the same tree is broken in the same places. A break is known by the text of its line, of the lines around
it and of the function's head: quick finds it in a file that was split or moved, and calls it gone if the text is. A run that is
started again goes on where it stopped. A result is a row of fields separated by tabs, as `Row` names them.
"""
import argparse
import collections
import hashlib
import json
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
WORK = ROOT / "build/random_breaks"
TREE = WORK / "tree"
BUILD = TREE / "build"
JOBS = os.cpu_count()
SEED = 20261124
# Half of the breaks are in the library. A short run is spread like a long one.
TURNS = [("src/",), ("sim/",), ("src/",), ("tools/", "host/")]
# They repeat what others check, or check what a break in the code cannot change.
LEFT_OUT = re.compile(r"soak|clone|install_and_link|abi|docs")
# Where several cheap tests notice, a costly one is not asked, and none after many that hang: the row ends in "...".
COSTLY_SECONDS, SEVERAL, MANY_HANGS = 0.3, 5, 10

# The columns up to `new` name the break, the others say what came of it. The cheapest test stands first in `noticed`.
Row = collections.namedtuple("Row", "file heading above text below new outcome noticed")

# Strings and characters are no place for a break.
QUOTED = re.compile(r'"(?:\\.|[^"\\])*"|(?<![0-9A-Fa-f])\'(?:\\.|[^\'\\])+\'')
UNTOUCHED = re.compile(r"^(#|static_assert|template|namespace|using|extern)|\bkill\(")
# What is looked for, and what may stand there instead.
SWAPS = {
    "comparison": [(" == ", " != "), (" != ", " == "), (" < ", " <= "), (" < ", " >= "), (" <= ", " < "), (" > ", " >= "),
                   (" > ", " <= "), (" >= ", " > ")],
    "logic": [(" && ", " || "), (r" \|\| ", " && "), (r"(?<=[( ])!(?=[\w(])", ""), (r"\btrue\b", "false"),
              (r"\bfalse\b", "true")],
    "operator": [(r" \+ ", " - "), (" - ", " + "), (r" \* ", " / "), (" / ", " * "), (" & ", " | "), (r" \| ", " & "),
                 (" << ", " >> "), (" >> ", " << "), (r" \+= ", " -= "), (" -= ", " += "), (" &= ", " |= "),
                 (r" \|= ", " &= "), (r"\+\+", "--"), ("--", "++"), (r"\bmin\(", "max("), (r"\bmax\(", "min(")],
}
NUMBER = re.compile(r"(?<![\w.'])(0x[0-9A-Fa-f]+|[1-9][\d']*|0(?!\d))(?=[uUlL]*\b)")
CONDITION = re.compile(r"\b(?:if|while) \(([^;]*)\)(?: \{)?$")
STATEMENT = re.compile(r"(?:[\w:.\[\]>-]+\(.*\)|[\w:.\[\]>*()-]+ [-+*/|&^]?= .*|\+\+[\w.>-]+|return|break|continue);$")


def code_of(line):
    """The line without its comment, and with strings of the same length that say nothing."""
    return QUOTED.sub(lambda m: "_" * len(m[0]), line).split("//")[0].rstrip()


def breaks_of(text, above):
    """Every break of a line: kind -> the texts that may stand there."""
    found, code = collections.defaultdict(list), code_of(text)
    if UNTOUCHED.search(code):
        return found

    def replace(kind, start, end, new):
        found[kind].append(text[:start] + new + text[end:])

    for kind, swaps in SWAPS.items():
        for old, new in swaps:
            for m in re.finditer(old, code):
                replace(kind, *m.span(), new)
    for m in NUMBER.finditer(code):
        for step in (1, -1):
            value = int(m[0].replace("'", ""), 0) + step
            replace("number", *m.span(), f"0x{value:02X}" if m[0].startswith("0x") and value >= 0 else str(value))
    if m := CONDITION.search(code):
        replace("condition", *m.span(1), f"!({text[m.start(1):m.end(1)]})")
    if STATEMENT.match(code) and re.search(r"([;{}):]|else|^)$", code_of(above)):
        replace("statement", 0, len(code), ";")
    return found


def tracked():
    return [name for name in subprocess.check_output(["git", "ls-files"], cwd=ROOT, text=True).splitlines()
            if (ROOT / name).is_file()]


def lines_of_code(folders):
    """Each line of code in these folders: its index in the file, and a Row that does not break it yet."""
    for name in tracked():
        if name.startswith(folders) and name.endswith((".cpp", ".h")):
            lines = [(i, line.rstrip()) for i, line in enumerate((ROOT / name).read_text().splitlines())
                     if code_of(line)]
            texts = ["", *(line.strip() for _, line in lines), ""]
            heading = ""
            for at, (i, line) in enumerate(lines, 1):
                heading = line if re.match(r"[A-Za-z].*[^:]$", line) else heading
                yield i, Row(name, heading, texts[at - 1], texts[at], texts[at + 1], "", "", "")


def broken_line(line, row):
    """The file with the line broken."""
    i, (name, *_) = line
    lines = (ROOT / name).read_text().splitlines(keepends=True)
    lines[i] = lines[i].replace(row.text, row.new, 1)
    return name, "".join(lines)


def drawn():
    """Breaks in the order of the draw, each with its file and that file's text when it is broken."""
    rng = random.Random(SEED)
    piles = {}
    for folders in sorted(set(TURNS)):
        piles[folders] = [line for line in lines_of_code(folders) if breaks_of(line[1].text, line[1].above)]
        rng.shuffle(piles[folders])
    while any(piles.values()):
        for folders in TURNS:
            if piles[folders]:
                i, row = piles[folders].pop()
                kinds = breaks_of(row.text, row.above)
                row = row._replace(new=rng.choice(kinds[rng.choice(sorted(kinds))]))
                yield broken_line((i, row), row), row


def found_again(rows):
    """The breaks of an earlier run, each with its file of today and that file's text when it is broken, or None."""
    today = collections.defaultdict(list)
    for line in lines_of_code(sum(TURNS, ())):
        today[line[1].text].append(line)
    for row in rows:
        likeness = [sum(getattr(line, key) == getattr(row, key) for key in ("file", "heading", "above", "below"))
                    for _, line in today[row.text]]
        best = max(likeness, default=0)
        found = best and likeness.count(best) == 1
        yield broken_line(today[row.text][likeness.index(best)], row) if found else None, row


def chosen():
    """The breaks of tests/mutations.txt, as those of an earlier run. Each breaks the first place of its text."""
    for line in (ROOT / "tests/mutations.txt").read_text().splitlines():
        if not line.startswith("#"):
            name, old, new = (field.replace(r"\|", "|") for field in re.split(r" (?<!\\)\| ", line))
            whole = (ROOT / name).read_text()
            broken = whole.replace(*(field.replace(r"\n", "\n") for field in (old, new)), 1)
            yield (name, broken) if broken != whole else None, Row(name, "", "", old, "", new, "", "")


class Test:
    def __init__(self, listed, libraries):
        properties = {p["name"]: p["value"] for p in listed["properties"]}
        self.name = listed["name"].split()[0]
        self.command = listed["command"]
        self.uses = set(self.command).union(*(libraries.get(word, ()) for word in self.command))
        self.environment = dict(e.split("=", 1) for e in properties.get("ENVIRONMENT", []))
        self.folder = properties.get("WORKING_DIRECTORY", BUILD)
        self.skipped = properties.get("SKIP_RETURN_CODE", 0)
        self.seconds, self.hung = 0.0, False
        self.cpu_limit, self.limit = 300, 1200  # seconds, until measured

    def passes(self):
        """Runs the test in a session and a folder of its own, which end with it."""
        limits = ["prlimit", f"--cpu={self.cpu_limit}:{self.cpu_limit + 5}", f"--as={8 << 30}", f"--fsize={1 << 30}", "--core=0"]
        with tempfile.TemporaryDirectory(prefix="breaks-", ignore_cleanup_errors=True) as scratch:
            child = subprocess.Popen([*limits, "--", *self.command], cwd=self.folder, start_new_session=True,
                                     stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                     env={**os.environ, **self.environment, "TMPDIR": scratch})
            late = threading.Timer(self.limit, os.killpg, (child.pid, signal.SIGKILL))
            late.start()
            # It has ended but is not reaped yet, so that its number still is that of its group.
            os.waitid(os.P_PID, child.pid, os.WEXITED | os.WNOWAIT)
            self.hung = not late.is_alive()
            late.cancel()
            os.killpg(child.pid, signal.SIGKILL)
            _, status, usage = os.wait4(child.pid, 0)
        child.returncode = os.waitstatus_to_exitcode(status)
        self.hung |= child.returncode == -signal.SIGXCPU
        self.seconds = usage.ru_utime + usage.ru_stime
        return child.returncode in (0, self.skipped)


def noticing(tests, enough):
    """The tests that fail, in the order given, and whether some were not asked. A second run rules out chance."""
    queue, found, lock = collections.deque(tests), [], threading.Lock()

    def work():
        while True:
            with lock:
                if not queue or enough(found, queue[0]):
                    return
                test = queue.popleft()
            if not test.passes() and (len(found) >= SEVERAL or not test.passes()):
                with lock:
                    found.append(test)

    workers = [threading.Thread(target=work) for _ in range(JOBS)]
    for worker in workers:
        worker.start()
    for worker in workers:
        worker.join()
    return sorted(found, key=tests.index), bool(queue)


def build():
    with open(WORK / "build.log", "w") as log:
        return subprocess.run(["cmake", "--build", BUILD, "-j", str(JOBS)], stdout=log, stderr=log).returncode == 0


def programs():
    """What was built, each with a hash of its content."""
    return {str(path): hashlib.sha1(path.read_bytes()).digest() for path in BUILD.iterdir()
            if path.is_file() and os.access(path, os.X_OK)}


def prepare():
    """Builds the copy and runs its tests without a break. Returns the tests, the cheapest first, and what was built."""
    names = tracked()
    for name in names:
        copy = TREE / name
        if not copy.is_file() or copy.read_bytes() != (ROOT / name).read_bytes():
            copy.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(ROOT / name, copy)
    for copy in TREE.rglob("*"):
        if copy.is_file() and BUILD not in copy.parents and str(copy.relative_to(TREE)) not in names:
            copy.unlink()
    options = ["-DCMAKE_BUILD_TYPE=None", "-DCMAKE_CXX_FLAGS=-O1 -g0 -w", "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON"]
    options += ["-G", "Ninja"] if shutil.which("ninja") else []
    options += ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"] if shutil.which("ccache") else []
    subprocess.run(["cmake", "-S", TREE, "-B", BUILD, *options], check=True, stdout=subprocess.DEVNULL)
    if not build():
        sys.exit(f"The tree does not build: {WORK}/build.log")
    clean = programs()
    libraries = {name: re.findall(r"=> (\S+)", subprocess.run(["ldd", name], capture_output=True, text=True).stdout)
                 for name in clean}
    listed = json.loads(subprocess.check_output(["ctest", "--test-dir", BUILD, "--show-only=json-v1"]))["tests"]
    tests = [Test(test, libraries) for test in listed if not LEFT_OUT.search(test["name"])]
    started = time.monotonic()
    if failed := noticing(tests, lambda found, test: False)[0]:
        sys.exit("The tests fail without a break: " + ", ".join(test.name for test in failed))
    total = sum(test.seconds for test in tests)
    slowness = (time.monotonic() - started) * JOBS / total
    print(f"{len(tests)} tests pass, in {total:.0f} s of processor time", flush=True)
    for test in tests:
        test.cpu_limit, test.limit = int(5 + 3 * test.seconds), 60 + 10 * slowness * test.seconds
    return sorted(tests, key=lambda test: test.seconds), clean


def outcome_of(name, broken, tests, clean, first):
    """Breaks the file, runs the tests that this can reach, mends it. `first` are asked first, and then one is enough."""
    file = TREE / name
    whole = file.read_text()
    file.write_text(broken)
    try:
        if not build():
            return "does not build", []
        changed = {name for name, digest in programs().items() if clean.get(name) != digest}
        if not changed:
            return "changes no program", []

        def enough(found, test):
            return (found and first is not None or sum(t.hung for t in found) >= MANY_HANGS or
                    test.seconds > COSTLY_SECONDS and len(found) >= SEVERAL)

        reached = sorted((test for test in tests if test.uses & changed), key=lambda test: test.name not in (first or []))
        found, more = noticing(reached, enough)
        return "noticed" if found else "missed", [test.name for test in found] + ["..."] * more
    finally:
        file.write_text(whole)


def run(breaks, number, output):
    """Makes up to `number` breaks, all of them if that is None: then one test that notices is enough."""
    output.parent.mkdir(parents=True, exist_ok=True)
    done = read(output) if output.exists() else []
    finished, counted = {row[:6] for row in done}, len(judged(done))
    tests, clean = prepare()
    for place, row in breaks:
        if counted == number:
            break
        if row[:6] in finished:
            continue
        started = time.monotonic()
        first = row.noticed.split() if number is None else None
        outcome, names = outcome_of(*place, tests, clean, first) if place else ("gone", [])
        with open(output, "a") as file:
            file.write("\t".join([*row[:6], outcome, " ".join(names)]) + "\n")
        counted += outcome in ("noticed", "missed")
        print(f"{counted:3}, {time.monotonic() - started:3.0f} s: {row.file}: {row.text}  ->  {row.new}: {outcome}",
              *names[:2], len(names), flush=True)
    return read(output)


def read(path):
    return [Row(*line.split("\t")) for line in path.read_text().splitlines()]


def judged(rows):
    return [row for row in rows if row.outcome in ("noticed", "missed")]


def summary(rows, before=()):
    for folders in [("",), *sorted(set(TURNS))]:
        here = [row for row in judged(rows) if row.file.startswith(folders)]
        print(f"{' '.join(folders)}: {sum(row.outcome == 'noticed' for row in here)} of {len(here)} breaks noticed")
    if before:
        earlier = {row[:6]: row for row in before}
        pairs = [(row, earlier[row[:6]]) for row in judged(rows)]
        print(f"Before, {sum(old.outcome == 'noticed' for _, old in pairs)} of the same {len(pairs)} were noticed; "
              f"{len(rows) - len(pairs)} are gone")
        for row, old in pairs:
            if row.outcome == "missed" and old.outcome == "noticed":
                print(f"No longer noticed: {row.file}: {row.text}  ->  {row.new}, once by {old.noticed.split()[0]}")


def report(rows):
    """How many breaks each notices, where it is the cheapest to notice, and where nothing else does."""
    for part in (lambda name: name.split(".")[0]), (lambda name: name):
        noticed, cheapest, alone = collections.Counter(), collections.Counter(), collections.Counter()
        for row in rows:
            names = list(dict.fromkeys(part(name) for name in row.noticed.split() if name != "..."))
            noticed.update(names)
            cheapest.update(names[:1])
            alone.update(names if len(names) == 1 else [])
        print("\nnoticed cheapest alone")
        for name in sorted(noticed, key=lambda name: (-alone[name], -cheapest[name], -noticed[name])):
            print(f"{noticed[name]:7} {cheapest[name]:8} {alone[name]:5}  {name}")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    commands = parser.add_subparsers(dest="command", required=True)
    everything, quick = commands.add_parser("all"), commands.add_parser("quick")
    everything.add_argument("-n", type=int, default=300)
    everything.add_argument("-o", type=Path, default=WORK / "all.tsv")
    quick.add_argument("before", type=Path)
    quick.add_argument("-o", type=Path, default=WORK / "quick.tsv")
    commands.add_parser("chosen").add_argument("-o", type=Path, default=WORK / "chosen.tsv")
    commands.add_parser("report").add_argument("file", type=Path)
    arguments = parser.parse_args()
    if arguments.command == "report":
        summary(read(arguments.file))
        report(read(arguments.file))
    elif os.environ.pop("VQD_BREAKS_APART", None) is None:
        # In a process namespace a broken signal reaches the tests only, and what they leave behind ends with this run.
        user = [] if os.geteuid() == 0 else ["--user", "--map-current-user"]
        os.environ["VQD_BREAKS_APART"] = "yes"
        os.execvp("unshare", ["unshare", *user, "--pid", "--fork", "--kill-child", "--mount-proc", sys.executable, *sys.argv])
    else:
        os.nice(10)
        if arguments.command == "all":
            summary(run(drawn(), arguments.n, arguments.o))
        elif arguments.command == "quick":
            before = read(arguments.before)
            summary(run(found_again(judged(before)), None, arguments.o), before)
        else:
            arguments.o.unlink(missing_ok=True)  # of another tree
            rows = run(chosen(), None, arguments.o)
            summary(rows)
            sys.exit(sum(row.outcome != "noticed" for row in rows) > 2)


if __name__ == "__main__":
    main()
