#!/usr/bin/env python3
"""Tests the memory orders: weakens one at a time, and lists those whose weakening no program finds.

The orders are those of the operations on shared words in the sources of the libraries. The program of the simulated
tests weakens an order at run time, so it is built once. First it runs each of its programs a few times, and lists the
orders that the program reaches and uses. An order is used if an operation learns by it what another thread has done.
Then each order is weakened to relaxed, and a sequentially consistent one also to the one below. The programs that use
it run, then those that only reach it, those of few steps first, until one finds something. What is found must not be
found without the weakening.

Each result is added to a file in build/orders, so that an interrupted run can be continued. If the program was built
again, all begins anew. The programs that found the orders in former builds run first. When all results are there, the
table is written. An order that is not found must have its reason in tests/simulated/orders.txt.
"""

import argparse
import concurrent.futures
import hashlib
import json
import os
import re
import subprocess
import sys
from collections import Counter
from dataclasses import dataclass

ROOT = os.path.realpath(os.path.join(os.path.dirname(__file__), ".."))
FOLDER = os.path.join(ROOT, "build", "orders")
REASONS = os.path.join(ROOT, "tests", "simulated", "orders.txt")
TABLE = os.path.join(ROOT, "docs", "memory-orders.md")
SOURCES = ["src/platform/common", "src/platform/linux", "src/resmgt", "src/zvbase"]
# Defines the operations, and is not one of them.
NO_SOURCES = {"src/zvbase/platform/shared.h"}

OPERATION = re.compile(r"(?:(?:\.|->)\s*(load|store|exchange|compare_exchange_(?:strong|weak)"
                       r"|fetch_(?:add|sub|and|or|xor))|\b(?<!_)(fence))\s*\(")
NAMED = re.compile(r"(?:\w+::)*(?:memory_order_|Order::)(\w+)")

# An order is given to the programs in rounds, each with so many schedules by each strategy. Each round has an equal
# part of the steps.
ROUNDS = [30, 300, 3000]
# The schedules by each strategy of a program that found the order in a former build.
SCHEDULES_OF_FINDER = 300
STEPS = 20_000_000
SCHEDULES_TO_LEARN = 3


def weaker(operation, order):
    """The orders to which one is weakened."""
    if order == "seq_cst":
        below = {"load": "acquire", "failure": "acquire", "store": "release"}.get(operation, "acq_rel")
        return ["relaxed", below]
    return [] if order == "relaxed" else ["relaxed"]


@dataclass(frozen=True)
class Order:
    """A memory order that the source names."""
    file: str
    line: int
    operation: str  # as the scheduler calls it
    order: str
    text: str  # the call, without line breaks, and with a number if it is not the first of its file

    def place(self):
        return f"{self.file}:{self.line}:{self.operation}"


def without_comments(text):
    """The text with blanks in place of comments and strings, so that all lines keep their places."""
    pattern = re.compile(r"//[^\n]*|/\*.*?\*/|\"(?:\\.|[^\"\\\n])*\"|'(?:\\.|[^'\\\n])'", re.S)
    return pattern.sub(lambda match: re.sub(r"[^\n]", " ", match[0]), text)


def closing(text, opening):
    """The place behind the bracket that closes the one at a place."""
    depth = 0
    for place in range(opening, len(text)):
        depth += (text[place] in "([{") - (text[place] in ")]}")
        if depth == 0:
            return place + 1
    return len(text)


def arguments_of(text):
    """The arguments of a call, without the brackets around them."""
    arguments, depth, begin = [], 0, 0
    for place, letter in enumerate(text):
        depth += (letter in "([{") - (letter in ")]}")
        if letter == "," and depth == 0:
            arguments.append(text[begin:place])
            begin = place + 1
    return [" ".join(argument.split()) for argument in arguments + [text[begin:]]]


def receiver_of(text, end):
    """The expression before a place, on which an operation is called."""
    begin, depth = end, 0
    while begin > 0:
        letter = text[begin - 1]
        if depth == 0 and not (letter.isalnum() or letter in "_.:)]" or text[begin - 2: begin] == "->" or
                               text[begin - 1: begin + 1] == "->"):
            break
        depth += (letter in ")]") - (letter in "([")
        if depth < 0:
            break
        begin -= 1
    return "".join(text[begin:end].split())


def read_orders(name):
    """Yields the orders that a source names."""
    with open(os.path.join(ROOT, name), encoding="utf-8") as source:
        text = without_comments(source.read())
    seen = Counter()
    for match in OPERATION.finditer(text):
        arguments = arguments_of(text[match.end(): closing(text, match.end() - 1) - 1])
        orders = [named[1].lower() for named in map(NAMED.fullmatch, arguments) if named]
        if not orders:
            continue
        values = [argument for argument in arguments if not NAMED.fullmatch(argument)]
        called = match[1] or match[2]
        call = f"{receiver_of(text, match.start())}{'.' if match[1] else ''}{called}({', '.join(values + orders)})"
        call = NAMED.sub(lambda named: named[1].lower(), call)
        seen[call] += 1
        call += f" #{seen[call]}" if seen[call] > 1 else ""
        line = text.count("\n", 0, match.start(1) if match[1] else match.start(2)) + 1
        called = re.sub("_(strong|weak)$", "", called)
        for operation, order in zip((called, "failure"), orders):
            yield Order(name, line, operation, order, call)


def read_all_orders():
    listed = subprocess.run(["git", "ls-files", *SOURCES], cwd=ROOT, capture_output=True, text=True, check=True).stdout
    orders = [order for name in listed.split() if name.endswith((".cpp", ".h")) and name not in NO_SOURCES
              for order in read_orders(name)]
    places = Counter(order.place() for order in orders if order.order != "relaxed")
    if double := [place for place, count in places.items() if count > 1]:
        sys.exit("orders: the scheduler cannot tell two operations on one line apart: " + ", ".join(double))
    return orders


class Explorer:
    """The program of the simulated tests."""

    def __init__(self, path):
        self.path = path

    def run(self, *arguments):
        done = subprocess.run([self.path, "--explore", *map(str, arguments)], capture_output=True, text=True,
                              errors="replace", check=False)
        if done.returncode not in (0, 1):
            sys.exit(f"orders: {' '.join(map(str, arguments))}: {done.stderr}")
        return done.stdout

    def learn(self, *chosen):
        """For each order, the programs that reach it, with their steps, and whether they use it. `chosen` is arguments
        that choose programs."""
        uses, program, steps = {}, None, 0
        for line in self.run("--orders", "--brief", "--schedules", SCHEDULES_TO_LEARN, *chosen).splitlines()[1:]:
            if reached := re.match(r"    (\S+)=\w+(, used)?$", line):
                if program:
                    uses.setdefault(reached[1], {})[program] = (steps, bool(reached[2]))
            elif listed := re.match(r"(\w+) +(\d+) +\d+ +(\d+) +\d+  (.*)", line):
                program, steps = listed[1], int(listed[3]) // max(int(listed[2]), 1)
                if listed[4] != "nothing":
                    print(f"{program} is left out: it finds {listed[4]} although no order is weakened", flush=True)
                    program = None
        return uses

    def find(self, order, to, users, first, steps):
        """The schedule that finds the weakened order, what it finds, and the number of schedules before it. Only the
        number if there is none. `first` is the program that found it in another build, if there is one."""
        schedules = taken = 0
        rounds = [(count, sorted(users, key=lambda one: (not users[one][1], users[one][0], one))) for count in ROUNDS]
        if first in users:
            rounds.insert(0, (SCHEDULES_OF_FINDER, [first]))
        for round_, (count, programs) in enumerate(rounds, 1):
            for program in programs:
                if taken >= steps * round_ // len(rounds):
                    break
                text = self.run("--weaken", f"{order.place()}={to}", "--schedules", count, "--test", program, "--brief")
                listed = re.search(rf"^{program} +(\d+) +\d+ +(\d+)", text, re.M)
                schedules += int(listed[1])
                taken += int(listed[2])
                if found := re.search(rf"^(.*) in ({program}:\S+)$", text, re.M):
                    if "although no order is weakened" not in text:
                        return {"schedule": found[2], "finding": found[1], "schedules": schedules}
                    print(f"{found[2]} finds something although no order is weakened", flush=True)
        return {"schedules": schedules, "steps": steps}


class Results:
    """What has been found, in a file that grows. Its first line is about the build."""

    def __init__(self, program, fresh, path=os.path.join(FOLDER, "results.jsonl")):
        with open(program, "rb") as file:
            self._built = hashlib.sha256(file.read()).hexdigest()
        self._path = path
        self.found = {}
        self.uses = None  # unknown
        self.is_begun = False
        self.finders = {}  # the programs that found the orders, in this build or a former one
        lines = [] if fresh else self._read()
        if not lines:
            return
        head, known = lines[0], {tuple(line.pop("order")): line for line in lines[1:]}
        self.finders = {tuple(key): program for key, program in head["finders"]}
        self.finders |= {key: line["schedule"].split(":")[0] for key, line in known.items() if "schedule" in line}
        if head["program"] == self._built:
            self.uses, self.found, self.is_begun = head["uses"], known, True

    def _read(self):
        """The lines of the file. Removes the end of a last line that was interrupted."""
        if not os.path.exists(self._path):
            return []
        with open(self._path, "r+", encoding="utf-8") as file:
            text = file.read()
            whole = text[:text.rfind("\n") + 1]
            file.truncate(len(whole.encode()))
        return [json.loads(line) for line in whole.splitlines()]

    def begin(self, uses):
        """Begins a file for this build, with what it has found and the programs that found the orders before."""
        self.uses, self.is_begun = uses, True
        os.makedirs(os.path.dirname(self._path), exist_ok=True)
        head = {"program": self._built, "uses": uses, "finders": list(self.finders.items())}
        with open(self._path + ".new", "w", encoding="utf-8") as file:
            file.write(json.dumps(head) + "\n")
            file.writelines(self._line(key) for key in self.found)
        os.replace(self._path + ".new", self._path)

    def has(self, key, steps):
        """Whether there is a result that so many steps do not change."""
        return key in self.found and ("schedule" in self.found[key] or self.found[key]["steps"] >= steps)

    def add(self, key, result):
        self.found[key] = result
        with open(self._path, "a", encoding="utf-8") as file:
            file.write(self._line(key))

    def _line(self, key):
        return json.dumps({"order": key, **self.found[key]}) + "\n"


def read_reasons(path=REASONS):
    """The reasons, by file, call, operation and weaker order. A reason holds for all lines before it without one."""
    reasons, waiting = {}, []
    with open(path, encoding="utf-8") as file:
        for number, line in enumerate(file, 1):
            if line.startswith("#") or not line.strip():
                continue
            if line.startswith("    "):
                for key in waiting:
                    reasons[key] = f"{reasons[key]} {line.strip()}".strip()
                continue
            if not waiting or reasons[waiting[-1]]:
                waiting = []
            match = re.match(r"(\S+) (.*): (\w+) to (\w+)$", line.rstrip("\n"))
            if not match:
                sys.exit(f"{path}:{number}: not \"FILE CALL: OPERATION to ORDER\"")
            waiting.append(match.groups())
            reasons[match.groups()] = ""
    return reasons


def key_of(order, to):
    return order.file, order.text, order.operation, to


def judge(orders, results, reasons):
    """What is wrong with the results or the reasons."""
    wrong = []
    for order in orders:
        for to in weaker(order.operation, order.order):
            key = key_of(order, to)
            is_found = "schedule" in results.found[key]
            if is_found and key in reasons:
                wrong.append(f"has a reason why nothing finds it, and is found: {' '.join(key)}")
            elif not is_found and not reasons.get(key):
                wrong.append(f"is not found, and has no reason: {order.place()} to {to}")
    present = {key_of(order, to) for order in orders for to in weaker(order.operation, order.order)}
    wrong += [f"has a reason, and is not in the source: {' '.join(key)}" for key in reasons if key not in present]
    return wrong


def describe(order, to):
    """The table's cells of an order."""
    failure = " if it fails" if order.operation == "failure" else ""
    text = order.text.replace("|", "\\|")
    return f"| `{text}` | {order.order}{failure} to {to} |"


def write_table(orders, results, reasons):
    rows = [(order, to, results.found.get(key_of(order, to), {}))
            for order in orders for to in weaker(order.operation, order.order)]
    nb_tried = sum(bool(result) for _, _, result in rows)
    missed = [(order, to) for order, to, result in rows if "schedule" not in result]
    with open(TABLE, "w", encoding="utf-8") as table:
        table.write(f"""# Memory orders

`./run orders` writes this page. It weakens each memory order of an operation on a shared word, one at a time, and runs
the [simulated programs](simulated-tests.md) that use it. Of {len(rows)} weakened orders, {nb_tried} have been tried, and
{len(rows) - len(missed)} have been found, in the number of schedules that the table gives. A schedule is valid for one
build. The others follow at the end, each with the reason why no program finds it, if that is known.
""")
        file = None
        for order, to, result in rows:
            if "schedule" not in result:
                continue
            if order.file != file:
                file = order.file
                table.write(f"\n## {file}\n\n| operation | order | found by | as | schedules |\n")
                table.write("|---|---|---|---|---|\n")
            table.write(f"{describe(order, to)} `{result['schedule']}` | {result['finding']} | "
                        f"{result['schedules']} |\n")
        table.write("\n## Not found\n\n" if missed else "")
        file = None
        for order, to in missed:
            if order.file != file:
                file = order.file
                table.write(f"\n`{file}`:\n\n| operation | order | reason |\n|---|---|---|\n")
            reason = reasons.get(key_of(order, to)) or (
                "No program yet." if key_of(order, to) in results.found else "Not tried yet.")
            table.write(f"{describe(order, to)} {reason} |\n")


def main():
    arguments = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    arguments.add_argument("program", help="the program of the simulated tests")
    arguments.add_argument("--place", default="", help="only orders whose FILE:LINE:OPERATION contains this")
    arguments.add_argument("--steps", type=int, default=STEPS,
                           help=f"how many steps are taken before an order counts as not found ({STEPS})")
    arguments.add_argument("--test", action="append", default=[],
                           help="only programs with this in their names. What they do not find is not counted.")
    arguments.add_argument("--table", action="store_true", help="only write the table of what has been tried")
    arguments.add_argument("--fresh", action="store_true", help="forget what was found before")
    arguments.add_argument("--jobs", type=int, default=1, help="how many orders are weakened at the same time (1)")
    options = arguments.parse_args()

    orders = read_all_orders()
    explorer = Explorer(options.program)
    results = Results(options.program, options.fresh)
    if options.table:
        write_table(orders, results, read_reasons())
        return
    uses = results.uses
    if options.test:
        uses = {}
        for text in options.test:
            for place, users in explorer.learn("--test", text).items():
                uses.setdefault(place, {}).update(users)
        if not results.is_begun:
            results.begin(None)
    elif uses is None:
        print("Learning which programs use which orders", flush=True)
        uses = explorer.learn()
        results.begin(uses)
    if unknown := [place for place in uses if place.split(":")[0] in {order.file for order in orders}
                   and place not in {order.place() for order in orders}]:
        sys.exit("orders: these operations are not found in the source: " + ", ".join(sorted(unknown)))

    def search(order, to):
        key, users = key_of(order, to), uses.get(order.place())
        result = {"reached": users is not None,
                  **explorer.find(order, to, users or {}, results.finders.get(key), options.steps)}
        if "schedule" in result or not options.test:
            results.add(key, result)
        how = f"{result['finding']}, {result['schedule']}" if "schedule" in result else \
            "not found" if result["reached"] else "not reached"
        print(f"{order.place()} {order.order} to {to}: {how}, {result['schedules']} schedules", flush=True)

    chosen = [(order, to) for order in orders if options.place in order.place()
              for to in weaker(order.operation, order.order) if not results.has(key_of(order, to), options.steps)
              and (order.place() in uses or not options.test)]
    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        for done in [pool.submit(search, *one) for one in chosen]:
            done.result()
    if options.place or options.test:
        return
    reasons = read_reasons()
    write_table(orders, results, reasons)
    if wrong := judge(orders, results, reasons):
        sys.exit("\n".join(["orders:"] + wrong))


if __name__ == "__main__":
    main()
