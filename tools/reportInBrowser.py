#!/usr/bin/env python3
"""Opens the page of `zvplayout --report` in headless Chromium and compares what it shows with the output of the run.

    reportInBrowser.py ZVPLAYOUT SHOW FOLDER [--picture FILE]

plays SHOW into FOLDER. With --picture, the upper part of the page is stored as a picture.
"""

import argparse
import json
import os
import re
import subprocess
import sys

CHROMIUM = ["chromium", "--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--hide-scrollbars"]
DARK = "--blink-settings=preferredColorScheme=0"
WIDTH = 1280

# Runs in a copy of the page, and leaves what it has found as JSON in an element of its own.
SCRIPT = """
const boxOf = element => {
    const box = element.getBoundingClientRect();
    return {left: box.left, top: box.top, right: box.right, bottom: box.bottom, text: element.textContent.trim()};
};
const meet = (a, b) => a.left + 1 < b.right && b.left + 1 < a.right && a.top + 2 < b.bottom && b.top + 2 < a.bottom;
const found = {overlaps: [], outside: [], charts: document.querySelectorAll('svg').length};
for (const chart of document.querySelectorAll('svg')) {
    const area = boxOf(chart);
    const texts = [...chart.querySelectorAll('text')].map(boxOf);
    const isWaveform = chart.getAttribute('aria-label') === 'Waveform';
    const others = isWaveform ? [...chart.querySelectorAll('.plot, .event')].map(boxOf) : [];
    texts.forEach((text, i) => {
        if (text.left < area.left - 1 || text.right > area.right + 1 || text.top < area.top - 1 ||
            text.bottom > area.bottom + 1)
            found.outside.push(text.text);
        for (const other of [...texts.slice(0, i), ...others])
            if (meet(text, other)) found.overlaps.push([text.text, other.text]);
    });
}
const cells = row => [...row.children].map(cell => cell.innerText.trim());
found.tables = [...document.querySelectorAll('#tables tr')].map(cells);
found.threads = [...document.querySelectorAll('#threads tr')].map(cells);
found.states = [...document.querySelectorAll('#states title')].map(tip => tip.textContent.trim());
found.lateness = [...document.querySelectorAll('#lateness text')].map(text => text.textContent.trim());
found.lanes = [...document.querySelectorAll('#lanes text')].map(text => text.textContent.trim());
found.marks = [...document.querySelectorAll('#waveform .eventtext')].map(text => text.textContent.trim());
found.result = document.querySelector('#result').innerText;
found.isTooWide = document.documentElement.scrollWidth > window.innerWidth;
found.background = getComputedStyle(document.body).backgroundColor;
found.text = getComputedStyle(document.body).color;
found.wave = getComputedStyle(document.querySelector('.wave')).fill;
const result = document.createElement('pre');
result.id = 'found';
result.textContent = JSON.stringify(found);
document.body.append(result);
"""


def fail(text):
    sys.exit(f"reportInBrowser: {text}")


def expect(actual, expected, what):
    if actual != expected:
        fail(f"{what}: the page has {actual}, not {expected}")


def browse(*options, timeout=120):
    return subprocess.run([*CHROMIUM, *options], check=True, capture_output=True, text=True, timeout=timeout).stdout


def look(page, width, *options):
    """Returns what the script finds on the page."""
    with open(page, encoding="utf-8") as file:
        source = file.read()
    copy = page + ".copy.html"
    with open(copy, "w", encoding="utf-8") as file:
        file.write(source.replace("</body", f"<script>{SCRIPT}</script></body"))
    dom = browse(f"--window-size={width},2400", *options, "--dump-dom", "file://" + os.path.abspath(copy))
    os.remove(copy)
    match = re.search(r'<pre id="found">(.*?)</pre>', dom, re.S)
    if not match:
        fail("the script did not run")
    text = match[1].replace("&lt;", "<").replace("&gt;", ">").replace("&amp;", "&")
    return json.loads(text)


def brightness(colour):
    return sum(int(number) for number in re.findall(r"\d+", colour)[:3]) / 3


def check_figures(found, output):
    lines = output.splitlines()
    begin = next(i for i, line in enumerate(lines) if line.startswith("  device     end "))
    expected = [" ".join(line.split()) for line in lines[begin:] if re.match(r"  [a-z]", line)]
    expect([" ".join(" ".join(row).split()) for row in found["tables"]], expected, "closing tables")

    moves = re.findall(r"^ +[\d.]+ ms  (\S+) +(\S+) -> (\S+)$", output, re.M)
    states = {(device, state) for device, old, new in moves for state in (old, new)}
    if len(states) < 10:
        fail("the run has shown too few states")
    expect({tuple(re.match(r"(.*): (\S+) for ", tip).groups()) for tip in found["states"]}, states, "states")

    clock = next(i for i, line in enumerate(lines) if line.startswith("  clock "))
    for line in lines[clock + 1:]:
        device, *numbers = line.split()
        if device not in {device for device, *_ in moves}:
            break
        if not any(text.startswith(f"{numbers[0]} beats, the latest by ") for text in found["lateness"]):
            fail(f"the histograms do not have the {numbers[0]} beats of {device}")
        if device not in [row[0] for row in found["threads"]]:
            fail(f"the threads do not have {device}")

    memory = next(line for line in lines if line.startswith("  heap, "))
    loads = sum(int(number) for number in memory.split()[2:4])
    if not any(text.startswith(f"{loads} loads, ") for text in found["lanes"]):
        fail(f"the lanes do not have the {loads} loads")

    events = re.findall(r"^  (\d\d[:;]\d\d[:;]\d\d[:;]\d\d)  (.*)$", output, re.M)
    marks = " ".join(found["marks"])
    for timecode, text in events:
        if timecode not in marks or text not in marks:
            fail(f"the waveform does not have {timecode} {text}")
    expect(found["result"], next(line for line in lines if line.startswith("recorded ")), "the result")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("program")
    parser.add_argument("show")
    parser.add_argument("folder")
    parser.add_argument("--picture")
    options = parser.parse_args()
    page = os.path.join(options.folder, "report.html")
    output = subprocess.run(
        [options.program, options.show, os.path.join(options.folder, "playout.wav"), "--report", page],
        check=True, capture_output=True, text=True, timeout=120).stdout

    for width in (WIDTH, 800):
        found = look(page, width)
        expect(found["overlaps"], [], f"texts on each other at {width} pixels")
        expect(found["outside"], [], f"texts outside of their charts at {width} pixels")
        expect(found["isTooWide"], False, f"a page wider than {width} pixels")
        check_figures(found, output)
    if brightness(found["background"]) < 200 or brightness(found["text"]) > 100:
        fail("the page is not light")
    dark = look(page, WIDTH, DARK)
    if brightness(dark["background"]) > 60 or brightness(dark["text"]) < 200:
        fail("the page is not dark if the user wants that")
    if dark["wave"] == found["wave"]:
        fail("the charts have the same colours in light and dark")

    printed = os.path.join(options.folder, "report.pdf")
    browse("--no-pdf-header-footer", "--print-to-pdf=" + printed, "file://" + os.path.abspath(page))
    with open(printed, "rb") as file:
        nb_pages = len(re.findall(rb"/Type\s*/Page\b", file.read()))
    if not 1 <= nb_pages <= 6:
        fail(f"the page prints on {nb_pages} sheets")

    if options.picture:
        browse(f"--window-size={WIDTH},1435", "--screenshot=" + os.path.abspath(options.picture),
               "file://" + os.path.abspath(page))
    print(f"The page has {found['charts']} charts, is right in light and dark, and prints on {nb_pages} sheets.")


main()
