#!/usr/bin/env python3
"""What a run of the tests has reached of the library, from the counts that gcov keeps; HTML and a line of summary.

    scripts/coverage.py TREE [--html FOLDER]

TREE is a build with NQCORE_COVERAGE whose tests have run. Counted are int/src/nqcore and pub, as this system compiles
them. Instantiations of one template are one piece of source: what any of them reaches is reached.

Branches are decisions that somebody wrote. Two kinds that gcov counts besides are left out: at each call that can throw
the pair "returns" and "throws", and whatever stands on a line without a condition, which is the compiler's (comparisons
that are defaulted, guards of static objects, clean-up). Lines that hold a closing brace alone are left out as well:
what gcov counts there is unwinding.

Lines that no test reaches are listed in doc/uncovered.txt, `FILE:LINES reason` (LINES: 7 or 7-9 or both, with commas).
A reason that begins with "sometimes" (races, other machines) may be reached or not.
The numbers are those of the commit that changed the list last, and move with their text as the sources change.
Status 1 when a line is neither reached nor listed, when a listed one is reached or is no code any more, or when the
goals are missed.
"""
import collections
import concurrent.futures
import difflib
import html
import json
import os
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
COUNTED = ("int/src/nqcore/", "pub/")
LISTED = ROOT / "doc/uncovered.txt"
GOALS = {"lines": 95.0, "branches": 88.0}

CONDITION = re.compile(r"\b(if|while|for|switch|case)\b|\?|&&|\|\|| (==|!=|<|>|<=|>=) |\) \{$")


class Source:
    """Counts of one file. A line's branches are kept by the function that they stand in."""

    def __init__(self, name):
        text = (ROOT / name).read_text().splitlines()
        self.braces = {number for number, line in enumerate(text, 1) if not line.strip(" });,")}
        self.conditions = {number for number, line in enumerate(text, 1) if CONDITION.search(line.split("//")[0])}
        self.lines = collections.Counter()                      # number -> how often
        self.branches = collections.defaultdict(list)           # (number, place of the function) -> counts

    def add(self, line, place):
        number = line["line_number"]
        if number in self.braces:
            return
        self.lines[number] += line["count"]
        found = decisions(line["branches"]) if number in self.conditions else []
        known = self.branches[number, place]
        known.extend([0] * (len(found) - len(known)))
        for index, count in enumerate(found):
            known[index] += count

    def missed_lines(self):
        return sorted(number for number, count in self.lines.items() if count == 0)

    def branches_of(self, number):
        return [count for (line, _), counts in self.branches.items() if line == number for count in counts]


def decisions(branches):
    """The counts without the pairs of calls that return or throw."""
    kept = []
    for branch in branches:
        if not branch["throw"]:
            kept.append(branch)
        elif kept and kept[-1]["fallthrough"]:
            kept.pop()
    return [branch["count"] for branch in kept]


def read_counts(notes):
    """What one object says of the counted files: [(name, functions, lines)]."""
    data = notes.with_suffix(".gcda")
    command = ["gcov", "--json-format", "--stdout", "--branch-probabilities", data if data.exists() else notes]
    done = subprocess.run(command, cwd=notes.parent, check=True, capture_output=True)
    found = []
    for file in json.loads(done.stdout)["files"]:
        path = os.path.normpath(notes.parent / file["file"])
        name = os.path.relpath(path, ROOT)
        if name.startswith(COUNTED):
            found.append((name, file["functions"], file["lines"]))
    return found


def read_tree(tree):
    sources = {}
    notes = [file for file in sorted(tree.glob("int/**/*.gcno")) if "googletest" not in file.parts]
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for found in pool.map(read_counts, notes):
            for name, functions, lines in found:
                places = {each["name"]: (each["start_line"], each["start_column"]) for each in functions}
                source = sources.get(name) or sources.setdefault(name, Source(name))
                for line in lines:
                    source.add(line, places.get(line.get("function_name")))
    return sources


def git(*arguments):
    done = subprocess.run(["git", *arguments], cwd=ROOT, capture_output=True, text=True)
    return done.stdout if done.returncode == 0 else ""


def moved_lines(name, commit):
    """Where the lines of a commit are now: {old number: new number}."""
    old = git("show", f"{commit}:{name}").splitlines()
    new = (ROOT / name).read_text().splitlines()
    blocks = difflib.SequenceMatcher(None, old, new, autojunk=False).get_matching_blocks()
    return {a + i + 1: b + i + 1 for a, b, size in blocks for i in range(size)}


def read_listed():
    """{file: {line: reason}}"""
    listed = collections.defaultdict(dict)
    for number, text in enumerate(LISTED.read_text().splitlines(), 1):
        if not text.strip() or text.startswith("#"):
            continue
        place, _, reason = text.partition(" ")
        name, _, ranges = place.partition(":")
        if not reason.strip() or not ranges or not (ROOT / name).is_file():
            sys.exit(f"{LISTED}:{number}: not `FILE:LINES reason`")
        for part in ranges.split(","):
            first, _, last = part.partition("-")
            for line in range(int(first), int(last or first) + 1):
                listed[name][line] = reason.strip()
    place = LISTED.relative_to(ROOT)
    commit = git("log", "-1", "--format=%H", "--", str(place)).strip()
    if commit and not git("status", "--porcelain", "--", str(place)):
        for name, lines in listed.items():
            if git("diff", "--name-only", commit, "--", name):
                moved = moved_lines(name, commit)
                listed[name] = {moved[line]: reason for line, reason in lines.items() if line in moved}
    return listed


def ranges_of(numbers, code):
    """12-15,20: numbers that follow each other in `code`, the sorted numbers of all lines of code."""
    place = {number: index for index, number in enumerate(code)}
    runs = []
    for number in numbers:
        if runs and place[number] == place[runs[-1][1]] + 1:
            runs[-1][1] = number
        else:
            runs.append([number, number])
    return ",".join(str(a) if a == b else f"{a}-{b}" for a, b in runs)


def check_listed(sources, listed):
    """Prints what is not as the list says; the number of offences."""
    offences = 0
    for name, source in sorted(sources.items()):
        unlisted = [number for number in source.missed_lines() if number not in listed[name]]
        if unlisted:
            offences += 1
            print(f"{name}:{ranges_of(unlisted, sorted(source.lines))} neither tested nor listed")
    for name, lines in sorted((name, lines) for name, lines in listed.items() if lines):
        code = sources[name].lines if name in sources else {}
        reached = [number for number, reason in lines.items()
                   if code.get(number, 0) > 0 and not reason.startswith("sometimes ")]
        if reached:
            offences += 1
            print(f"{name}:{','.join(map(str, reached))} listed, but reached")
        if not any(number in code for number in lines):
            offences += 1
            print(f"{name}: listed, but no line of it is code")
    return offences


def percent(part, whole):
    return 100.0 * part / whole if whole else 100.0


def totals(source):
    """(lines reached, lines, branches taken, branches)"""
    taken = [count for counts in source.branches.values() for count in counts]
    reached = sum(count > 0 for count in source.lines.values())
    return (reached, len(source.lines), sum(count > 0 for count in taken), len(taken))


STYLE = """<meta charset="utf-8"><meta name="viewport" content="width=device-width"><style>
body{font:15px sans-serif;margin:1em}td,th{padding:2px 10px;text-align:right}
td:first-child,th:first-child{text-align:left}
pre{font-size:13px}.no{background:#ffd5d5}.part{background:#fff2c8}.listed{background:#e4e4e4}i{color:#888}</style>"""


def write_html(folder, sources, listed):
    folder.mkdir(parents=True, exist_ok=True)
    rows = []
    for name, source in sorted(sources.items(), key=lambda item: percent(*totals(item[1])[:2])):
        page = name.replace("/", "_") + ".html"
        (folder / page).write_text(source_page(name, source, listed[name]))
        reached, lines, taken, branches = totals(source)
        rows.append(f"<tr><td><a href='{page}'>{name}</a><td>{percent(reached, lines):.1f} %<td>{lines - reached}"
                    f"<td>{percent(taken, branches):.1f} %<td>{branches - taken}")
    (folder / "index.html").write_text(f"{STYLE}<title>Coverage</title><h1>Coverage</h1><p>{summary(sources)}<table>"
                                       "<tr><th>file<th>lines<th>missed<th>branches<th>missed"
                                       + "".join(rows) + "</table>")


def source_page(name, source, listed):
    text = []
    for number, line in enumerate((ROOT / name).read_text().splitlines(), 1):
        count = source.lines.get(number)
        branches = source.branches_of(number)
        kind, note = "", ""
        if count == 0:
            kind, note = ("listed", listed[number]) if number in listed else ("no", "")
        elif 0 in branches:
            kind, note = "part", f"{branches.count(0)} of {len(branches)} branches not taken"
        shown = "" if count is None else str(count)
        text.append(f"<span class='{kind}' title='{html.escape(note, True)}'><i>{shown:>9} {number:>5}</i>  "
                    f"{html.escape(line)}</span>")
    head = f"{STYLE}<title>{name}</title><h1>{name}</h1><p><a href='index.html'>all files</a>"
    return head + "<pre>" + "\n".join(text) + "</pre>"


def sum_of(sources):
    return [sum(column) for column in zip(*map(totals, sources.values()))]


def summary(sources):
    reached, lines, taken, branches = sum_of(sources)
    return f"{percent(reached, lines):.1f} % of {lines} lines, {percent(taken, branches):.1f} % of {branches} branches"


def main():
    arguments = sys.argv[1:]
    if len(arguments) not in (1, 3) or arguments[1:2] not in ([], ["--html"]):
        sys.exit(__doc__)
    sources = read_tree(pathlib.Path(arguments[0]).resolve())
    if not sources:
        sys.exit(f"{arguments[0]}: no counts")
    listed = read_listed()
    if len(arguments) == 3:
        write_html(pathlib.Path(arguments[2]), sources, listed)
    offences = check_listed(sources, listed)
    reached, lines, taken, branches = sum_of(sources)
    for what, value in (("lines", percent(reached, lines)), ("branches", percent(taken, branches))):
        if value < GOALS[what]:
            offences += 1
            print(f"fewer {what} than {GOALS[what]} %")
    print(f"coverage: {summary(sources)}, {lines - reached} lines in doc/uncovered.txt or above")
    return 1 if offences else 0


if __name__ == "__main__":
    sys.exit(main())
