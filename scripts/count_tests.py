#!/usr/bin/env python3
"""Sums one CTest run into the line 'NAME: N passed, N failed[, N skipped]'; status 1 unless some passed and none failed.

count_tests.py NAME JUNIT_FILE RESULT_FOLDER

Single test cases are counted from the JSON file that each GoogleTest program wrote into RESULT_FOLDER. A program that
CTest calls failed without a failed case in its file (a crash, a time-out, a sanitizer's report) counts as one failure.
"""
import json
import pathlib
import sys
import xml.etree.ElementTree as ElementTree


def count_cases(file):
    """(passed, skipped, names of the failed) of one GoogleTest program."""
    passed, skipped, failed = 0, 0, []
    for suite in json.loads(file.read_text(encoding="utf-8", errors="replace"))["testsuites"]:
        for case in suite["testsuite"]:
            if case.get("failures"):
                failed.append(f"{case['classname']}.{case['name']}")
            elif case["result"] == "SKIPPED":
                skipped += 1
            elif case["status"] == "RUN":
                passed += 1
    return passed, skipped, failed


def count_program(test, results):
    """The same for one CTest entry, whatever became of its program."""
    name, succeeded = test.get("name"), test.get("status") == "run"
    try:
        passed, skipped, failed = count_cases(results / f"{name}.json")
    except (OSError, ValueError, KeyError) as error:
        passed, skipped, failed = 0, 0, [f"{name} (no result file: {error})"]
    if not succeeded and not failed:
        failed = [f"{name} (ended badly though no case failed)"]
    return passed, skipped, failed


def main():
    target, junit, results = sys.argv[1], sys.argv[2], pathlib.Path(sys.argv[3])
    try:
        tests = list(ElementTree.parse(junit).iter("testcase"))
    except (OSError, ElementTree.ParseError):
        tests = []
    passed, skipped, failed = 0, 0, []
    for test in tests:
        counts = count_program(test, results)
        passed, skipped, failed = passed + counts[0], skipped + counts[1], failed + counts[2]
    for name in failed:
        print(f"{target}: FAILED {name}", file=sys.stderr)
    print(f"{target}: {passed} passed, {len(failed)} failed" + (f", {skipped} skipped" if skipped else ""))
    return 0 if passed and not failed else 1


if __name__ == "__main__":
    sys.exit(main())
