#!/usr/bin/env python3
"""Draws the best rows of the table as bars, ours beside the fastest peer, and writes all rows in a document:
`picture.py TABLE.json PICTURE.svg DOCUMENT.md`.

The table is what `table.py --save` has written. The picture has no fonts of its own and follows the light or dark
appearance of the page."""

import html
import json
import pathlib
import re
import sys

from table import time_text

ROWS_OF_A_PROGRAM, LARGEST_RATIO = 2, 0.9
WIDTH, TOP, HEIGHT, BAR = 860, 74, 46, 12
LEFT, LENGTH = 240, 312  # where the bars begin, and the peer's length

STYLE = """
  :root { color-scheme: light dark }
  text { font: 13px system-ui, sans-serif; fill: #24292f }
  .title { font-size: 17px; font-weight: 600 }
  .small { font-size: 12px; fill: #57606a }
  .ratio { font-weight: 600; text-anchor: end }
  .ours { fill: #1f6feb }
  .peer { fill: #b6bec8 }
  @media (prefers-color-scheme: dark) {
    text { fill: #e6edf3 }
    .small { fill: #9da7b3 }
    .ours { fill: #58a6ff }
    .peer { fill: #4b535d }
  }
"""


def ratio(row):
    return row["ours"] / row["peer"]


def split(title):
    """The subject of a row, and the names of ours and of the peer: "subject: ours / peer". Rows of trees are
    "ours / peer: subject", or name neither."""
    subject, _, names = title.partition(": ")
    if " / " in subject:
        subject, names = names, subject
    if " / " not in names:
        return title, "devices", "pthreads"
    ours, _, peer = names.partition(" / ")
    return subject, ours, peer


def best(rows):
    """The rows with the smallest ratios, a few of each program, in the order of the table. Each of ours is beside its
    fastest peer. Of a subject that was measured in several sizes, one row is shown."""
    rows = [row for row in rows if not re.search("supervised|each of", row["title"])]  # ours beside ours
    fastest = {}
    for row in sorted(rows, key=ratio):
        fastest[split(row["title"])[:2]] = row
    chosen = []
    for program in dict.fromkeys(row["program"] for row in rows):
        subjects = {}
        for row in sorted(fastest.values(), key=ratio):
            if row["program"] == program and ratio(row) < LARGEST_RATIO:
                subjects.setdefault(re.sub("[0-9]+|(median|99.*%).*", "", split(row["title"])[0]), row)
        chosen += list(subjects.values())[:ROWS_OF_A_PROGRAM]
    return [row for row in rows if row in chosen]


def text(x, y, content, kind=""):
    kind = f' class="{kind}"' if kind else ""
    return f'  <text x="{x:g}" y="{y:g}"{kind}>{html.escape(content)}</text>'


def bar(y, length, kind):
    return f'  <rect class="{kind}" x="{LEFT}" y="{y:g}" width="{length:.1f}" height="{BAR}" rx="2"/>'


def draw(table):
    rows = best(table["rows"])
    height = TOP + HEIGHT * len(rows) + 34
    lines = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {height}" role="img"',
             '  aria-label="Times of libzvresmgt and of its peers">',
             f"  <style>{STYLE}  </style>",
             text(16, 28, "How long it takes: libzvresmgt and its peers", "title"),
             text(16, 48, "The bar of each peer has the same length, and a shorter bar is better. "
                          "On the right: how many times faster.", "small")]
    for number, row in enumerate(rows):
        y = TOP + HEIGHT * number
        subject, ours, peer = split(row["title"])
        length = max(2, LENGTH * ratio(row))
        lines += [text(16, y + 20, subject), bar(y + 2, length, "ours"), bar(y + 18, LENGTH, "peer"),
                  text(LEFT + length + 8, y + 12, f'{ours}, {time_text(row["ours"])}'),
                  text(LEFT + LENGTH + 8, y + 28, f'{peer}, {time_text(row["peer"])}', "small"),
                  text(WIDTH - 16, y + 12, f"{1 / ratio(row):.1f} x", "ratio")]
    lines += [text(16, height - 14, f'{table["machine"]}, {table["date"]}, medians of {table["repetitions"]}. '
                                    "docs/benchmarks.md has the whole table.", "small"), "</svg>"]
    return "\n".join(lines) + "\n"


def document(table, picture):
    """All rows, a table for each benchmark program."""
    ahead = sum(ratio(row) < 1 for row in table["rows"])
    lines = ["# Benchmarks", "",
             f"![Times of the library beside those of its peers]({picture})", "",
             "The picture shows the best rows of each program. The tables have all rows. A ratio is our time divided by that of",
             "the fastest peer that the row names: below 1, ours is faster.", "",
             f"- Machine: {table['machine']}",
             f"- Date: {table['date']}",
             f"- Times: medians of {table['repetitions']} repetitions",
             f"- Rows with a ratio below 1: {ahead} of {len(table['rows'])}", "",
             "`./run bench` measures all of them on your machine, and `./run bench --picture` writes this page again. The programs",
             "are in `bench/`, each with its peer beside it."]
    for program in dict.fromkeys(row["program"] for row in table["rows"]):
        lines += ["", f"## {program}", "", "| row | ours | peer | time of ours | time of the peer | ratio |",
                  "|---|---|---|--:|--:|--:|"]
        for row in table["rows"]:
            if row["program"] == program:
                subject, ours, peer = split(row["title"])
                subject = subject.replace("#include", "`#include`")
                lines.append(f"| {subject} | `{ours}` | `{peer}` | {time_text(row['ours'])} | {time_text(row['peer'])} | "
                             f"{ratio(row):.2f} |")
    return "\n".join(lines) + "\n"


def main():
    if len(sys.argv) != 4:
        sys.exit("usage: picture.py TABLE.json PICTURE.svg DOCUMENT.md")
    table, picture, page = map(pathlib.Path, sys.argv[1:])
    rows = json.loads(table.read_text())
    picture.write_text(draw(rows))
    page.write_text(document(rows, picture.name))


if __name__ == "__main__":
    main()
