#!/usr/bin/python3
"""Tells how much of the modules the tests run, from what gcovr counted.

    coverage.py COUNTS LIST     COUNTS: gcovr's JSON; LIST: the lines that no test runs

Fails below 95 % of lines, when a line is not run and not in the list, and when a listed line is run
after all. The list has the reason in lines that begin with "#", and below it "FILE: LINE".
"""

import collections
import json
import sys

LEAST = 95


def uncovered_lines(counts):
    lines = collections.Counter()
    for file in counts["files"]:
        with open(file["file"], encoding="utf-8") as stream:
            text = stream.read().splitlines()
        for line in file["lines"]:
            if line["count"] == 0 and not line["gcovr/noncode"]:
                lines[f"{file['file']}: {text[line['line_number'] - 1].strip()}"] += 1
    return lines


def listed_lines(path):
    with open(path, encoding="utf-8") as stream:
        lines = [line.rstrip("\n") for line in stream]
    return collections.Counter(line for line in lines if line and not line.startswith("#"))


def share(items):
    items = list(items)
    return sum(1 for it in items if it > 0), len(items)


def main():
    with open(sys.argv[1], encoding="utf-8") as stream:
        counts = json.load(stream)
    uncovered, listed = uncovered_lines(counts), listed_lines(sys.argv[2])
    for line in sorted((uncovered - listed).elements()):
        print(f"no test runs, and no reason is given: {line}")
    for line in sorted((listed - uncovered).elements()):
        print(f"listed, but run: {line}")
    lines = [it for file in counts["files"] for it in file["lines"] if not it["gcovr/noncode"]]
    run, all_lines = share(line["count"] for line in lines)
    taken, branches = share(
        branch["count"] for line in lines for branch in line["branches"] if not branch["throw"]
    )
    percent = 100 * run / all_lines
    print(
        f"coverage: {run} of {all_lines} lines, {percent:.1f} %; {taken} of {branches} branches, "
        f"{100 * taken / branches:.1f} %; {sum(uncovered.values())} lines not run"
    )
    sys.exit(0 if uncovered == listed and percent >= LEAST else 1)


main()
