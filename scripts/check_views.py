#!/usr/bin/env python3
"""Checks the views for debuggers, packaging/gdb: every object of int/test/views/subject.cpp, as gdb prints it, against
the text that the library writes; every expression of the natvis file against the same objects; and memory that holds
no objects at all. Twice: with the debug information of the library, and without it as where it is not installed.

check_views.py [BUILD]     the tree with the library, build/linux unless told otherwise

gdb runs this file too, and there it compares.
"""
import fnmatch
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import xml.etree.ElementTree

try:
    import gdb
except ImportError:
    gdb = None

ROOT = pathlib.Path(__file__).resolve().parent.parent
SUBJECT = ROOT / "int/test/views/subject.cpp"
VIEWS = ROOT / "packaging/gdb/nqcore_gdb.py"
NATVIS = ROOT / "packaging/gdb/nqcore.natvis"
REPORT = "--- what gdb shows"
NAMESPACE = "{http://schemas.microsoft.com/vstudio/debugger/natvis/2010}"
# These hold what only the library's own debug information describes.
NEED_LIBRARY = re.compile(r"keys\[|unwritten|\w+Key|pending|ready|failed|(value|void|error|future)Result|\*error|"
                          r"\w*xception")
# Read from memory full of one byte, of which no pointer can be made, they have to say so.
MUST_REFUSE = {"SourceLocation", "ErrorCode", "ErrorParams", "ErrorException", "Future", "Result", "ObjectKey",
               "StackTrace"}


# -------------------------------------------------------------------------------------------------------- inside of gdb

class Comparison:
    def __init__(self, with_library):
        self.with_library = with_library
        self.checked = self.bad = 0

    def check(self, good, what, detail):
        self.checked += 1
        if not good:
            self.bad += 1
            print(f"{what}: {detail}")

    def texts(self, rows):
        for expression, expected in rows:
            if not self.with_library and NEED_LIBRARY.match(expression):
                continue
            text = gdb.parse_and_eval(expression).format_string(max_elements=0)
            pattern = re.escape(expected).replace(r"\*", ".+")
            self.check(re.fullmatch(pattern, text, re.DOTALL), expression, f"{text!r}, not {expected!r}")

    def memory_without_objects(self, types):
        garbage = gdb.lookup_global_symbol("garbage").value()
        for name, type_ in types.items():
            for i in range(4):
                where = garbage[i][0].address + 2048
                text = where.cast(type_.pointer()).dereference().format_string()
                short = re.sub(r"^nqcore::|<.*", "", name)
                # All zeros, the first row, is what an empty object may look like.
                refused = i == 0 or short not in MUST_REFUSE or "not readable" in text or text == "<incomplete type>"
                self.check(refused, f"{name} in memory of {int(garbage[i][0]):#04x}", text)

    def natvis(self, objects):
        for entry in xml.etree.ElementTree.parse(NATVIS).getroot().iter(f"{NAMESPACE}Type"):
            name = entry.get("Name")
            of_type = [item for type_name, items in objects.items() for item in items
                       if fnmatch.fnmatchcase(type_name, name)]
            if not of_type:     # what objects of the subject hold
                memory = gdb.lookup_global_symbol("garbage").value()[0].address
                of_type = [memory.cast(gdb.lookup_type(name).pointer()).dereference()]
            for expression in natvis_expressions(entry):
                known = [item for item in of_type if natvis_holds(expression, item)]
                self.check(known, f"natvis {name}", f"no object has {expression}")


def natvis_expressions(entry):
    for part in entry.iter():
        if part.get("Condition"):
            yield part.get("Condition")
        if part.tag in {NAMESPACE + "DisplayString", NAMESPACE + "StringView"}:
            braced = re.findall(r"(?<!\{)\{([^{}]+)\}", part.text or "")
            yield from braced if part.tag.endswith("DisplayString") else [part.text]
        elif part.tag in {NAMESPACE + tag for tag in ("Item", "ExpandedItem", "Size", "ValuePointer")}:
            yield part.text


def natvis_holds(expression, item):
    """Whether gdb can evaluate the expression with the object's members, as debuggers that read natvis ask it to."""
    type_ = item.type.strip_typedefs()
    this = f"(*({type_.unqualified()}*){int(item.address):#x})"
    text = re.sub(r",\[.*\]\w*$|,(\w+)$", "", expression.strip())
    try:
        for i in range(4):
            if f"$T{i + 1}" in text:
                text = text.replace(f"$T{i + 1}", str(type_.template_argument(i)))
        text = re.sub(r"(?<![\w.>])(m_\w+|name|value)\b", rf"({this}.\1)", text)
        gdb.parse_and_eval(text).fetch_lazy()
        return True
    except (gdb.error, RuntimeError):
        return False


def compare():
    words = pathlib.Path(os.environ["NQ_EXPECTED"]).read_bytes().decode().split("\0")
    rows = list(zip(words[::2], words[1::2]))
    comparison = Comparison(os.environ["NQ_WITH_LIBRARY"] == "1")
    print(REPORT)
    gdb.execute("up", to_string=True)
    comparison.texts(rows)
    objects = {}
    for expression, _ in rows:
        value = gdb.parse_and_eval(expression)
        objects.setdefault(str(value.type.strip_typedefs().unqualified()), []).append(value)
    comparison.memory_without_objects({name: items[0].type for name, items in objects.items()})
    if comparison.with_library:
        comparison.natvis(objects)
    print(f"{comparison.checked} comparisons, {comparison.bad} differences")
    gdb.execute("kill", to_string=True)
    gdb.execute(f"quit {int(comparison.bad != 0 or len(rows) < 100)}")


# ------------------------------------------------------------------------------------------------------- outside of gdb

def run_gdb(work, program, library, with_library):
    """gdb finds the views by the library's name, as it does where the library is installed."""
    scripts = work / "auto-load"
    views = scripts / str(library.parent).lstrip("/") / f"{library.name}-gdb.py"
    views.parent.mkdir(parents=True, exist_ok=True)
    views.symlink_to(VIEWS)
    expected = work / "expected"
    environment = {**os.environ, "NQ_EXPECTED": str(expected), "NQ_WITH_LIBRARY": str(int(with_library)),
                   "LC_ALL": "C.UTF-8"}
    settings = ["set confirm off", "set debuginfod enabled off", f"set environment LD_LIBRARY_PATH {library.parent}",
                f"add-auto-load-scripts-directory {scripts}", f"add-auto-load-safe-path {work}",
                f"add-auto-load-safe-path {VIEWS.parent}", "set print address on", "set host-charset UTF-8"]
    commands = ["break look", f"run > {expected}", f"source {__file__}"]
    arguments = [word for flag, list_ in (("-iex", settings), ("-ex", commands)) for item in list_
                 for word in (flag, item)]
    result = subprocess.run(["gdb", "-nx", "-batch", *arguments, str(program)], env=environment, capture_output=True,
                            text=True, timeout=300)
    faults = [line for line in (result.stdout + result.stderr).splitlines() if "Python Exception" in line]
    report = result.stdout.partition(REPORT)[2]
    print("\n".join([report.strip()[-5000:], *faults]).strip())
    if result.returncode or faults or not report:
        print(result.stderr[-3000:])
        return False
    return True


def copy_library(build, name, folder, strip):
    """A copy under its full name, and the link that programs look for."""
    link = build / f"lib/lib{name}.so"
    copy = folder / link.resolve().name
    subprocess.run(["objcopy", *strip, str(link.resolve()), str(copy)], check=True)
    (folder / os.readlink(link)).symlink_to(copy.name)
    return copy


def main():
    build = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else ROOT / "build/linux").resolve()
    good = True
    with tempfile.TemporaryDirectory() as folder:
        work = pathlib.Path(folder).resolve()
        program = work / "subject"
        subprocess.run(["g++", "-std=c++20", "-g", "-O0", f"-I{ROOT / 'pub/inc/core'}", f"-I{build / 'include'}",
                        str(SUBJECT), "-o", str(program), str(build / "lib/libnqcore.so"),
                        f"-Wl,-rpath-link,{build / 'lib'}"], check=True)
        for with_library in (True, False):
            print("with" if with_library else "without", "the library's debug information:")
            place = work / ("with" if with_library else "without")
            place.mkdir()
            strip = [] if with_library else ["--strip-debug"]
            copy_library(build, "nqmoduleregistry", place, strip)
            good &= run_gdb(place, program, copy_library(build, "nqcore", place, strip), with_library)
    return 0 if good else 1


if gdb is not None:
    compare()
elif __name__ == "__main__":
    sys.exit(main())
