#!/usr/bin/env python3
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Which tests notice which breaks? Makes random one-line breaks in a copy of the tree, one at a time, and runs the tests.

  tests/random_breaks.py all [-n NUMBER] [-o FILE]   draws NUMBER breaks (300) and records every test that notices each
  tests/random_breaks.py quick BEFORE [-o FILE]      makes the breaks of BEFORE again and stops at the first test that notices
  tests/random_breaks.py report FILE                 what each test and each suite notices, and what nothing else does

The seed is fixed, so the same tree is broken in the same places. A break is known by the text of its line and of the lines
around it, not by its number: quick finds it in files that were split or moved, and calls it gone if the text is no longer
there. A run that is started again goes on where it stopped. Results are separated by tabs, a row each.
"""
import argparse
import collections
import csv
import hashlib
import json
import os
import random
import re
import resource
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
SLOW = re.compile(r"soak|clone|install_and_link|abi|docs")
ENOUGH_HANGS = 10  # each costs its whole time limit
# Where several cheap tests notice, a costly one adds nothing: "..." at the end of a row says that it was not asked.
COSTLY_SECONDS, ENOUGH_CHEAP = 1, 5

Row = collections.namedtuple("Row", "file heading above text below new outcome noticed")

# Strings and characters are no place for a break, comments neither.
MASKED = re.compile(r'"(?:\\.|[^"\\])*"|(?<![0-9A-Fa-f])\'(?:\\.|[^\'\\])+\'|//.*')
UNTOUCHED = re.compile(r"^(#|static_assert|template|namespace|using|extern|SPDX)|\bkill\(|\bremove\(")
# What is looked for, and what may stand there instead.
SWAPS = [
    ("comparison", r" == ", " != "), ("comparison", r" != ", " == "),
    ("comparison", r" < ", " <= "), ("comparison", r" < ", " >= "), ("comparison", r" <= ", " < "),
    ("comparison", r" > ", " >= "), ("comparison", r" > ", " <= "), ("comparison", r" >= ", " > "),
    ("logic", r" && ", " || "), ("logic", r" \|\| ", " && "), ("logic", r"(?<=[( ])!(?=[\w(])", ""),
    ("logic", r"\btrue\b", "false"), ("logic", r"\bfalse\b", "true"),
    ("operator", r" \+ ", " - "), ("operator", r" - ", " + "), ("operator", r" \* ", " / "), ("operator", r" / ", " * "),
    ("operator", r" & ", " | "), ("operator", r" \| ", " & "), ("operator", r" << ", " >> "), ("operator", r" >> ", " << "),
    ("operator", r" \+= ", " -= "), ("operator", r" -= ", " += "), ("operator", r" &= ", " |= "), ("operator", r" \|= ", " &= "),
    ("operator", r"\+\+", "--"), ("operator", r"--", "++"),
    ("operator", r"\bmin\(", "max("), ("operator", r"\bmax\(", "min("),
]
NUMBER = re.compile(r"(?<![\w.'])(0x[0-9A-Fa-f]+|\d[\d']*)(?=[uUlL]*\b)")
CONDITION = re.compile(r"\b(?:if|while) \((.*)\)(?: \{)?$")
STATEMENT = re.compile(r"(?:[\w:.\[\]>-]+\(.*\)|[\w:.\[\]>*()-]+ [-+*/|&^]?= .*|\+\+[\w.>-]+|return|break|continue);$")


def breaks_of(text, above):
    """Every break of a line, as {kind: [new text]}."""
    found = collections.defaultdict(list)
    masked = MASKED.sub(lambda m: "_" * len(m[0]) if m[0][0] != "/" else "", text).rstrip()
    if not masked or UNTOUCHED.search(text):
        return found

    def replace(kind, start, end, new):
        found[kind].append(text[:start] + new + text[end:])

    for kind, old, new in SWAPS:
        for m in re.finditer(old, masked):
            replace(kind, *m.span(), new)
    for m in NUMBER.finditer(masked):
        value, write = (int(m[0], 16), "0x{:02X}") if m[0][:2] == "0x" else (int(m[0].replace("'", "")), "{}")
        for near in (value + 1, value - 1):
            replace("number", *m.span(), write.format(near))
    if (m := CONDITION.search(masked)) and "; " not in m[1]:
        replace("condition", *m.span(1), "!(" + text[m.start(1):m.end(1)] + ")")
    if STATEMENT.match(masked) and (not above or above[-1] in ";{}):" or above.endswith("else")):
        replace("statement", 0, len(masked), ";")
    return found


def tracked():
    return subprocess.check_output(["git", "ls-files"], cwd=ROOT, text=True).splitlines()


def places(folders):
    """The lines of code in these folders, as (line index, Row without a break)."""
    for name in tracked():
        if not name.startswith(folders) or Path(name).suffix not in (".cpp", ".h") or not (ROOT / name).is_file():
            continue
        lines = [(i, line.strip()) for i, line in enumerate((ROOT / name).read_text().splitlines())]
        lines = [(i, line) for i, line in lines if line and not line.startswith("//")]
        starts = {i for i, line in enumerate((ROOT / name).read_text().splitlines()) if re.match(r"[A-Za-z]", line)}
        heading = ""
        for at, (i, line) in enumerate(lines):
            if i in starts:
                heading = line
            above = lines[at - 1][1] if at else ""
            below = lines[at + 1][1] if at + 1 < len(lines) else ""
            yield i, Row(name, heading, above, line, below, "", "", "")


def drawn():
    """All breaks in the order of the draw, each with its place."""
    rng = random.Random(SEED)
    piles = {}
    for folders in sorted(set(TURNS)):
        piles[folders] = [(i, row, kinds) for i, row in places(folders)
                          if (kinds := breaks_of(row.text, MASKED.sub(lambda m: m[0] if m[0][0] != "/" else "",
                                                                      row.above).rstrip()))]
        rng.shuffle(piles[folders])
    turn = 0
    while any(piles.values()):
        pile = piles[TURNS[turn % len(TURNS)]]
        turn += 1
        if pile:
            i, row, kinds = pile.pop()
            yield (i, row), row._replace(new=rng.choice(kinds[rng.choice(sorted(kinds))]))


def found_again(rows):
    """The breaks of an earlier run, each with its place in today's tree, or None where its line is gone."""
    today = collections.defaultdict(list)
    for i, place in places(tuple(folder for turn in TURNS for folder in turn)):
        today[place.text].append((i, place))
    for row in rows:
        def likeness(candidate):
            return sum(getattr(candidate[1], key) == getattr(row, key) for key in ("file", "heading", "above", "below"))
        candidates = sorted(today[row.text], key=likeness, reverse=True)
        if len(candidates) > 1 and (likeness(candidates[0]) == likeness(candidates[1]) or likeness(candidates[0]) == 0):
            candidates = []
        yield (candidates[0] if candidates else None), row


def copy_tree():
    names = tracked()
    for name in names:
        source, copy = ROOT / name, TREE / name
        if source.is_file() and not (copy.is_file() and copy.read_bytes() == source.read_bytes()):
            copy.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(source, copy)
    for copy in TREE.rglob("*"):
        if copy.is_file() and BUILD not in copy.parents and str(copy.relative_to(TREE)) not in names:
            copy.unlink()


def configure():
    options = ["-DCMAKE_BUILD_TYPE=None", "-DCMAKE_CXX_FLAGS=-O1 -g0 -w", "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON"]
    if shutil.which("ninja"):
        options += ["-G", "Ninja"]
    if shutil.which("ccache"):
        options += ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"]
    subprocess.run(["cmake", "-S", TREE, "-B", BUILD, *options], check=True, stdout=subprocess.DEVNULL)


def build():
    with open(WORK / "build.log", "w") as log:
        return subprocess.run(["cmake", "--build", BUILD, "-j", str(JOBS)], stdout=log, stderr=log).returncode == 0


def programs():
    """What the build made, by the hash of its content."""
    return {str(path): hashlib.sha1(path.read_bytes()).digest() for path in BUILD.iterdir()
            if path.is_file() and os.access(path, os.X_OK)}


class Test:
    def __init__(self, name, command, properties, libraries):
        self.name, self.command = name, command
        self.environment = dict(e.split("=", 1) for e in properties.get("ENVIRONMENT", []))
        self.folder = properties.get("WORKING_DIRECTORY", BUILD)
        self.skipped = properties.get("SKIP_RETURN_CODE", 0)
        self.uses = set(command).union(*(libraries.get(word, ()) for word in command))
        self.cpu_limit, self.limit = 300, 1200  # seconds, until measured
        self.seconds, self.hung = 0.0, False

    def passes(self):
        """Runs the test in a session and a folder of its own, which end with it."""
        limits = ["prlimit", f"--cpu={self.cpu_limit}", f"--as={8 << 30}", f"--fsize={1 << 30}", "--core=0", "--"]
        with tempfile.TemporaryDirectory(prefix="breaks-", ignore_cleanup_errors=True) as scratch:
            child = subprocess.Popen(limits + self.command, cwd=self.folder, stdin=subprocess.DEVNULL,
                                     stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True,
                                     env={**os.environ, **self.environment, "TMPDIR": scratch})
            late = threading.Timer(self.limit, os.killpg, (child.pid, signal.SIGKILL))
            late.start()
            # The test has ended but is not yet reaped, so its number is still its group's.
            os.waitid(os.P_PID, child.pid, os.WEXITED | os.WNOWAIT)
            self.hung = not late.is_alive()
            late.cancel()
            os.killpg(child.pid, signal.SIGKILL)
            _, status, usage = os.wait4(child.pid, 0)
        child.returncode = os.waitstatus_to_exitcode(status)
        self.hung |= child.returncode in (-signal.SIGXCPU, 128 + signal.SIGXCPU)
        self.seconds = usage.ru_utime + usage.ru_stime
        return child.returncode in (0, self.skipped)


def all_tests():
    listed = subprocess.check_output(["ctest", "--test-dir", BUILD, "--show-only=json-v1"], text=True)
    made = programs()
    libraries = {program: set(re.findall(r"=> (\S+)", subprocess.run(["ldd", program], capture_output=True, text=True).stdout))
                 for program in made}
    return [Test(t["name"], t["command"], {p["name"]: p["value"] for p in t["properties"]}, libraries)
            for t in json.loads(listed)["tests"] if not SLOW.search(t["name"])]


def noticing(tests, enough=lambda found, test: False):
    """The tests that fail, in the order given, and whether some were not run. A second run rules out chance."""
    queue, found, lock = collections.deque(tests), [], threading.Lock()

    def work():
        while True:
            with lock:
                if not queue or enough(found, queue[0]):
                    return
                test = queue.popleft()
            if not test.passes() and (len(found) >= ENOUGH_CHEAP or not test.passes()):
                with lock:
                    found.append(test)

    workers = [threading.Thread(target=work) for _ in range(JOBS)]
    for worker in workers:
        worker.start()
    for worker in workers:
        worker.join()
    return sorted(found, key=tests.index), bool(queue)


def enough_to_compare(found, test):
    return sum(t.hung for t in found) >= ENOUGH_HANGS or (test.seconds > COSTLY_SECONDS and len(found) >= ENOUGH_CHEAP)


def one_is_enough(found, test):
    return bool(found)


def prepare():
    """Builds the copy and runs its tests as they are. Returns them, the cheapest first, and what was built."""
    WORK.mkdir(parents=True, exist_ok=True)
    copy_tree()
    configure()
    if not build():
        sys.exit(f"The tree does not build: {WORK / 'build.log'}")
    tests = all_tests()
    started = time.monotonic()
    failed, _ = noticing(tests)
    if failed:
        sys.exit("The tests fail without a break: " + ", ".join(t.name for t in failed))
    slowness = (time.monotonic() - started) * JOBS / sum(t.seconds for t in tests)
    for test in tests:
        test.cpu_limit, test.limit = int(6 + 3 * test.seconds), 60 + 10 * slowness * test.seconds
    tests.sort(key=lambda t: t.seconds)
    with open(WORK / "costs.tsv", "w") as costs:
        costs.writelines(f"{t.name}\t{t.seconds:.2f}\n" for t in tests)
    print(f"{len(tests)} tests, {sum(t.seconds for t in tests):.0f} s of processor time", flush=True)
    return tests, programs()


def break_and_test(place, row, tests, clean, before=None):
    """Makes the break, runs the tests that it can reach, mends it. Returns the outcome and the tests that notice."""
    i, file = place[0], TREE / place[1].file
    whole = file.read_text()
    lines = whole.splitlines(keepends=True)
    lines[i] = lines[i].replace(row.text, row.new, 1)
    file.write_text("".join(lines))
    try:
        if not build():
            return "does not build", []
        changed = {name for name, digest in programs().items() if clean.get(name) != digest}
        reached = [t for t in tests if t.uses & changed]
        if not changed:
            return "changes no program", []
        if before is not None:
            reached.sort(key=lambda t: t.name not in before)  # keeps the cheapest first among equals
        found, cut_short = noticing(reached, enough_to_compare if before is None else one_is_enough)
        return "noticed" if found else "missed", [t.name for t in found] + ["..."] * cut_short
    finally:
        file.write_text(whole)


def counts(row):
    return row.outcome in ("noticed", "missed")


def identity(row):
    return row.file, row.heading, row.above, row.text, row.new


def read(path):
    with open(path) as file:
        return [Row(*fields) for fields in csv.reader(file, delimiter="\t", quoting=csv.QUOTE_NONE)]


def summary(rows, before):
    """How many breaks are noticed; of a quick run also how many of the same were noticed before."""
    for folders in [("",), *sorted(set(TURNS))]:
        here = [r for r in rows if counts(r) and r.file.startswith(folders)]
        print(f"{' '.join(folders) or 'all':12} {sum(r.outcome != 'missed' for r in here):3} of {len(here)} breaks noticed")
    if before is None:
        return
    earlier = {identity(r): r for r in before}
    same = [(r, earlier[identity(r)]) for r in rows if counts(r)]
    print(f"before: {sum(b.outcome != 'missed' for _, b in same)} of the same {len(same)}; "
          f"gone: {sum(r.outcome == 'gone' for r in rows)}")
    for r, b in same:
        if r.outcome == "missed" and b.outcome != "missed":
            print(f"no longer noticed: {r.file}: {r.text}  ->  {r.new} (by {b.noticed.split()[0]})")


def report(rows):
    """Of each suite and test: the breaks that it notices, those where it is the cheapest to do so, those where nothing else does."""
    for title, part in (("suite", lambda name: name.split(".")[0]), ("test", lambda name: name)):
        noticed, cheapest, alone = collections.Counter(), collections.Counter(), collections.Counter()
        for row in rows:
            names = list(dict.fromkeys(part(name) for name in row.noticed.split() if name != "..."))
            noticed.update(names)
            cheapest.update(names[:1])
            alone.update(names if len(names) == 1 else [])
        print(f"\n{'noticed':>8} {'cheapest':>9} {'alone':>6}  {title}")
        for name in sorted(noticed, key=lambda n: (alone[n], cheapest[n], noticed[n], n), reverse=True):
            print(f"{noticed[name]:8} {cheapest[name]:9} {alone[name]:6}  {name}")


def run(number, before, output):
    WORK.mkdir(parents=True, exist_ok=True)
    done = read(output) if output.exists() else []
    tests, clean = prepare()
    planned = found_again(filter(counts, before)) if before else drawn()
    finished, counted = set(map(identity, done)), sum(map(counts, done))
    with open(output, "a") as file:
        for place, row in planned:
            if not before and counted >= number:
                break
            if identity(row) in finished:
                continue
            started = time.monotonic()
            outcome, names = "gone", []
            if place:
                outcome, names = break_and_test(place, row, tests, clean, row.noticed.split() if before else None)
            result = row._replace(outcome=outcome, noticed=" ".join(names))
            file.write("\t".join(result) + "\n")
            file.flush()
            counted += counts(result)
            print(f"{counted:3}, {time.monotonic() - started:3.0f} s: {row.file}: {row.text}  ->  {row.new}: "
                  f"{outcome} {' '.join(names[:2])} ({len(names)})", flush=True)
    summary(read(output), before)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    commands = parser.add_subparsers(dest="command", required=True)
    everything, quick = commands.add_parser("all"), commands.add_parser("quick")
    everything.add_argument("-n", type=int, default=300)
    everything.add_argument("-o", type=Path, default=WORK / "all.tsv")
    quick.add_argument("before", type=Path)
    quick.add_argument("-o", type=Path, default=WORK / "quick.tsv")
    commands.add_parser("report").add_argument("file", type=Path)
    arguments = parser.parse_args()
    if arguments.command == "report":
        summary(read(arguments.file), None)
        report(read(arguments.file))
        return
    # A broken kill() must reach nothing but the tests, and nothing that they started may outlive this run.
    if os.environ.pop("VQD_BREAKS_APART", None) is None:
        user = [] if os.geteuid() == 0 else ["--user", "--map-current-user"]
        os.environ["VQD_BREAKS_APART"] = "1"
        os.execvp("unshare", ["unshare", *user, "--pid", "--fork", "--kill-child", "--mount-proc", sys.executable, *sys.argv])
    os.nice(10)
    if arguments.command == "all":
        run(arguments.n, None, arguments.o)
    else:
        run(0, read(arguments.before), arguments.o)


main()
