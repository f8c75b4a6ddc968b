#!/usr/bin/env python3
"""Tests the tests: changes the library at random, and lists the changes that no test notices.

All changes are compiled into one program, from a copy of the last commit in build/mutants/common. Each changed place asks
at run time whether its change is active. The environment variable ZV_MUTANT has the number of the active change. A place
that cannot ask (a constant expression, a declaration) is changed and built alone, after the others.

Each change is given to the test programs of its own package, then to all others, then to the simulated ones, until one
fails. A failure counts only if, while nothing else runs, the test case passes without the change and fails with it. A
change that does not compile, or that is in none of the test programs, does not count.
"""

import argparse
import bisect
import concurrent.futures
import contextlib
import json
import mmap
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from dataclasses import dataclass

ROOT = os.path.realpath(os.path.join(os.path.dirname(__file__), ".."))
TREE = os.path.join(ROOT, "build", "mutants", "common")

# What stands in the place of what: a pattern, its replacement, and the name of the kind of change.
REPLACEMENTS = [
    (re.compile(r"(?<=\bif \()(?!constexpr)(.+)(?=\)( \{)?$)"), r"!(\1)", "negated condition"),
    (re.compile(r"(?<=\bwhile \()(.+)(?=\)( \{)?$)"), r"!(\1)", "negated condition"),
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
    (re.compile(r"(?<![\w.'])([1-9]\d*)(?![\w.'])"), lambda match: str(int(match[1]) + 1), "changed constant"),
    (re.compile(r"(?<![\w.'])0(?![\w.'])"), "1", "changed constant"),
    (re.compile(r"\btrue\b"), "false", "changed constant"),
    (re.compile(r"\bfalse\b"), "true", "changed constant"),
    # A statement on a line of its own: a call, an assignment, or a jump.
    (re.compile(r"(?<=    )((?:::|\*|\+\+|--)?[a-zA-Z_][\w:.<>*\[\]\->]*(?:\(.*\)| [-+|&^]?= .*|\+\+|--)|throw .*|break"
                r"|continue);$"), ";", "dropped statement"),
]
NOT_CODE = re.compile(r"^\s*(//|\*|/\*|#|template\b|using\b|static_assert|friend\b|namespace\b|class\b|struct\b|enum\b)"
                      r"|\bdelete;|= default;|\bnoexcept\(|\)( const)?( noexcept)? = 0;")
# Lines whose values the compiler has to know.
CONSTANT = re.compile(r"\b(constexpr|constinit|consteval|alignas|case|requires)\b")

# A program with changes asks for its own by this. The choice is read before `main`, and before any other static object.
# A file named by ZV_MUTANTS_REACHED gets a byte for each change whose place is reached.
ASKING = r"""#ifndef ZV_MUTANT
#define ZV_MUTANT(number) zvIsMutant<number>()
#include <cstdlib>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>
inline int zvMutant = 0;
inline char *zvMutantsReached = nullptr;
[[gnu::constructor(101)]] static void zvChooseMutant()
{
    if (char const *number = ::getenv("ZV_MUTANT"))
        zvMutant = ::atoi(number);
    char const *path = ::getenv("ZV_MUTANTS_REACHED");
    int const file = path && !zvMutantsReached ? ::open(path, O_RDWR | O_CLOEXEC) : -1;
    if (file >= 0) {
        zvMutantsReached = static_cast<char *>(::mmap(nullptr, 65536, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0));
        ::close(file);
    }
}
template <int number> [[gnu::noinline]] bool zvIsMutant() noexcept
{
    if (zvMutantsReached)
        zvMutantsReached[number] = 1;
    return zvMutant == number;
}
#endif
#line 1
"""
MOST_CHANGES = 65535

# The presets, with what is built of them. Many sources take longer to optimise than to run, many schedules do not.
PARTS = {"tests": [], "simulated": ["test_simulated", "conformance"]}
OPTIMISED = {"tests": "-O0", "simulated": "-O1"}
# These warnings tell a change that is no change of run time.
ERRORS = "-Werror=return-type -Werror=vla"
# These tests look at sources, objects or the installed tree, where all changes are.
NOT_AT_RUN_TIME = re.compile(r"^(architecture|consumer|objects.*|refused_.*|conformance_finds)$")


@dataclass
class Change:
    file: str
    line: int
    kind: str
    start: int  # where the replaced text starts in its file, and where it ends
    end: int
    text: str
    old: str  # the line as it is, and as it becomes
    new: str
    number: int = 0


@dataclass
class Edit:
    """One place of the common program: the text that asks."""
    change: Change
    start: int
    end: int
    text: str


class Source:
    """A source file, cut into tokens."""

    TOKEN = re.compile(r"//[^\n]*|/\*.*?\*/|R\"\(.*?\)\"|\"(?:\\.|[^\"\\\n])*\"|\.?\d(?:[eE][+-]|'?[\w.])*|\w+"
                       r"|'(?:\\.|[^'\\\n])+'|::|->|<=>|<<=|>>=|&&|\|\||\+\+|--|[-+*/%&|^=!<>]=|\S", re.S)
    # An expression ends at these.
    ENDS = {",", ";", "?", ":", "=", "+=", "-=", "*=", "/=", "%=", "&=", "|=", "^=", "<<=", ">>=",
            "return", "throw", "else", "do", "case", "default"}

    def __init__(self, tree, name):
        with open(os.path.join(tree, name), encoding="utf-8") as text:
            self.text = text.read()
        self.name = name
        tokens = [match for match in self.TOKEN.finditer(self.text) if not match[0].startswith(("//", "/*"))]
        self.words = [match[0] for match in tokens]
        self.starts = [match.start() for match in tokens]
        self.ends = [match.end() for match in tokens]
        self.partner, opened = {}, []
        for index, word in enumerate(self.words):
            if word in ("(", "[", "{"):
                opened.append(index)
            elif word in (")", "]", "}") and opened:
                self.partner[index] = opened.pop()
                self.partner[self.partner[index]] = index

    def lines(self, place):
        """The first and the last line of a change or an edit."""
        return tuple(self.text.count("\n", 0, end) + 1 for end in (place.start, place.end - 1))

    def is_code(self, place):
        """Whether the place is in no comment, string or character."""
        index = bisect.bisect_right(self.starts, place) - 1
        return index < 0 or place >= self.ends[index] or self.words[index][0] not in "\"'R" or self.words[index].isalnum()

    def changes(self):
        begin, before = 0, ""
        for number, line in enumerate(self.text.split("\n"), 1):
            for pattern, replacement, kind in () if NOT_CODE.search(line) else REPLACEMENTS:
                for match in pattern.finditer(line):
                    place = match.start() + (match[0][0] == " ")
                    comment = re.search(r"\s//", line)
                    if (comment and comment.start() < match.end()) or not self.is_code(begin + place):
                        continue
                    if kind == "dropped statement" and (line[: match.start()].strip()
                                                        or not before.endswith((";", "{", "}", ":", ")"))):
                        continue
                    text = match.expand(replacement) if isinstance(replacement, str) else replacement(match)
                    yield Change(self.name, number, kind, begin + match.start(), begin + match.end(), text,
                                 line, line[: match.start()] + text + line[match.end():])
            begin, before = begin + len(line) + 1, line.rstrip()

    def enclosing(self, index):
        """The opening brackets around a token, the innermost first."""
        while index > 0:
            index -= 1
            if self.words[index] in (")", "]", "}"):
                index = self.partner.get(index, 0)
            elif self.words[index] in ("(", "[", "{"):
                yield index

    def is_static(self, index):
        """Whether the token belongs to an object of a namespace, which needs its value before the program runs."""
        for bracket in self.enclosing(index):
            if self.words[bracket - 1].startswith("_") and self.words[bracket - 2] in (":", ","):
                return False  # an initialiser of a constructor's
            if self.words[bracket] == "{" and self.words[bracket - 1] not in ("=", ",", "{", "("):
                head = bracket
                while head > 0 and self.words[head - 1] not in (";", "{", "}"):
                    head -= 1
                return "namespace" in self.words[head:bracket]
        return True

    def expression(self, first, last):
        """The first and the last token of the expression around these two."""
        while first > 0 and self.words[first - 1] not in self.ENDS and self.words[first - 1] not in ("(", "[", "{"):
            before = first - 1
            if self.words[before] == "}" and "\n" in self.text[self.ends[before]: self.starts[first]]:
                break
            if before in self.partner:
                before = self.partner[before]
                if self.words[before - 1] in ("if", "while", "for", "switch", "constexpr"):
                    break
            first = before
        while self.words[last + 1] not in self.ENDS and self.words[last + 1] not in (")", "]", "}"):
            last = self.partner.get(last + 1, last + 1)
        return first, last

    def statement(self, first):
        """The first and the last token of the statement of an assertion around this one, or None. It writes its own text."""
        for bracket in self.enclosing(first):
            if self.words[bracket] == "(" and re.match("ZV_[A-Z_]+$", self.words[bracket - 1]):
                last = self.partner[bracket] + 1
                alone = self.words[bracket - 2] in (";", "{", "}", ")", ":", "else") and self.words[last] == ";"
                return (bracket - 1, last) if alone else (0, 0)
        return None

    def switched(self, change):
        """The edit that makes the change one of run time; None if it cannot be one."""
        first = bisect.bisect_right(self.ends, change.start)
        last = bisect.bisect_left(self.starts, change.end) - 1
        if CONSTANT.search(change.old) or self.is_static(first):
            return None
        asks = f"ZV_MUTANT({change.number})"
        if change.kind == "dropped statement":
            return Edit(change, self.starts[first], self.ends[last],
                        f"{{ if (!{asks}) {{ {self.text[self.starts[first]: self.ends[last]]} }} }}")
        if change.kind == "negated condition":
            return Edit(change, change.start, change.end,
                        f"{asks} != static_cast<bool>({self.text[change.start: change.end]})")
        assertion = self.statement(first)
        first, last = assertion or self.expression(first, last)
        start, end = self.starts[first], self.ends[last]
        old = self.text[start:end]
        new = self.text[start:change.start] + change.text + self.text[change.end:end]
        if first == last == 0 or "//" in old or "\n#" in old:
            return None
        # The lines keep their numbers.
        new = re.sub(r"\s*\n\s*", " ", new)
        form = "{{ if ({}) {{ {} }} else {{ {} }} }}" if assertion else "({} ? ({}) : ({}))"
        return Edit(change, start, end, form.format(asks, new, old))


class Tree:
    """A copy of the last commit, with its builds."""

    def __init__(self, jobs):
        self.folder = TREE
        self.jobs = jobs
        shutil.rmtree(self.folder, ignore_errors=True)
        os.makedirs(self.folder)
        subprocess.run(f"git archive HEAD | tar -x -C '{self.folder}'", cwd=ROOT, shell=True, check=True)
        # Tests that ask git which files there are find them in the copy too.
        subprocess.run("git init -q && git add -A", cwd=self.folder, shell=True, check=True)

    def configure(self):
        for part in PARTS:
            subprocess.run(["cmake", "--preset", part, "-DCMAKE_BUILD_TYPE=Debug", "-DZV_WERROR=OFF",
                            f"-DCMAKE_CXX_FLAGS={ERRORS}", f"-DCMAKE_CXX_FLAGS_DEBUG={OPTIMISED[part]}"],
                           cwd=self.folder, check=True, stdout=subprocess.DEVNULL)

    def build(self, part, targets=(), *options):
        """What the compiler wrote, if the build fails, else None."""
        command = ["cmake", "--build", f"build/{part}", f"-j{self.jobs}"]
        command += ["--target", *(targets or PARTS[part])] if targets or PARTS[part] else []
        done = subprocess.run(command + (["--", *options] if options else []), cwd=self.folder, text=True, errors="replace",
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
        return done.stdout if done.returncode else None

    def tests(self, part):
        listed = subprocess.run(["ctest", "--test-dir", f"build/{part}", "--show-only=json-v1"], cwd=self.folder,
                                capture_output=True, check=True).stdout
        return [Test(part, test["name"], test["command"]) for test in json.loads(listed)["tests"]
                if not NOT_AT_RUN_TIME.match(test["name"])]

    def read(self, name):
        return Source(self.folder, name)

    def write(self, name, text):
        with open(os.path.join(self.folder, name), "w", encoding="utf-8") as file:
            file.write(text)


class Test:
    """One test program. Its numbers are those of the changes that it reaches."""

    def __init__(self, part, name, command):
        self.part, self.name, self.command = part, name, command
        self.seconds = 0.0
        self.numbers = set()

    def is_near(self, change):
        return self.part == "tests" and self.name in change.file.split("/")

    def order(self, change):
        """What is given the change first: its own package, then what is quick."""
        return not self.is_near(change), self.part == "simulated", self.seconds

    def fails(self, cases="*", limit=1800.0, **variables):
        """Runs test cases in a folder of their own, and ends whatever they started. Returns the first case that fails, or
        that has not ended within its limit, and None if there is none."""
        with tempfile.TemporaryDirectory() as folder, tempfile.TemporaryFile() as output:
            environment = dict(os.environ, TMPDIR=folder, TEST_TMPDIR=folder, GTEST_FILTER=cases, **variables)
            # A change may ask for all memory.
            process = subprocess.Popen(["prlimit", "--data=6000000000", "--core=0", *self.command], cwd=folder,
                                       env=environment, stdin=subprocess.DEVNULL, stdout=output,
                                       stderr=subprocess.DEVNULL, start_new_session=True)
            try:
                if process.wait(limit) == 0:
                    return None
            except subprocess.TimeoutExpired:
                pass
            finally:
                with contextlib.suppress(ProcessLookupError):
                    os.killpg(process.pid, signal.SIGKILL)
                process.wait()
            output.seek(0)
            text = output.read(100_000_000).decode(errors="replace")
            failed = re.findall(r"^\[  FAILED  \] ([^\s,]+)", text, re.MULTILINE)
            begun = re.findall(r"^\[ RUN      \] (\S+)", text, re.MULTILINE)
            return (failed[:1] or begun[-1:] or ["*"])[0]

    def notices(self, change):
        """The case that fails with the change, or None. Other tests may run beside it."""
        return self.fails("*", 5 * self.seconds + 20, ZV_MUTANT=str(change.number), GTEST_FAIL_FAST="1")

    def confirms(self, change, case):
        """Whether the case, twice in turn, passes without the change and fails with it. Nothing else may run."""
        for _ in range(2):
            began = time.monotonic()
            if self.fails(case):
                return False
            limit = 20 * (time.monotonic() - began) + 10
            if not self.fails(case, limit, ZV_MUTANT=str(change.number)):
                return False
        return True

    def measure(self, most):
        """Runs it without a change, and notes its time and what it reaches. Returns the case that fails, or None."""
        with tempfile.NamedTemporaryFile() as file:
            file.truncate(most)
            began = time.monotonic()
            failed = self.fails(ZV_MUTANTS_REACHED=file.name)
            self.seconds = max(time.monotonic() - began, 0.01)
            with mmap.mmap(file.fileno(), most) as reached:
                self.numbers = {number for number in range(most) if reached[number]}
        return failed


class Report:
    """What is printed of each change, and the sums."""

    def __init__(self):
        self._counts = {}

    def add(self, change, outcome, who):
        self._counts[who] = self._counts.get(who, 0) + 1
        print(f"{sum(self._counts.values())}: {change.file}:{change.line}: {change.kind}: {outcome}\n"
              f"    - {change.old.strip()}\n    + {change.new.strip()}", flush=True)

    def close(self):
        for who, count in sorted(self._counts.items()):
            print(f"{count} {who}")
        counted = sum(self._counts.values())
        print(f"{counted - self._counts.get('not noticed', 0)} of {counted} changes were noticed.")


def first_failure(change, tests):
    """The first of the tests that fails with the change, with its case, and the tests after it; None if all pass."""
    for index, test in enumerate(tests):
        if case := test.notices(change):
            return test, case, tests[index + 1:]
    return None


def judge(changes, tests, jobs, report):
    """Gives each change of the common program to the tests that reach it."""
    reaching = {change.number: sorted((test for test in tests if change.number in test.numbers),
                                      key=lambda test: test.order(change)) for change in changes}
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        failures = list(pool.map(lambda change: first_failure(change, reaching[change.number]), changes))
    # What failed beside others has to fail alone, one case after the other.
    for change, failure in zip(changes, failures):
        while failure:
            test, case, rest = failure
            if test.confirms(change, case) or (case != "*" and test.confirms(change, "*")):
                report.add(change, f"noticed by {test.name}, {case}", by(test, change))
                break
            print(f"{change.file}:{change.line}: {test.name}, {case} failed once, without a cause", flush=True)
            failure = first_failure(change, rest)
        else:
            names = ", ".join(test.name for test in reaching[change.number])
            report.add(change, f"not noticed, reached by {names or 'no test'}", "not noticed")


def by(test, change):
    if test.is_near(change):
        return "noticed by the tests of their own packages"
    return "noticed by the simulated tests" if test.part == "simulated" else "noticed by the tests of other packages"


def judge_alone(change, tree, source, edits, tests, report):
    """Makes one more change in the common program, and gives it to all tests. False if it does not compile."""
    write_common(tree, source, edits + [Edit(change, change.start, change.end, change.text)])
    try:
        built = set()
        for test in sorted(tests, key=lambda test: test.order(change)):
            targets = [f"test_{test.name}"] if test.is_near(change) else []
            if (test.part, *targets) not in built and tree.build(test.part, targets):
                return False
            built.add((test.part, *targets))
            if (case := test.notices(change)) and test.fails(case, 5 * test.seconds + 20):
                report.add(change, f"built alone, noticed by {test.name}, {case}", by(test, change))
                return True
        report.add(change, "built alone, not noticed", "not noticed")
        return True
    finally:
        write_common(tree, source, edits)


def choose(tree, options):
    """Random changes, with their edits. None of them stands within the place of another."""
    listed = subprocess.run(["git", "ls-files", "src/zvbase", "src/resmgt"], cwd=ROOT, capture_output=True, text=True,
                            check=True).stdout.split()
    sources = {name: tree.read(name) for name in listed
               if name.endswith((".cpp", ".h")) and re.search(options.files, name)}
    changes = [change for source in sources.values() for change in source.changes()]
    random.Random(options.seed).shuffle(changes)
    taken, chosen, edits = {}, [], []
    for change in changes:
        if len(chosen) == options.count:
            break
        change.number = len(chosen) + 1
        edit = sources[change.file].switched(change)
        place = sources[change.file].lines(edit or change)
        if any(place[0] <= other[1] and other[0] <= place[1] for other in taken.setdefault(change.file, [])):
            continue
        taken[change.file].append(place)
        chosen.append(change)
        if edit:
            edits.append(edit)
    return sources, chosen, edits


def write_common(tree, source, edits):
    """Writes a file with the edits of it."""
    text = source.text
    for edit in sorted((edit for edit in edits if edit.change.file == source.name), key=lambda edit: -edit.start):
        text = text[: edit.start] + edit.text + text[edit.end:]
    tree.write(source.name, text if text == source.text else ASKING + text)


def build_common(tree, sources, edits):
    """Builds the common program, and returns the edits that are in it. The compiler names the others."""
    for name in {edit.change.file for edit in edits}:
        write_common(tree, sources[name], edits)
    for part, targets in (("tests", ["zvbase_objects", "zvresmgt_objects"]), ("tests", []), ("simulated", [])):
        while wrong := tree.build(part, targets, "-k", "0"):
            # The errors first, then what else the compiler says of the way to them.
            for pattern in (r"(src/\S+?):(\d+):\d+: error:", r"(src/\S+?):(\d+):"):
                named = {(name, int(line)) for name, line in re.findall(pattern, wrong)}
                refused = [edit for edit in edits if any(
                    name == edit.change.file and sources[name].lines(edit)[0] <= line <= sources[name].lines(edit)[1]
                    for name, line in named)]
                if refused:
                    break
            if not refused:
                sys.exit(f"{wrong}\nmutants: the common program does not build")
            edits = [edit for edit in edits if edit not in refused]
            for name in {edit.change.file for edit in refused}:
                write_common(tree, sources[name], edits)
    programs = [program for part in PARTS for test in tree.tests(part) for program in test.command if os.path.isfile(program)]
    symbols = subprocess.run(["nm", *programs], capture_output=True, text=True, check=False).stdout
    built = {int(number) for number in re.findall(r"_Z10zvIsMutantILi(\d+)E", symbols)}
    return edits, built


def main():
    arguments = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    arguments.add_argument("count", nargs="?", type=int, default=50, help="how many changes are chosen (50)")
    arguments.add_argument("--seed", type=int, default=1, help="chooses the changes (1)")
    arguments.add_argument("--files", default="", help="a regular expression that the changed files match")
    arguments.add_argument("--jobs", type=int, default=os.cpu_count(), help="how many compilers and tests run at once")
    options = arguments.parse_args()
    if options.count >= MOST_CHANGES:
        sys.exit(f"mutants: one program holds fewer than {MOST_CHANGES} changes")

    tree = Tree(options.jobs)
    sources, chosen, edits = choose(tree, options)
    tree.configure()
    edits, built = build_common(tree, sources, edits)
    common = [edit.change for edit in edits]
    alone = [change for change in chosen if change not in common]
    absent = [change for change in common if change.number not in built]
    print(f"{len(chosen)} changes: {len(common) - len(absent)} in one program, {len(alone)} to be built alone, "
          f"{len(absent)} in no test program", flush=True)
    for change in absent:
        print(f"in no test program: {change.file}:{change.line}: {change.kind}")

    tests = [test for part in PARTS for test in tree.tests(part)]
    for test in tests:
        if case := test.measure(MOST_CHANGES + 1):
            sys.exit(f"mutants: {test.name} ({test.part}) fails without a change: {case}")
    report = Report()
    present = [change for change in common if change.number in built]
    for begin in range(0, len(present), 8 * options.jobs):
        judge(present[begin: begin + 8 * options.jobs], tests, options.jobs, report)
    refused = sum(not judge_alone(change, tree, sources[change.file], edits, tests, report) for change in alone)
    print(f"{refused} do not compile")
    report.close()


if __name__ == "__main__":
    main()
