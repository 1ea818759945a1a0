#!/usr/bin/env python3
"""Breaks the library on purpose, a little at a time, and reports which breaks no test notices.

    scripts/mutate.py [--count N | --each N] [--seed S] [--only REGEX] [--list] [--report]

Each mutant is one small change of one line: a comparison, a sign, a constant, a condition, `&&`, a statement left out.
Only that object is compiled, the library linked, and the tests of that source run until one fails. A change of a public
header is compiled into those tests alone, as its users would compile it: half the library includes refcounted.h. The
work is done in a copy of the tree, build/mutate/source; an interrupted run goes on where it was, and a mutant is tried
anew only when its source or one of its tests has changed.

caught      a test fails, hangs or crashes, or a static_assert does not hold
survived    no test noticed: a test is missing, the code is not needed, or the change changes nothing
refused     the compiler took it for a mistake (warnings are errors)

Status 1 when a mutant survived that is not in scripts/mutate_same.txt, where those are that change nothing.
"""
import argparse
import fcntl
import hashlib
import json
import os
import pathlib
import random
import re
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
COPY = ROOT / "build/mutate/source"
TREE = COPY / "build/linux"
RESULTS = ROOT / "build/mutate/results.jsonl"
SAME = ROOT / "scripts/mutate_same.txt"
LIBRARY = "int/src/nqcore/"
PUBLIC = "pub/inc/core/nqcore/"
TEST_SECONDS = 60
BUILD_SECONDS = 600

# What is mutated, and the tests that are to notice, those of its own first.
ERRORS = "error_info_test error_composer_test error_exception_test error_builder_test"
FUTURES = "future_test result_test barrier_test"
TESTS = {
    LIBRARY + "utc_text_parse.cpp": "utc_text_test simple_date_time_test",
    LIBRARY + "utc_text_write.cpp": "utc_text_test simple_date_time_test",
    LIBRARY + "time_components.cpp": "time_components_test utc_text_test",
    LIBRARY + "calendar_math.h": "time_components_test utc_text_test",
    LIBRARY + "duration_text_parse.cpp": "duration_text_test",
    LIBRARY + "duration_text_write.cpp": "duration_text_test",
    LIBRARY + "simple_date_time.cpp": "simple_date_time_test",
    LIBRARY + "abs_rel_time.cpp": "abs_rel_time_test utc_text_test",
    LIBRARY + "abs_rel_time_convert.cpp": "abs_rel_time_test time_components_test",
    LIBRARY + "string_to.cpp": "string_to_test",
    LIBRARY + "string_to_double.cpp": "string_to_double_test string_to_test",
    LIBRARY + "string_to_number.cpp": "string_to_test",
    LIBRARY + "uuid_text.cpp": "uuid_test",
    LIBRARY + "transforms_decode.cpp": "transforms_test transforms_kernels_internal_test",
    LIBRARY + "ucsutil_char.cpp": "ucsutil_test ucsutil_convert_test",
    LIBRARY + "ucsutil_convert.cpp": "ucsutil_convert_test ucsutil_test",
    LIBRARY + "cpuid_dump.cpp": "cpuid_dump_test",
    LIBRARY + "error_code.cpp": "error_code_test " + ERRORS,
    LIBRARY + "error_composer.cpp": "error_composer_test " + ERRORS,
    LIBRARY + "error_errno.cpp": "errno_names_test error_exception_test " + ERRORS,
    LIBRARY + "error_exception.cpp": "error_exception_test stack_trace_test error_info_test error_memory_internal_test",
    LIBRARY + "error_from_exception.cpp": "error_exception_test error_info_test",
    LIBRARY + "error_info.cpp": ERRORS + " error_memory_internal_test",
    LIBRARY + "error_info_trace.cpp": "error_info_test",
    LIBRARY + "error_params.cpp": "error_params_test error_memory_internal_test " + ERRORS,
    LIBRARY + "error_text.cpp": ERRORS,
    LIBRARY + "source_string.cpp": "source_string_test source_location_test error_info_test",
    LIBRARY + "source_location.cpp": "source_location_test error_info_test",
    LIBRARY + "future.cpp": FUTURES + " future_model_test async_allocation_internal_test",
    PUBLIC + "refcounted.h": "refcounted_test refcount_model_test refcount_guard_test",
    PUBLIC + "refcount_guard.h": "refcount_guard_test refcount_model_test",
    PUBLIC + "weak_ref_ptr.h": "refcount_guard_test refcount_model_test",
    PUBLIC + "atomic_op.h": "atomic_op_test refcounted_test",
    PUBLIC + "error_params.h": "error_params_test error_memory_internal_test error_composer_test",
}

# (what it is called, what it matches, what it becomes). Binary operators stand between blanks; brackets do not.
RULES = [
    ("compare", r" < ", " <= "), ("compare", r" <= ", " < "), ("compare", r" > ", " >= "), ("compare", r" >= ", " > "),
    ("equal", r" == ", " != "), ("equal", r" != ", " == "),
    ("logic", r" && ", " || "), ("logic", r" \|\| ", " && "),
    ("sign", r" \+ ", " - "), ("sign", r" - ", " + "), ("sign", r" \+= ", " -= "), ("sign", r" -= ", " += "),
    ("sign", r"\+\+(?=[\w*])", "--"),
    ("scale", r" \* (?=\w)", " / "), ("scale", r" / ", " * "), ("scale", r" % ", " / "),
    ("answer", r"\breturn true;", "return false;"), ("answer", r"\breturn false;", "return true;"),
    ("constant", r"(?<![\w.'\"])\d+(?![\w.'\"])", lambda m: str(int(m[0]) + 1)),
    ("condition", r"\b(if|while) \((?!const )(?!.*;)(.+)\) \{$", r"\1 (!(\2)) {"),
    ("condition", r"(?<=return )(\w[^?;]*)(?= \? )", r"!(\1)"),
    ("statement", r"^\s+(?!return|throw|using|static|else|case|break|continue|delete|goto)"
                  r"[\w:.>\-\[\]*()]+ [-+*/%|&^<>]*= .*;$", ";"),
    ("statement", r"^\s+(?!return|throw|static_cast|else|delete)[\w:.>\-]+\(.*\);$", ";"),
    ("statement", r"^\s+(\+\+|--)[\w.>\-]+;$", ";"),
]
# Lines that say what something is, not what is done.
DECLARATION = re.compile(r"^\s*(#|//|\*|static_assert|template|using|namespace|NQCORE_|constexpr SourceId|\[\[)")


def without_texts(line):
    """The line with comments and literals blanked, so that columns stay."""
    line = re.sub(r'"(\\.|[^"\\])*"|\'(\\.|[^\'\\])\'', lambda m: '"' * len(m[0]), line)
    return line.split("//")[0].rstrip()


def mutants_of(name):
    lines = (ROOT / name).read_text().split("\n")
    for number, line in enumerate(lines, 1):
        code = without_texts(line)
        if not code.strip() or DECLARATION.match(code):
            continue
        begins = not lines[number - 2].strip() or without_texts(lines[number - 2]).endswith((";", "{", "}", ":")) \
            or lines[number - 2].strip().startswith("//")
        for kind, pattern, replacement in RULES:
            if kind == "statement" and not begins:    # the end of one
                continue
            for match in re.finditer(pattern, code):
                original = re.match(pattern, line[match.start():match.end()]) if kind == "constant" else match
                new = replacement(original) if callable(replacement) else match.expand(replacement)
                if kind == "condition":    # the literals back
                    new = splice_condition(line, match, replacement)
                changed = line[:match.start()] + new + line[match.end():]
                # The same change of the same text at another place in the file is another mutant.
                above = "\n".join(lines[max(0, number - 3):number + 2])
                key = hashlib.sha256(f"{name}\n{above}\n{match.start()}\n{changed}".encode()).hexdigest()[:16]
                yield {"file": name, "line": number, "kind": kind, "old": line.strip(), "new": changed.strip(),
                       "text": changed, "key": key}


def splice_condition(line, match, replacement):
    groups = [line[match.start(i):match.end(i)] for i in range(1, match.re.groups + 1)]
    return re.sub(r"\\(\d)", lambda m: groups[int(m[1]) - 1], replacement)


def digest(*files):
    value = hashlib.sha256()
    for file in files:
        value.update((ROOT / file).read_bytes())
    return value.hexdigest()[:16]


def test_sources(tests):
    folder = ROOT / "int/test/nqcore"
    return [str(file.relative_to(ROOT)) for test in tests for file in folder.glob(f"**/{test}.cpp")]


def run(command, seconds, **options):
    """(status, output); status 124 when the time is over."""
    try:
        done = subprocess.run(command, timeout=seconds, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              errors="replace", **options)
        return done.returncode, done.stdout
    except subprocess.TimeoutExpired as late:
        return 124, str(late.stdout or "")


def copy_tree():
    """Brings the copy up to date; only what differs is written, so that little is built anew."""
    command = ["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"]
    names = subprocess.run(command, cwd=ROOT, check=True, capture_output=True, text=True).stdout.split("\0")
    names = {name for name in names if name and (ROOT / name).is_file()}
    for name in names:
        source, copy = ROOT / name, COPY / name
        content = source.read_bytes()
        if not copy.exists() or copy.read_bytes() != content:
            copy.parent.mkdir(parents=True, exist_ok=True)
            copy.write_bytes(content)
            copy.chmod(source.stat().st_mode)
    for copy in COPY.glob("int/**/*.*"):
        if copy.is_file() and str(copy.relative_to(COPY)) not in names:
            copy.unlink()


def build(targets):
    environment = dict(os.environ)
    if "CCACHE_BASEDIR" in environment:
        environment["CCACHE_BASEDIR"] = str(COPY)
    command = ["cmake", "--build", str(TREE), "-j", "1", "--target", *targets]
    return run(command, BUILD_SECONDS, env=environment, cwd=COPY)


def prepare(tests):
    copy_tree()
    if not (TREE / "build.ninja").exists():
        status, output = run(["cmake", "-S", str(COPY), "--preset", "linux"], 300, cwd=COPY)
        if status != 0:
            sys.exit(output)
    status, output = build(["nqcore", *tests])
    if status != 0:
        sys.exit(output + "\nthe unchanged tree does not build")


def run_tests(tests):
    """The first test that notices, or None."""
    for test in tests:
        status, _ = run([str(TREE / "bin" / test), "--gtest_brief=1", "--gtest_fail_fast"], TEST_SECONDS, cwd=TREE,
                        stdin=subprocess.DEVNULL)
        if status != 0:
            return test + (" (hangs)" if status == 124 else "")
    return None


def build_for(name, tests):
    """Builds what a change of `name` needs; (status, output) of the step that fails, or of the last."""
    if not name.startswith(PUBLIC):
        internal = [test for test in tests if name.endswith(".h") or test.endswith("_internal_test")]
        return build(["nqcore", *internal])
    for test in tests:
        _, commands = run(["ninja", "-C", str(TREE), "-t", "commands", test], BUILD_SECONDS)
        for command in commands.splitlines():
            if f"/{test}.cpp.o" in command:    # its object, then its program
                status, output = run(["sh", "-c", command], BUILD_SECONDS, cwd=TREE)
                if status != 0:
                    return status, output
    return 0, ""


def try_mutant(mutant, tests):
    copy = COPY / mutant["file"]
    lines = (ROOT / mutant["file"]).read_text().split("\n")
    lines[mutant["line"] - 1] = mutant["text"]
    copy.write_text("\n".join(lines))
    # Tests that have to be compiled are taken one by one: the first mostly notices.
    steps = [[test] for test in tests] if mutant["file"].startswith(PUBLIC) else [tests]
    for step in steps:
        status, output = build_for(mutant["file"], step)
        if status != 0:
            return ("caught", "static_assert") if "static assertion failed" in output else ("refused", "")
        if by := run_tests(step):
            return "caught", by
    return "survived", ""


def check_unchanged(name, tests):
    copy_tree()
    status, output = build(["nqcore", *tests])
    test = run_tests(tests) if status == 0 else output
    if test:
        sys.exit(f"without any change: {test}")


def known_results():
    if not RESULTS.exists():
        return {}
    return {row["key"] + row["digest"]: row for row in map(json.loads, RESULTS.read_text().splitlines())}


def same_mutants():
    """Lines `FILE: OLD => NEW  # why it changes nothing`."""
    lines = SAME.read_text().splitlines() if SAME.exists() else []
    return {line.split("  # ")[0].strip() for line in lines if line.strip() and not line.startswith("#")}


def name_of(row):
    return f"{pathlib.Path(row['file']).name}: {row['old']} => {row['new']}"


def report(rows):
    same = same_mutants()
    counts = {}
    for row in rows:
        if row["result"] == "survived" and name_of(row) in same:
            row["result"] = "same"
        counts.setdefault(row["file"], {}).setdefault(row["result"], []).append(row)
    left = 0
    for name, found in sorted(counts.items()):
        numbers = ", ".join(f"{len(found[result])} {result}" for result in ("caught", "survived", "same", "refused")
                            if result in found)
        print(f"{name}: {numbers}")
        for row in sorted(found.get("survived", []), key=lambda row: row["line"]):
            print(f"    {row['line']}: {row['old']}\n        => {row['new']}")
            left += 1
    total = {result: sum(len(found.get(result, [])) for found in counts.values())
             for result in ("caught", "survived", "same", "refused")}
    print("mutants: " + ", ".join(f"{number} {result}" for result, number in total.items()))
    return left


def main():
    options = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    options.add_argument("--count", type=int, help="a sample of so many (all)")
    options.add_argument("--each", type=int, help="a sample of so many of each source")
    options.add_argument("--seed", type=int, default=1, help="which sample")
    options.add_argument("--only", default="", help="sources whose names match")
    options.add_argument("--seconds", type=int, default=10**9, help="stop after so long")
    options.add_argument("--list", action="store_true", help="say what would be tried")
    options.add_argument("--report", action="store_true", help="only report what is known of it")
    chosen = options.parse_args()

    mutants = []
    for name in (name for name in TESTS if re.search(chosen.only, name)):
        found = list(mutants_of(name))
        if chosen.each is not None and chosen.each < len(found):
            found = random.Random(f"{chosen.seed} {name}").sample(found, chosen.each)
        mutants += found
    if chosen.count is not None and chosen.count < len(mutants):
        mutants = random.Random(chosen.seed).sample(mutants, chosen.count)
    mutants.sort(key=lambda mutant: (mutant["file"], mutant["line"]))
    if chosen.list:
        for mutant in mutants:
            print(f"{mutant['file']}:{mutant['line']}: {mutant['kind']}: {mutant['new']}")
        print(f"{len(mutants)} mutants")
        return 0

    tests = {name: [test for test in TESTS[name].split() if test_sources([test])] for name in TESTS}
    digests = {name: digest(name, *test_sources(tests[name])) for name in {mutant["file"] for mutant in mutants}}
    known = known_results()
    rows = [known[key] for mutant in mutants if (key := mutant["key"] + digests[mutant["file"]]) in known]
    if not chosen.report:
        rows = try_all(mutants, tests, digests, known, time.monotonic() + chosen.seconds)
    return 1 if report(rows) else 0


def try_all(mutants, tests, digests, known, until):
    RESULTS.parent.mkdir(parents=True, exist_ok=True)
    lock = RESULTS.with_name("lock").open("w")    # held until the process ends: two would break each other's copy
    try:
        fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except BlockingIOError:
        sys.exit("another run is at work in build/mutate")
    prepare(sorted({test for mutant in mutants for test in tests[mutant["file"]]}))
    rows, previous = [], None
    try:
        for number, mutant in enumerate(mutants, 1):
            row = known.get(mutant["key"] + digests[mutant["file"]])
            if row is None and time.monotonic() < until:
                if previous != mutant["file"]:
                    previous = mutant["file"]
                    check_unchanged(previous, tests[previous])
                result, by = try_mutant(mutant, tests[mutant["file"]])
                row = {**mutant, "digest": digests[mutant["file"]], "result": result, "by": by}
                with RESULTS.open("a") as file:
                    file.write(json.dumps(row) + "\n")
                print(f"[{number}/{len(mutants)}] {result:8} {mutant['file']}:{mutant['line']}  {mutant['new']}",
                      flush=True)
            if row is not None:
                rows.append(row)
    finally:
        copy_tree()
    return rows


if __name__ == "__main__":
    sys.exit(main())
