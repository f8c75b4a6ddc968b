#!/usr/bin/env python3
"""Runs the benchmarks and prints one table: ours, the peer's, the ratio, and what it should be.

Each row names benchmarks of one program: ours, and one or several peers, the fastest of which counts. NAME#COUNTER
names a counter in microseconds instead of the time.
Figures are medians of repetitions that were run in random order. Times of a shared machine vary from run to run; the
ratios are what counts."""

import argparse
import datetime
import fnmatch
import json
import os
import pathlib
import random
import re
import resource
import statistics
import subprocess
import sys


class Row:
    def __init__(self, title, ours, peer, aim=None, limit=None):
        """`peer` is a name or a list of names. `aim` is the largest good ratio, `limit` the largest good time of ours
        in microseconds."""
        self.title, self.ours, self.aim, self.limit = title, ours, aim, limit
        self.peers = [peer] if isinstance(peer, str) else peer


def tree_rows():
    rows = []
    for size in (10, 100, 1000):
        ours, peer = (f"tree/{kind}/{size}/manual_time#" for kind in ("devices", "pthreads"))
        for phase in ("open", "start", "lock", "stop", "close"):
            rows.append(Row(f"{size} devices, each: {phase}", ours + phase, peer + phase, 1.3))
        rows.append(Row(f"{size} devices, each: whole", ours + "whole", peer + "whole", 1.3))
        rows.append(Row(f"{size} devices, each: processor time", ours + "processor", peer + "processor", 1.3))
        for counter, title in (("whole", "whole"), ("processor", "processor time")):
            rows.append(Row(f"{size} devices, supervised / plain: {title}",
                            f"tree/supervised/{size}/manual_time#{counter}", ours + counter, aim=1.1))
    for counter, title in (("whole", "whole"), ("processor", "processor time")):
        rows.append(Row(f"each of 1000 devices / each of 10: {title}", f"tree/devices/1000/manual_time#{counter}",
                        f"tree/devices/10/manual_time#{counter}", aim=1.5))
    return rows


def queue_rows():
    rows = []
    for kind, subject, places in (("queue", "MtContainer", ("1, 1", "4, 4")),
                                  ("requests", "DevMDStdFifo", ("1, 1", "4, 1"))):
        for place in places:
            ours, *peers = (f"{kind} {place}/{name}/manual_time#item" for name in (subject, "TBB", "moodycamel"))
            producers, consumers = place.split(", ")
            rows.append(Row(f"{kind}, {producers} to {consumers} threads: {subject} / TBB, moodycamel", ours, peers, 1.0))
    return rows


def hop_rows():
    rows = []
    for where, title, aim in (("hop1", "one core", {"aim": 1.1}), ("hop2", "two cores", {"limit": 3})):
        ours = f"{where}/ANO and ACO/real_time"
        rows.append(Row(f"round trip, {title}: ANO, ACO / futex", ours, f"{where}/futex/real_time", **aim))
        rows.append(Row(f"round trip, {title}: ANO, ACO / condition variables", ours,
                        f"{where}/condition variables/real_time"))
    rows.append(Row("hand-overs under full load: LkUnnamedSema / sem_t", "full load/LkUnnamedSema/real_time",
                    "full load/sem_t/real_time", 1.1))
    rows.append(Row("processor time of an idle thread's wake-up: LkUnnamedSema / sem_t",
                    "idle/LkUnnamedSema/real_time#processor", "idle/sem_t/real_time#processor", 1.1))
    return rows


def memory_rows():
    rows = [
        Row("hold a loaded buffer: MbBufferRdGuardImp / std::shared_mutex, std::shared_ptr",
            "hold/MbBufferRdGuardImp", "hold/std::shared_mutex", 1.1),
        Row("hold a locked buffer: MbBufferRdGuardImp / std::shared_mutex, std::shared_ptr",
            "holdAgain/MbBufferRdGuardImp", "holdAgain/std::shared_mutex", 0.8),
    ]
    for manager in ("MbHeapManager", "MbArenaManager"):
        for peer in ("std::map", "std::unordered_map"):
            rows.append(Row(f"load under pressure: {manager} / {peer}, std::list, std::mutex", f"load/{manager}",
                            f"load/{peer}", 1.0 if peer == "std::unordered_map" else None))
    for size in (10, 100, 1000, 10000, 100000):
        ours = f"arena/DaArenaPool/{size}"
        rows.append(Row(f"exchange one of {size} blocks: DaArenaPool / rbtree_best_fit", ours,
                        f"arena/rbtree_best_fit/{size}", 0.9))
        rows.append(Row(f"exchange one of {size} blocks: DaArenaPool / malloc", ours, f"arena/malloc/{size}", 1.3))
    for size in (10, 100, 1000, 10000, 100000):
        rows.append(Row(f"allocate beside {size} blocks, 99.9 %: DaArenaPool / malloc", f"slow/DaArenaPool/{size}#p999",
                        f"slow/malloc/{size}#p999", 1.0))
    return rows


def alarm_rows():
    rows = []
    for size in (10, 1000, 100000):
        ours = f"alarm/MtAlarmManager/{size}"
        rows.append(Row(f"alarm beside {size}: MtAlarmManager / libuv", ours, f"alarm/libuv/{size}", 1.0))
        rows.append(Row(f"alarm beside {size}: MtAlarmManager / libuv, lock and clock", ours,
                        f"alarm/libuv, lock and clock/{size}", 0.8))
    return rows


def trace_rows():
    rows = []
    medians = {"burst": 0.06, "steady": 0.1}
    for pace in ("burst", "steady"):
        for counter, title, limit in (("median", "median", medians[pace]), ("p999", "99.9 %", 1.0)):
            rows.append(Row(f"trace line, {pace}, {title}: Trace / spdlog", f"trace {pace}/ours/real_time#{counter}",
                            f"trace {pace}/spdlog/real_time#{counter}", limit=limit))
    for pace in ("burst", "steady"):
        rows.append(Row(f"trace event, {pace}, median: TraceEvents / trace line",
                        f"trace {pace}/event/real_time#median", f"trace {pace}/ours/real_time#median", 1.0))
    rows.append(Row("trace event that is off: TraceEvents / empty loop", "trace event/off", "trace event/empty loop", limit=0.003))
    return rows


def pacing_rows():
    rows = []
    aims = {"beat in real time": (1.3, 1.3), "beat": (2.4, None)}
    for where, (median, p99) in aims.items():
        for counter, title, aim in (("median", "median", median), ("p99", "99 %", p99)):
            rows.append(Row(f"late after a {where}, {title}: client / cyclictest", f"{where}/client/real_time#{counter}",
                            f"{where}/cyclictest/real_time#{counter}", aim))
    return rows


PROGRAMS = {
    "lockBench": [
        Row("lock: LkMutex / std::recursive_mutex", "lock/LkMutex", "lock/std::recursive_mutex", 0.9),
        Row("lock: LkLock / std::recursive_mutex", "lock/LkLock", "lock/std::recursive_mutex", 0.9),
        Row("lock: LkRecLock / std::recursive_mutex", "lock/LkRecLock", "lock/std::recursive_mutex", 0.9),
        Row("lock: LkMutex / std::mutex", "lock/LkMutex", "lock/std::mutex"),
        Row("lock: LkLock / std::mutex", "lock/LkLock", "lock/std::mutex"),
        Row("lock: LkRecLock / std::mutex", "lock/LkRecLock", "lock/std::mutex"),
        Row("lock again: LkMutex / std::recursive_mutex", "lockAgain/LkMutex", "lockAgain/std::recursive_mutex"),
        Row("lock again: LkLock / std::recursive_mutex", "lockAgain/LkLock", "lockAgain/std::recursive_mutex"),
        Row("lock again: LkRecLock / std::recursive_mutex", "lockAgain/LkRecLock",
            "lockAgain/std::recursive_mutex"),
        Row("read: LkRwLock / std::shared_mutex", "read/LkRwLock", "read/std::shared_mutex", 1.0),
        Row("write: LkRwLock / std::shared_mutex", "write/LkRwLock", "write/std::shared_mutex", 1.0),
        Row("post, wait: LkUnnamedSema / sem_t", "sema/LkUnnamedSema", "sema/sem_t", 1.0),
        Row("post, wait: LkUnnamedSema / std::counting_semaphore", "sema/LkUnnamedSema",
            "sema/std::counting_semaphore"),
        Row("post, wait: LkSema / std::counting_semaphore", "sema/LkSema", "sema/std::counting_semaphore"),
        Row("post, wait: LkSema / sem_t", "sema/LkSema", "sema/sem_t", 1.2),
    ],
    "hopBench": hop_rows(),
    "engineBench": [
        Row("event: DevSMExecutionEng / by hand", "event/DevSMExecutionEng", "event/by hand", 3.0),
        Row("event with a choice: DevSMExecutionEng / by hand", "choice/DevSMExecutionEng", "choice/by hand", 3.0),
    ],
    "valueBench": [
        Row("copy 8 bytes: LiString / std::string", "shortText/LiString", "shortText/std::string"),
        Row("copy 71 bytes: LiString / std::string", "longText/LiString", "longText/std::string"),
        Row("copy: RCShdPtr / std::shared_ptr", "pointer/RCShdPtr", "pointer/std::shared_ptr", 1.0),
    ],
    "treeBench": tree_rows(),
    "queueBench": queue_rows(),
    "memoryBench": memory_rows(),
    "alarmBench": alarm_rows(),
    "traceBench": trace_rows(),
    "pacingBench": pacing_rows(),
    "xmlBench": [
        Row("XML as it passes: XmlParserProtocolSax / expat", "xmlPass/ours", "xmlPass/expat", 0.25),
        Row("XML into a document: XmlDocument / tinyxml2", "xmlRead/ours", "xmlRead/tinyxml2", 0.34),
        Row("XML into a document: XmlDocument / pugixml", "xmlRead/ours", "xmlRead/pugixml", 1.0),
        Row("XML from a document: XmlDocument / pugixml", "xmlWrite/ours", "xmlWrite/pugixml", 0.5),
    ],
    "compiling": [
        Row("compile #include: <resmgt/deviceManager.h> / <iostream>", "compile/resmgt/deviceManager.h",
            "compile/iostream", 1.0),
    ],
}

COMPILED_HEADERS = ("resmgt/deviceManager.h", "iostream")

UNITS = {"ns": 1e-3, "us": 1.0, "ms": 1e3, "s": 1e6}  # in microseconds


def measure(program, options):
    """The figures of each benchmark and counter in microseconds, one for each repetition."""
    command = [program, f"--benchmark_repetitions={options.repetitions}",
               "--benchmark_enable_random_interleaving=true", f"--benchmark_min_time={options.min_time}",
               "--benchmark_format=json", *options.rest]
    done = subprocess.run(command, stdout=subprocess.PIPE)
    if done.returncode != 0:
        sys.exit(f"{program} failed: {done.returncode}")
    figures = {}
    for run in json.loads(done.stdout)["benchmarks"]:
        if run["run_type"] != "iteration" or run.get("error_occurred"):
            continue
        name = re.sub("/(iterations|repeats):[0-9]+", "", run["run_name"])
        # One thread alone is measured by its processor time, which others who use the machine hardly change.
        clock = "real_time" if name.endswith(("/real_time", "/manual_time")) else "cpu_time"
        figures.setdefault(name, []).append(run[clock] * UNITS[run["time_unit"]])
        for counter in ("open", "start", "lock", "stop", "close", "whole", "processor", "median", "p99",
                        "p999", "item"):
            if counter in run:
                figures.setdefault(f"{name}#{counter}", []).append(run[counter])
    return figures


def measure_compiling(options):
    """The processor time in which the compiler reads a header, in microseconds, in the order of `measure`."""
    include = pathlib.Path(__file__).resolve().parent.parent / "src"
    command = ["g++", "-std=c++20", "-fsyntax-only", "-I", include, "-x", "c++", "-"]
    processor = {min(os.sched_getaffinity(0))}
    figures = {f"compile/{header}": [] for header in COMPILED_HEADERS}
    for _ in range(3 * options.repetitions):
        for header in random.sample(COMPILED_HEADERS, len(COMPILED_HEADERS)):
            before = resource.getrusage(resource.RUSAGE_CHILDREN).ru_utime
            subprocess.run(command, input=f"#include <{header}>\n", text=True, check=True,
                           preexec_fn=lambda: os.sched_setaffinity(0, processor))
            used = resource.getrusage(resource.RUSAGE_CHILDREN).ru_utime - before
            figures[f"compile/{header}"].append(used * UNITS["s"])
    return figures


def time_text(microseconds):
    if microseconds < 1:
        return f"{microseconds * 1000:.1f} ns"
    if microseconds < 1000:
        return f"{microseconds:.1f} us"
    return f"{microseconds / 1000:.1f} ms"


def medians(row, figures):
    """The times of ours and of the faster peer in microseconds, or None if one of them was not measured."""
    if not {row.ours, *row.peers} <= figures.keys():
        return None
    return statistics.median(figures[row.ours]), min(statistics.median(figures[name]) for name in row.peers)


def save(file, rows, options):
    """Writes the rows with both times in microseconds, and where and when they were measured, for picture.py."""
    heads = ("program", "title", "ours", "peer")
    file.write_text(json.dumps({
        "machine": f"{os.cpu_count()} x {processor_name()}",
        "date": datetime.date.today().isoformat(),
        "repetitions": options.repetitions,
        "rows": [dict(zip(heads, row)) for row in rows],
    }, indent=1) + "\n")


def cells(row, figures):
    times = medians(row, figures)
    if times is None:
        return [row.title, "-", "-", "-", "", "not measured"]
    ours, peer = times
    ratio = ours / peer
    aim, misses = "", False
    if row.aim is not None:
        aim, misses = f"<= {row.aim:g}", ratio > row.aim
    elif row.limit is not None:
        aim, misses = f"< {row.limit:g} us", ours >= row.limit
    return [row.title, time_text(ours), time_text(peer), f"{ratio:.2f}", aim, "missed" if misses else ""]


def processor_name():
    for line in pathlib.Path("/proc/cpuinfo").read_text().splitlines():
        if line.startswith("model name"):
            return line.split(":", 1)[1].strip()
    return os.uname().machine


def print_table(rows):
    heads = ["row (ours / peer)", "ours", "peer", "ratio", "aim", ""]
    widths = [max(len(row[i]) for row in [heads, *rows]) for i in range(len(heads))]
    for row in [heads, ["-" * width for width in widths], *rows]:
        print("  ".join(cell.ljust(width) if i in (0, 4, 5) else cell.rjust(width)
                        for i, (cell, width) in enumerate(zip(row, widths))).rstrip())


def main():
    parser = argparse.ArgumentParser(description="Runs the benchmarks and prints one table of ratios.")
    parser.add_argument("folder", type=pathlib.Path, help="where the programs stand")
    parser.add_argument("--quick", action="store_true", help="3 short repetitions: for a first look")
    parser.add_argument("--repetitions", type=int, help="default 7")
    parser.add_argument("--only", metavar="PATTERN", default="*", help="programs to run, such as lock*")
    parser.add_argument("--save", metavar="FILE", type=pathlib.Path, help="also write the rows as JSON")
    parser.add_argument("--check", action="store_true", help="fail where an aim is missed or a row was not measured")
    parser.add_argument("rest", nargs="*", help="options for the programs, after --")
    options = parser.parse_args()
    options.repetitions = options.repetitions or (3 if options.quick else 7)
    options.min_time = 0.02 if options.quick else 0.1

    load = os.getloadavg()[0]
    print(f"{len(os.sched_getaffinity(0))} of {os.cpu_count()} processors, {processor_name()}, load {load:.1f}; "
          f"medians of {options.repetitions}\n", flush=True)
    rows, measured = [], []
    for program, program_rows in PROGRAMS.items():
        if fnmatch.fnmatch(program, options.only):
            print(f"running {program}", file=sys.stderr)
            figures = (measure_compiling(options) if program == "compiling"
                       else measure(options.folder / program, options))
            rows += [cells(row, figures) for row in program_rows]
            measured += [(program, row.title, *medians(row, figures)) for row in program_rows if medians(row, figures)]
    print_table(rows)
    if options.save:
        save(options.save, measured, options)
    aimed = [row for row in rows if row[4] or row[5]]
    failed = [row for row in aimed if row[5]]
    print(f"\n{len(aimed) - len(failed)} of {len(aimed)} aims met")
    if options.check and failed:
        sys.exit(1)


if __name__ == "__main__":
    main()
