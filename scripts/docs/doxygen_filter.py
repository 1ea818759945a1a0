#!/usr/bin/env python3
"""What Doxygen reads in place of a header: every doc comment as verbatim text, line for line.

Our comments have their own small form (see comment.py), so Doxygen must neither interpret nor reflow them.
"""
import re
import sys

LINE = re.compile(r"(\s*///)(?!/)(?!<)(.*)")
TRAILING = re.compile(r"(.*///<)(.*)")


def filtered(lines):
    for number, line in enumerate(lines):
        if trailing := TRAILING.match(line):
            yield f"{trailing[1]} @verbatim{trailing[2]} @endverbatim"
            continue
        match = LINE.match(line)
        if not match:
            yield line
            continue
        first = number == 0 or not LINE.match(lines[number - 1])
        last = number + 1 == len(lines) or not LINE.match(lines[number + 1])
        yield match[1] + (" @verbatim" if first else "") + match[2] + (" @endverbatim" if last else "")


if __name__ == "__main__":
    with open(sys.argv[1], encoding="utf-8") as file:
        sys.stdout.write("\n".join(filtered(file.read().split("\n"))))
