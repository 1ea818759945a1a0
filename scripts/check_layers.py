#!/usr/bin/env python3
"""Holds the sources against doc/layers.txt: levels, system headers and macros, public headers, file length.

Prints one line for each offence; status 1 when there is any.
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
PUBLIC = ROOT / "pub/inc/core"
LIBRARY = ROOT / "int/src/nqcore"
CODE_FOLDERS = ["pub", "int/src", "int/test", "int/fuzz", "examples"]
MAX_LINES = 700

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')
OS_MACRO = re.compile(r"\b(_?_?WIN32(__)?|_WIN64|WINNT|__MINGW\w+|_MSC_VER|__?_?linux(__)?|__unix(__)?|__APPLE__|__GLIBC__)\b")
# Headers with .h in their names that belong to the compiler or to a library, not to a system.
PORTABLE_H = re.compile(r"^(\w+intrin\.h|cpuid\.h|cxxabi\.h|(gtest|gmock|benchmark|fmt|nqcore|nqmoduleregistry)/.*)$")
# What public headers do without: each of these costs its users more than all of our own headers.
HEAVY = {"iostream", "regex", "filesystem", "functional", "chrono", "mutex", "thread", "sstream", "map"}


class Layers:
    """doc/layers.txt, read."""

    def __init__(self, file):
        self.rank = {}       # entry -> (line, position in it)
        self.allowed = {}    # WHAT -> set of entries
        for number, line in enumerate(file.read_text().splitlines(), 1):
            line = line.split("#")[0].strip()
            if not line:
                continue
            head, colon, entries = line.rpartition(":")
            if not colon:
                sys.exit(f"{file}:{number}: not `level: entry ...`")
            if head.startswith("@allow "):
                self.allowed.setdefault(head.removeprefix("@allow ").strip(), set()).update(entries.split())
                continue
            for position, entry in enumerate(entries.split()):
                if entry in self.rank:
                    sys.exit(f"{file}:{number}: {entry} is listed twice")
                self.rank[entry] = (number, position)

    def entry_of(self, path):
        """The entry of `path`, a path without suffix below the library's or the public folder; None when unlisted."""
        def covers(entry):
            return path.startswith(entry) if entry.endswith("/") else path == entry or path.startswith(entry + "_")
        return max(filter(covers, self.rank), key=len, default=None)

    def may_include(self, entry, other, is_header):
        mine, theirs = self.rank[entry], self.rank[other]
        return theirs <= mine if is_header else theirs[0] <= mine[0]

    def allows(self, what, entry):
        return entry in self.allowed.get(what, ())


def source_files():
    for folder in CODE_FOLDERS:
        for path in sorted((ROOT / folder).rglob("*")):
            if path.suffix in {".h", ".cpp", ".inl"}:
                yield path


def library_path(file):
    """Name of a library file as layers.txt knows it: `error_info`, `platform/win32/clock`; None for other files."""
    for base in (PUBLIC / "nqcore", LIBRARY):
        if file.is_relative_to(base):
            return str(file.relative_to(base).with_suffix(""))
    if file.is_relative_to(PUBLIC):
        return str(file.relative_to(PUBLIC).with_suffix(""))
    return None


def target_of(name, quoted, file):
    """The file that an #include means, None when it is not one of ours."""
    places = [PUBLIC, LIBRARY] + ([file.parent] if quoted else [])
    return next((place / name for place in places if (place / name).is_file()), None)


def code_lines(file):
    """(number, line without comments) of `file`; block comments are rare here and start at the line's beginning."""
    in_block = False
    for number, line in enumerate(file.read_text(encoding="utf-8", errors="replace").splitlines(), 1):
        if in_block or line.lstrip().startswith("/*"):
            in_block = "*/" not in line
            continue
        yield number, line.split("//")[0] if not INCLUDE.match(line) else line


def is_platform_file(file):
    return any(f"/platform/{system}/" in str(file) for system in ("win32", "posix"))


class Check:
    def __init__(self):
        self.layers = Layers(ROOT / "doc/layers.txt")
        self.offences = []

    def report(self, file, number, text):
        self.offences.append(f"{file.relative_to(ROOT)}:{number}: {text}")

    def check_file(self, file):
        path = library_path(file)
        entry = self.layers.entry_of(path) if path else None
        if path and not entry:
            self.report(file, 1, f"{path} has no entry in doc/layers.txt")
            return
        os_allowed = is_platform_file(file) or self.layers.allows("os", entry)
        for number, line in code_lines(file):
            include = INCLUDE.match(line)
            if include:
                self.check_include(file, number, entry, include[2], include[1] == '"', os_allowed)
            elif not os_allowed and not line.lstrip().startswith("//") and OS_MACRO.search(strip_strings(line)):
                self.report(file, number, f"system macro outside a platform folder: {OS_MACRO.search(line)[0]}")
        length = len(file.read_bytes().splitlines())
        if length > MAX_LINES:
            self.report(file, length, f"more than {MAX_LINES} lines: split it by subject")

    def check_include(self, file, number, entry, name, quoted, os_allowed):
        target = target_of(name, quoted, file)
        if target:
            self.check_level(file, number, entry, target)
            if file.is_relative_to(PUBLIC) and not target.is_relative_to(PUBLIC):
                self.report(file, number, f"a public header includes an internal one: {name}")
            return
        if self.excepted(name, entry) or (file.is_relative_to(ROOT / "int/test") and name.startswith("ace/")):
            return
        if name.startswith("ace/") and not is_platform_file(file):
            self.report(file, number, f"ACE header: {name} (thin headers are listed in doc/layers.txt)")
        elif not quoted and name.endswith(".h") and not os_allowed and not PORTABLE_H.match(name):
            self.report(file, number, f"system header outside a platform folder: <{name}>")
        elif file.is_relative_to(PUBLIC) and (name in HEAVY or name.startswith(("gtest/", "gmock/", "fmt/"))):
            self.report(file, number, f"too heavy for a public header: <{name}>")

    def excepted(self, name, entry):
        return any(f"<{name}>".startswith(what) and entry in entries for what, entries in self.layers.allowed.items())

    def check_level(self, file, number, entry, target):
        path = library_path(target)
        if entry is None or path is None:
            return      # tests, fuzz targets and tools stand above all levels
        other = self.layers.entry_of(path)
        if other is None:
            self.report(file, number, f"includes {path}, which has no entry in doc/layers.txt")
        elif not self.layers.may_include(entry, other, file.suffix == ".h"):
            self.report(file, number, f"{entry} includes {other}, which stands above it in doc/layers.txt")
        elif file.is_relative_to(PUBLIC) and other != entry and self.layers.allows("budget", other):
            self.report(file, number, f"a header includes {other}, which is exempt from the header budget")


def strip_strings(line):
    return re.sub(r'"(\\.|[^"\\])*"', '""', line)


def main():
    check = Check()
    files = list(source_files())
    for file in files:
        check.check_file(file)
    print("\n".join(check.offences))
    print(f"{len(files)} files, {len(check.offences)} offences")
    return 1 if check.offences or not files else 0


if __name__ == "__main__":
    sys.exit(main())
