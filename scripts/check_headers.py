#!/usr/bin/env python3
"""Checks every public header by compiling it: alone, twice in one file, and within the header budget.

check_headers.py alone COMPILER [FLAGS...]   each compiles alone and twice, warnings as errors
check_headers.py budget [--update]           what each costs its users, on linux

The budget has two parts. Compile time: at most 20 times that of an empty file, the umbrella at most 60 times; both are
the minimum of several interleaved runs. Foreign lines: how many lines a header brings in from outside the project,
held by doc/header_budget.txt, where a number may only fall (--update lowers it, and adds new headers).
"""
import pathlib
import re
import resource
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor

from check_layers import PUBLIC, ROOT, Layers, library_path

LIMITS_FILE = ROOT / "doc/header_budget.txt"
TIME_LIMIT, UMBRELLA_LIMIT, UMBRELLA = 20.0, 60.0, "nqcore"
# Another release of the standard library may differ a little.
LINE_TOLERANCE = 1.02
SYSTEM_INCLUDES = ["/usr/src/googletest/googletest/include", "/usr/src/googletest/googlemock/include"]


def public_headers():
    return sorted(PUBLIC.rglob("*.h"))


def include_name(header):
    return str(header.relative_to(PUBLIC))


def include_flags():
    # version.h and the links to third-party headers are made by the build; any tree's will do.
    own = [PUBLIC, *list((ROOT / "build").glob("*/include"))[:1]]
    foreign = [*SYSTEM_INCLUDES, *[link.parent for link in (ROOT / "build").glob("*/third_party/fmt")][:1]]
    return [word for flag, folders in (("-I", own), ("-isystem", foreign)) for folder in folders
            for word in (flag, str(folder))]


def run(command, text):
    with tempfile.NamedTemporaryFile("w", suffix=".cpp") as source:
        source.write(text)
        source.flush()
        return subprocess.run([*command, *include_flags(), source.name], capture_output=True, text=True)


def check_alone(compiler):
    command = [*compiler, "-std=c++20", "-fsyntax-only", "-Wall", "-Wextra", "-Wpedantic", "-Wconversion", "-Wshadow",
               "-Werror"]

    def compile_one(header):
        line = f'#include "{include_name(header)}"\n'
        return [run(command, line), run(command, line + line)]

    bad = 0
    headers = public_headers()
    with ThreadPoolExecutor(max_workers=2) as pool:
        for header, results in zip(headers, pool.map(compile_one, headers)):
            for how, result in zip(("alone", "twice"), results):
                if result.returncode:
                    bad += 1
                    print(f"{include_name(header)} does not compile {how}:\n{result.stderr}")
    print(f"{len(headers)} headers compiled alone and twice with {compiler[0]}, {bad} failures")
    return bad == 0 and bool(headers)


def compile_seconds(text):
    """Processor time of the compiler: other work on the machine hardly shows in it."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    result = run(["g++", "-std=c++20", "-fsyntax-only"], text)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    if result.returncode:
        sys.exit(f"does not compile: {text}{result.stderr}")
    return after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime


def ratio(text, rounds):
    """Compile time of `text` against an empty file; both the best of `rounds` interleaved runs."""
    pairs = [(compile_seconds(text), compile_seconds("")) for _ in range(rounds)]
    return min(pair[0] for pair in pairs) / min(pair[1] for pair in pairs)


def foreign_lines(text):
    """Non-blank preprocessed lines that come from files outside the project."""
    output = run(["g++", "-std=c++20", "-E"], text).stdout
    count, foreign = 0, False
    for line in output.splitlines():
        marker = re.match(r'# \d+ "([^"]*)"', line)
        if marker:
            foreign = marker[1].startswith("/") and not marker[1].startswith(str(ROOT))
        elif foreign and line.strip():
            count += 1
    return count


def read_limits():
    rows = (line.split() for line in LIMITS_FILE.read_text().splitlines() if line and not line.startswith("#"))
    return {name: int(lines) for name, lines in rows}


def write_limits(limits):
    head = [line for line in LIMITS_FILE.read_text().splitlines() if line.startswith("#")]
    rows = [f"{name} {lines}" for name, lines in sorted(limits.items())]
    LIMITS_FILE.write_text("\n".join(head + rows) + "\n")


def measure(header):
    """(ratio, its limit, foreign lines) of one header. A first result over the limit is measured again, longer."""
    text = f'#include "{include_name(header)}"\n'
    limit = UMBRELLA_LIMIT if header.stem == UMBRELLA else TIME_LIMIT
    cost = ratio(text, 7)
    if cost > limit:
        cost = min(cost, ratio(text, 15))
    return cost, limit, foreign_lines(text)


def check_budget(update):
    layers = Layers(ROOT / "doc/layers.txt")
    limits, new_limits, offences = read_limits(), {}, []
    print(f"{'header':<44}{'times empty file':>17}{'limit':>7}{'foreign lines':>15}{'limit':>8}")
    for header in public_headers():
        name = include_name(header)
        if layers.allows("budget", layers.entry_of(library_path(header))):
            print(f"{name:<44}{'exempt':>17}")
            continue
        cost, limit, lines = measure(header)
        line_limit = limits.get(name)
        new_limits[name] = min(lines, line_limit) if line_limit is not None else lines
        print(f"{name:<44}{cost:>17.1f}{limit:>7.0f}{lines:>15}{line_limit if line_limit is not None else 'none':>8}")
        if cost > limit:
            offences.append(f"{name}: {cost:.1f} times an empty file, limit {limit:.0f}")
        if line_limit is None and not update:
            offences.append(f"{name}: not in {LIMITS_FILE.name}; add it with check_headers.py budget --update")
        elif line_limit is not None and lines > line_limit * LINE_TOLERANCE:
            offences.append(f"{name}: brings in {lines} foreign lines, limit {line_limit}")
    if update:
        write_limits(new_limits)
    print("\n".join(offences))
    print(f"{len(offences)} offences")
    return not offences


def main():
    arguments = sys.argv[1:]
    if arguments[:1] == ["alone"] and len(arguments) > 1:
        return 0 if check_alone(arguments[1:]) else 1
    if arguments[:1] == ["budget"]:
        return 0 if check_budget("--update" in arguments) else 1
    print(__doc__, file=sys.stderr)
    return 2


if __name__ == "__main__":
    sys.exit(main())
