#!/usr/bin/env python3
"""Holds what gcovr counted against the goals, and the lines that no test runs against the list of those that are known.

usage: coverage_report.py REPORT.json ROOM...      ROOM: src, host or tools

The list, scripts/coverage_left.txt, has each line of src/ by its text, since its number changes, and the files of the other
rooms with a number of lines. What stands there indented is the reason.
"""

import collections
import json
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[1]
LEFT = ROOT / "scripts" / "coverage_left.txt"
GOALS = {"src": {"lines": 98, "branches": 90}, "host": {"lines": 92}, "tools": {"lines": 92}}


class Count:
    def __init__(self):
        self.run, self.all = 0, 0

    def add(self, was_run):
        self.run += was_run
        self.all += 1

    def share(self):
        return 100 * self.run / self.all if self.all else 0


def read_report(path):
    """By room the counts of lines and branches, and by file the texts of the lines that did not run."""
    counts = collections.defaultdict(lambda: {"lines": Count(), "branches": Count()})
    missing = {}
    for file in json.loads(pathlib.Path(path).read_text())["files"]:
        name = file["file"]
        room, texts = counts[name.split("/")[0]], (ROOT / name).read_text().splitlines()
        for line in file["lines"]:
            if line["gcovr/noncode"]:
                continue
            room["lines"].add(line["count"] > 0)
            if line["count"] == 0:
                missing.setdefault(name, []).append((line["line_number"], texts[line["line_number"] - 1].strip()))
            for branch in line["branches"]:
                room["branches"].add(branch["count"] > 0)
    return counts, missing


def read_left():
    """By file: the lines that are left, or how many."""
    lines, numbers = collections.defaultdict(collections.Counter), {}
    for row in LEFT.read_text().splitlines():
        if not row or row.startswith(("#", " ")):
            continue
        name, what = row.split(" | ", 1)
        if number := re.fullmatch(r"(\d+) lines?", what):
            numbers[name] = int(number.group(1))
        else:
            lines[name][what] += 1
    return lines, numbers


def unknown(missing):
    """What does not run and is not known."""
    lines, numbers = read_left()
    for name, found in missing.items():
        if name.startswith("src/"):
            known = lines[name].copy()
            for number, text in found:
                if known[text] <= 0:
                    yield f"no test runs {name}:{number}: {text}"
                known[text] -= 1
        elif len(found) > numbers.get(name, 0):
            places = ", ".join(str(number) for number, _ in found)
            yield f"{len(found)} lines of {name} do not run, {numbers.get(name, 0)} are known: {places}"


def main():
    if len(sys.argv) < 3 or not GOALS.keys() >= set(sys.argv[2:]):
        sys.exit(__doc__.split("\n\n")[1])
    try:
        counts, missing = read_report(sys.argv[1])
    except (OSError, ValueError, KeyError) as error:
        sys.exit(f"coverage_report.py: {sys.argv[1]} is no report of gcovr (scripts/coverage.sh makes one): {error!r}")
    complaints = []
    for room in sys.argv[2:]:
        figures = counts[room]
        print(f"{room}: " + ", ".join(f"{count.share():.1f} % of {count.all} {kind}" for kind, count in figures.items()))
        for kind, goal in GOALS[room].items():
            if figures[kind].share() < goal:
                complaints.append(f"{room}: less than {goal} % of the {kind} run")
    complaints += unknown({name: found for name, found in missing.items() if name.split("/")[0] in sys.argv[2:]})
    for complaint in complaints:
        print(complaint)
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main())
