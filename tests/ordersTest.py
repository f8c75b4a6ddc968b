#!/usr/bin/env python3
"""Tests orders.py without the simulated programs: how it reads a source, continues what it has begun, and judges."""

import contextlib
import io
import os
import tempfile
import unittest
from types import SimpleNamespace

import orders
from orders import Order, Results, judge, key_of

ACQUIRE = Order("src/a.cpp", 7, "load", "acquire", "_word.load(acquire)")
RELEASE = Order("src/a.cpp", 9, "store", "release", "_word.store(1, release)")
STRONG = Order("src/b.cpp", 3, "load", "seq_cst", "_word.load(seq_cst)")
FOUND = {"reached": True, "schedule": "Program:random:seed=3", "finding": "data race", "schedules": 3}
MISSED = {"reached": True, "schedules": 30, "steps": 1000}


def temporary(test, text):
    """The path of a file that is removed at the end of a test."""
    folder = tempfile.TemporaryDirectory()
    test.addCleanup(folder.cleanup)
    path = os.path.join(folder.name, "file")
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)
    return path


class Judge(unittest.TestCase):
    def judge(self, found, reasons):
        results = SimpleNamespace(found={key_of(*one): result for one, result in found.items()})
        return judge(list(dict.fromkeys(order for order, _ in found)), results,
                     {key_of(*one): reason for one, reason in reasons.items()})

    def test_accepts_what_is_found_and_what_has_a_reason(self):
        self.assertEqual(self.judge({(ACQUIRE, "relaxed"): FOUND, (RELEASE, "relaxed"): MISSED},
                                    {(RELEASE, "relaxed"): "A reason."}), [])

    def test_names_what_is_not_found(self):
        self.assertEqual(self.judge({(ACQUIRE, "relaxed"): MISSED}, {}),
                         ["is not found, and has no reason: src/a.cpp:7:load to relaxed"])

    def test_wants_a_text_as_the_reason(self):
        self.assertEqual(len(self.judge({(ACQUIRE, "relaxed"): MISSED}, {(ACQUIRE, "relaxed"): ""})), 1)

    def test_names_reasons_that_do_not_hold(self):
        wrong = self.judge({(ACQUIRE, "relaxed"): FOUND}, {(ACQUIRE, "relaxed"): "A reason."})
        self.assertEqual(wrong, ["has a reason why nothing finds it, and is found: "
                                 "src/a.cpp _word.load(acquire) load relaxed"])

    def test_names_reasons_of_orders_that_are_gone(self):
        wrong = self.judge({(ACQUIRE, "relaxed"): FOUND}, {(RELEASE, "relaxed"): "A reason."})
        self.assertEqual(wrong, ["has a reason, and is not in the source: "
                                 "src/a.cpp _word.store(1, release) store relaxed"])

    def test_looks_at_each_weaker_order(self):
        self.assertEqual(self.judge({(STRONG, "relaxed"): FOUND, (STRONG, "acquire"): MISSED}, {}),
                         ["is not found, and has no reason: src/b.cpp:3:load to acquire"])


class Continuation(unittest.TestCase):
    USES = {ACQUIRE.place(): {"Program": [100, True]}}
    KEY = key_of(ACQUIRE, "relaxed")
    OTHER = key_of(RELEASE, "relaxed")

    def setUp(self):
        self.program = temporary(self, "a build")
        self.path = os.path.join(os.path.dirname(self.program), "results", "all.jsonl")

    def open(self, fresh=False):
        return Results(self.program, fresh, self.path)

    def begin(self):
        results = self.open()
        results.begin(self.USES)
        results.add(self.KEY, FOUND)
        results.add(self.OTHER, MISSED)

    def build_again(self):
        with open(self.program, "a", encoding="utf-8") as file:
            file.write(" and another one")

    def test_begins_with_nothing(self):
        results = self.open()
        self.assertIsNone(results.uses)
        self.assertEqual((results.found, results.finders), ({}, {}))

    def test_goes_on_with_what_was_found(self):
        self.begin()
        results = self.open()
        self.assertEqual(results.uses, self.USES)
        self.assertEqual(results.found, {self.KEY: FOUND, self.OTHER: MISSED})
        self.assertEqual(results.finders, {self.KEY: "Program"})

    def test_repeats_only_what_more_steps_may_find(self):
        self.begin()
        results = self.open()
        self.assertTrue(results.has(self.KEY, 5000))
        self.assertTrue(results.has(self.OTHER, 1000))
        self.assertFalse(results.has(self.OTHER, 1001))

    def test_another_build_keeps_only_the_finders(self):
        self.begin()
        self.build_again()
        results = self.open()
        self.assertIsNone(results.uses)
        self.assertEqual(results.found, {})
        self.assertEqual(results.finders, {self.KEY: "Program"})

    def test_a_build_that_found_nothing_yet_keeps_the_finders(self):
        self.begin()
        self.build_again()
        self.open().begin({})
        self.build_again()
        self.assertEqual(self.open().finders, {self.KEY: "Program"})

    def test_learning_keeps_what_was_found(self):
        self.begin()
        results = self.open()
        results.begin({})
        self.assertEqual((self.open().uses, self.open().found), ({}, {self.KEY: FOUND, self.OTHER: MISSED}))

    def test_forgets_all_if_that_is_wanted(self):
        self.begin()
        results = self.open(fresh=True)
        self.assertEqual((results.uses, results.found, results.finders), (None, {}, {}))

    def test_drops_a_line_that_was_interrupted(self):
        self.begin()
        with open(self.path, "a", encoding="utf-8") as file:
            file.write('{"order": ["src/a.cpp", "_wo')
        results = self.open()
        self.assertEqual(len(results.found), 2)
        results.add(key_of(STRONG, "relaxed"), FOUND)
        self.assertEqual(len(self.open().found), 3)


class Search(unittest.TestCase):
    def explored(self, output, users, first=None):
        """What the search finds, and the arguments of its runs. `output` gives the output for a program."""
        explorer, runs = orders.Explorer(""), []

        def run(*arguments):
            named = dict(zip(arguments[::2], arguments[1::2]))
            runs.append((named["--test"], named["--schedules"]))
            return output(named["--test"])
        explorer.run = run
        with contextlib.redirect_stdout(io.StringIO()):
            return explorer.find(ACQUIRE, "relaxed", users, first, 3000), runs

    @staticmethod
    def nothing(program):
        return f"{program} 10 0 500 0  nothing\n"

    def test_begins_with_the_users_of_few_steps(self):
        users = {"Long": (90, True), "Other": (10, False), "Short": (20, True)}
        result, runs = self.explored(self.nothing, users)
        self.assertEqual([program for program, _ in runs[:2]], ["Short", "Long"])
        self.assertEqual(result, {"schedules": 10 * len(runs), "steps": 3000})

    def test_begins_with_the_former_finder(self):
        users = {"Short": (20, True), "Finder": (90, False)}
        result, runs = self.explored(
            lambda program: self.nothing(program) if program == "Short" else
            "Finder 7 0 300 0  data race\ndata race in Finder:random:seed=7\n", users, "Finder")
        self.assertEqual(runs, [("Finder", orders.SCHEDULES_OF_FINDER)])
        self.assertEqual(result, {"schedule": "Finder:random:seed=7", "finding": "data race", "schedules": 7})

    def test_does_not_count_what_is_found_without_the_weakening(self):
        result, _ = self.explored(
            lambda program: "P 7 0 300 0  data race\ndata race in P:random:seed=7\n"
            "It is found although no order is weakened\n", {"P": (20, True)})
        self.assertNotIn("schedule", result)


class Source(unittest.TestCase):
    def test_names_each_order_of_each_call(self):
        path = temporary(self, """// _old.load(Order::ACQUIRE)
_word.store(1, Order::RELEASE);
while (!_word.compare_exchange_strong(word, next(word), Order::ACQ_REL,
                                      Order::RELAXED)) {}
_word.store(1, Order::RELEASE);
fence(Order::SEQ_CST);
""")
        self.assertEqual([(one.line, one.operation, one.order, one.text) for one in orders.read_orders(path)], [
            (2, "store", "release", "_word.store(1, release)"),
            (3, "compare_exchange", "acq_rel",
             "_word.compare_exchange_strong(word, next(word), acq_rel, relaxed)"),
            (3, "failure", "relaxed", "_word.compare_exchange_strong(word, next(word), acq_rel, relaxed)"),
            (5, "store", "release", "_word.store(1, release) #2"),
            (6, "fence", "seq_cst", "fence(seq_cst)")])

    def test_weakens_only_to_what_is_weaker(self):
        self.assertEqual(orders.weaker("load", "relaxed"), [])
        self.assertEqual(orders.weaker("store", "release"), ["relaxed"])
        self.assertEqual(orders.weaker("load", "seq_cst"), ["relaxed", "acquire"])
        self.assertEqual(orders.weaker("store", "seq_cst"), ["relaxed", "release"])
        self.assertEqual(orders.weaker("exchange", "seq_cst"), ["relaxed", "acq_rel"])


class Reasons(unittest.TestCase):
    def test_hold_for_all_lines_before_them(self):
        path = temporary(self, """# A comment.
src/a.cpp _word.load(acquire): load to relaxed
src/b.cpp _word.load(seq_cst): load to acquire
    The first reason,
    in two lines.

src/a.cpp _word.store(1, release): store to relaxed
    The second.
""")
        self.assertEqual(orders.read_reasons(path), {
            ("src/a.cpp", "_word.load(acquire)", "load", "relaxed"): "The first reason, in two lines.",
            ("src/b.cpp", "_word.load(seq_cst)", "load", "acquire"): "The first reason, in two lines.",
            ("src/a.cpp", "_word.store(1, release)", "store", "relaxed"): "The second."})

    def test_of_another_form_are_an_error(self):
        with self.assertRaises(SystemExit):
            orders.read_reasons(temporary(self, "src/a.cpp _word.load(acquire)\n"))


if __name__ == "__main__":
    unittest.main()
