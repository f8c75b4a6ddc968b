#!/usr/bin/env python3
"""Tests the tests: changes the library at random, one change at a time, and lists the changes that no test notices.

The changes are made in a copy of the last commit below build/mutants. Each one is built and given to the test programs of
its own package, then to all others, then to the simulated ones, until a test fails. A change that does not compile does not
count.
"""

import argparse
import os
import random
import re
import shutil
import signal
import subprocess
import sys

ROOT = os.path.realpath(os.path.join(os.path.dirname(__file__), ".."))
WORK = os.path.join(ROOT, "build", "mutants")
TREE = os.path.join(WORK, "tree")

# What stands in the place of what: a pattern, its replacement, and the name of the kind of change.
REPLACEMENTS = [
    (re.compile(r"\b(if|while) \((?!constexpr)(.+)\)( \{)?$"), r"\1 (!(\2))\3", "negated condition"),
    (re.compile(r" < "), " <= ", "changed bound"),
    (re.compile(r" <= "), " < ", "changed bound"),
    (re.compile(r" > "), " >= ", "changed bound"),
    (re.compile(r" >= "), " > ", "changed bound"),
    (re.compile(r" == "), " != ", "changed comparison"),
    (re.compile(r" != "), " == ", "changed comparison"),
    (re.compile(r" && "), " || ", "changed junction"),
    (re.compile(r" \|\| "), " && ", "changed junction"),
    (re.compile(r" \+ "), " - ", "changed sign"),
    (re.compile(r" - "), " + ", "changed sign"),
    (re.compile(r"\+\+(?=_?[a-z])"), "--", "changed sign"),
    (re.compile(r"(?<![\w.])([1-9]\d*)(?![\w.])"), lambda match: str(int(match[1]) + 1), "changed constant"),
    (re.compile(r"(?<![\w.])0(?![\w.])"), "1", "changed constant"),
    (re.compile(r"\btrue\b"), "false", "changed constant"),
    (re.compile(r"\bfalse\b"), "true", "changed constant"),
]
# A statement on a line of its own: a call, an assignment, or a jump.
STATEMENT = re.compile(r"^\s+((?:::|\*|\+\+|--)?[a-zA-Z_][\w:.<>*\[\]\->]*(?:\(.*\)| [-+|&^]?= .*|\+\+|--)|throw .*|break|continue);$")
NOT_CODE = re.compile(r"^\s*(//|\*|/\*|#|template\b|using\b|static_assert|friend\b|namespace\b|class\b|struct\b|enum\b)|\bdelete;|= default;")


def sources():
    listed = subprocess.run(["git", "ls-files", "src/zvbase", "src/resmgt"], cwd=ROOT, capture_output=True, text=True,
                            check=True).stdout.split()
    return [name for name in listed if name.endswith((".cpp", ".h"))]


def outside_strings(line):
    """The places of the line that stand in no string, character or comment."""
    inside = re.compile(r'"(?:[^"\\]|\\.)*"|\'(?:[^\'\\]|\\.)*\'|//.*$')
    covered = [match.span() for match in inside.finditer(line)]
    return lambda place: not any(start <= place < end for start, end in covered)


def changes_of(name):
    """All changes of one file: (file, line number, kind, the line as it is, the line as it becomes)."""
    found = []
    with open(os.path.join(TREE, name), encoding="utf-8") as text:
        lines = text.read().split("\n")
    for number, line in enumerate(lines, 1):
        if NOT_CODE.search(line):
            continue
        is_code = outside_strings(line)
        for pattern, replacement, kind in REPLACEMENTS:
            for match in pattern.finditer(line):
                if is_code(match.start()):
                    changed = line[: match.start()] + match.expand(replacement) if isinstance(replacement, str) else \
                        line[: match.start()] + replacement(match)
                    found.append((name, number, kind, line, changed + line[match.end():]))
        match = STATEMENT.match(line)
        if match and number > 1 and lines[number - 2].rstrip().endswith((";", "{", "}", ":", ")")):
            found.append((name, number, "dropped statement", line, line[: match.start(1)] + ";"))
    return found


def write(change, to_old):
    name, number, _, old, new = change
    path = os.path.join(TREE, name)
    with open(path, encoding="utf-8") as text:
        lines = text.read().split("\n")
    lines[number - 1] = old if to_old else new
    with open(path, "w", encoding="utf-8") as text:
        text.write("\n".join(lines))


def run(command, seconds):
    """True if the command ends well within its time; whatever it started is ended with it."""
    process = subprocess.Popen(command, cwd=TREE, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL, start_new_session=True)
    try:
        return process.wait(seconds) == 0
    except subprocess.TimeoutExpired:
        return False
    finally:
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        process.wait()


def build(preset, jobs, *targets):
    return run(["cmake", "--build", f"build/{preset}", f"-j{jobs}", *(("--target", *targets) if targets else ())], 3600)


def programs():
    with open(os.path.join(TREE, "build/tests/build.ninja"), encoding="utf-8") as text:
        return sorted(set(re.findall(r"^build (test_\w+): phony", text.read(), re.MULTILINE)))


def nearest(name, known):
    """The test programs that are named after a folder of the file."""
    return [program for program in known if program.removeprefix("test_") in name.split("/")]


def judge(change, known, jobs):
    """'noticed by …', 'not noticed', or None for a change that is none."""
    near = nearest(change[0], known)
    if not build("tests", jobs, "zvbase_objects", "zvresmgt_objects"):
        return None
    if near:
        if not build("tests", jobs, *near):
            return None
        names = [program.removeprefix("test_") for program in near]
        if not run(["ctest", "--test-dir", "build/tests", "--stop-on-failure", "--timeout", "120", "--no-tests=error",
                    "-R", "^(" + "|".join(names) + ")$"], 900):
            return "noticed by " + ", ".join(names)
    if not build("tests", jobs):
        return None
    if not run(["ctest", "--test-dir", "build/tests", "--stop-on-failure", "--timeout", "120", f"-j{jobs}"], 1800):
        return "noticed by the tests of other packages"
    if not build("simulated", jobs, "test_simulated", "conformance"):
        return None
    if not run(["ctest", "--test-dir", "build/simulated", "--stop-on-failure", "--timeout", "600"], 1800):
        return "noticed by the simulated tests"
    return "not noticed"


def main():
    arguments = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    arguments.add_argument("count", nargs="?", type=int, default=50, help="how many changes that compile (50)")
    arguments.add_argument("--seed", type=int, default=1, help="chooses the changes (1)")
    arguments.add_argument("--files", default="", help="a regular expression that the changed files match")
    arguments.add_argument("--jobs", type=int, default=os.cpu_count(), help="how many compilers and tests run at once")
    options = arguments.parse_args()

    shutil.rmtree(TREE, ignore_errors=True)
    os.makedirs(TREE)
    subprocess.run(f"git archive HEAD | tar -x -C '{TREE}'", cwd=ROOT, shell=True, check=True)
    # Tests that ask git which files there are find them in the copy too.
    subprocess.run("git init -q && git add -A", cwd=TREE, shell=True, check=True)
    for preset, targets in (("tests", ()), ("simulated", ("test_simulated", "conformance"))):
        if not run(["cmake", "--preset", preset], 600) or not build(preset, options.jobs, *targets):
            sys.exit(f"mutants: the unchanged library does not build with the preset {preset}")
    known = programs()

    changes = [change for name in sources() if re.search(options.files, name) for change in changes_of(name)]
    random.Random(options.seed).shuffle(changes)
    counted = noticed = 0
    for change in changes:
        if counted == options.count:
            break
        write(change, to_old=False)
        try:
            outcome = judge(change, known, options.jobs)
        finally:
            write(change, to_old=True)
        if outcome is None:
            continue
        counted += 1
        noticed += outcome != "not noticed"
        name, number, kind, old, new = change
        print(f"{counted}: {name}:{number}: {kind}: {outcome}\n    - {old.strip()}\n    + {new.strip()}", flush=True)
    print(f"{noticed} of {counted} changes were noticed.")


if __name__ == "__main__":
    main()
