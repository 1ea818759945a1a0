#!/usr/bin/env python3
"""Shows what a line-by-line filter changed: show_changes.py BEFORE AFTER. A few lines of each kind of change."""
import itertools
import pathlib
import re
import sys

EACH_KIND, WIDTH = 2, 140
MASKED = re.compile(rb"\d-{2,}\d|\d-+ *-+")


def printable(line):
    """Text as it is, bytes that are no text as \\xNN."""
    text = line.decode("utf-8", errors="backslashreplace").rstrip("\r\n")
    return text if len(text) <= WIDTH else text[:WIDTH] + " ..."


def kind(before, after):
    try:
        before.decode("utf-8")
    except UnicodeDecodeError:
        return "invalid UTF-8"
    if MASKED.search(after) and not MASKED.search(before):
        return "masked number"
    return "start of the line" if before[:10] != after[:10] else "within the line"


def lines_of(name):
    lines = pathlib.Path(name).read_bytes().split(b"\n")
    return lines if lines[-1] else lines[:-1]


def main():
    before, after = (lines_of(name) for name in sys.argv[1:3])
    shown, changed = {}, 0
    for old, new in itertools.zip_longest(before, after, fillvalue=b""):
        if old == new:
            continue
        changed += 1
        rows = shown.setdefault(kind(old, new), [])
        if len(rows) < EACH_KIND:
            rows.append((old, new))
    for old, new in itertools.chain.from_iterable(shown.values()):
        print(f"    before  {printable(old)}\n    after   {printable(new)}")
    print(f"    {changed} of {len(before)} lines changed")


if __name__ == "__main__":
    main()
