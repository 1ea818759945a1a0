#!/usr/bin/env python3
"""Runs the linux and the win32 `nq` on the same inputs and compares what they answer, byte by byte.

compare_nq_targets.py [LINUX_PROGRAM WIN32_PROGRAM]     (default: those of build/linux and build/win32)

Standard output, standard error and exit code must agree with each other, and the exit code with what is expected.
Only the speed in the reports of `nq scrub` is left out. Prints each difference; status 1 when there is any.
"""
import base64
import os
import pathlib
import random
import re
import select
import subprocess
import sys
import tempfile
import uuid

ROOT = pathlib.Path(__file__).resolve().parent.parent
WINE_RUN = ROOT / "scripts/win32/wine-run"
SPEED = re.compile(rb'(bytes per second  |"bytesPerSecond":)\d+')

CARD = b"2026-11-01 12:34:56 card 4111111111111111 ok\r\n"
LONG_LINE = b"x" * 300_000 + b" 4111111111111111 " + b"\xff" * 9_000 + b"1" * 600_000 + b"/" + b"4111111111111111" * 5


def random_bytes(seed, size):
    return random.Random(seed).randbytes(size)


def random_log(seed, size):
    """Pieces that matter to scrubbing, in any order."""
    source = random.Random(seed)
    pieces = [b"2026-11-01 12:34:56", b"20261101T1234Z", b"2026-11-01T00:00:00+01:00", b"\n", b"\r\n", b" ", b"/", b"word",
              b"4111111111111111", b"411111111117", b"\xc3\xa9", b"\xe2\x82", b"\xff", b"\xf0\x9f\x98\x80", b"12", b"\0"]
    result = b""
    while len(result) < size:
        result += source.choice(pieces)
    return result


UUIDS = b"".join(str(uuid.UUID(bytes=random_bytes(seed, 16), version=seed % 5 + 1)).encode() + b"\n" for seed in range(500))

CPUID = b"""CPU 4:
   0x00000000 0x00: eax=0x0000000b ebx=0x756e6547 ecx=0x6c65746e edx=0x49656e69
   0x00000001 0x00: eax=0x000206a7 ebx=0x02040800 ecx=0x9fbae3ff edx=0xbfebfbff
   0x00000004 0x00: eax=0x04004121 ebx=0x01c0003f ecx=0x0000003f edx=0x00000000
   0x0000000b 0x00: eax=0x00000001 ebx=0x00000002 ecx=0x00000100 edx=0x00000002
   0x0000000b 0x01: eax=0x00000004 ebx=0x00000004 ecx=0x00000201 edx=0x00000002
   0x40000000 0x00: eax=0x40000001 ebx=0x7473654e ecx=0x0a6b6465 edx=0x00006465
   0x80000000 0x00: eax=0x80000002 ebx=0x00000000 ecx=0x00000000 edx=0x00000000
CPU 5:
   0x00000000 0x00: eax=0x00000001 ebx=0x68747541 ecx=0x444d4163 edx=0x69746e65
   0x00000001 0x00: eax=0x00100f42 ebx=0x03040800 ecx=0x00802009 edx=0x178bfbff
"""

FILES = {
    "cpuid.txt": CPUID,
    "uuids.txt": UUIDS,
    "sample.log": (ROOT / "examples/logs/sample.log").read_bytes(),
    "gr\u00f6\u00dfe \u6771\u4eac.log": CARD,
    "bad.txt": b"ab\n\xc3\xa9x\xe2\x82",
    "latin.txt": "caf\u00e9\n".encode("latin-1"),
    "wide.txt": "h\u00e9 \U0001f600\r\n".encode("utf-16-le"),
    "wide_be.txt": "\ufeffh\u00e9 \U0001f600\r\n".encode("utf-16-be"),
    "half.txt": b"a\0\0\xd8b\0",
    "odd.txt": b"a\0b",
    "empty.txt": b"",
    "random.bin": random_bytes(1, 1 << 20),
    "random.log": random_log(2, 1 << 20),
    "long.txt": LONG_LINE,
}

# (expected exit code, arguments, standard input)
CASES = [
    (0, ["--version"], b""),
    (0, ["--help"], b""),
    (0, ["scrub", "--help"], b""),
    (0, ["time", "--help"], b""),
    (0, ["duration", "--help"], b""),
    (0, ["utf8", "to-utf16", "-h"], b""),
    (0, ["error", "match", "--help"], b""),
    (2, [], b""),
    (2, ["--brief"], b""),
    (2, ["scrub", "--foam"], b""),
    (2, ["wash"], b""),
    (0, ["scrub", "sample.log"], b""),
    (0, ["scrub", "--json", "sample.log", "-", "bad.txt"], CARD),
    (0, ["scrub", "--brief", "--", "sample.log"], b""),
    (0, ["scrub", "gr\u00f6\u00dfe \u6771\u4eac.log"], b""),
    (0, ["scrub"], CARD * 1000),
    (0, ["scrub"], b""),
    (0, ["scrub", "empty.txt"], b""),
    (0, ["scrub", "random.bin"], b""),
    (0, ["scrub", "random.log"], b""),
    (0, ["scrub", "long.txt"], b""),
    (0, ["scrub", "-q", "random.log", "-o", "clean.out"], b""),
    (0, ["scrub", "--jobs", "2", "random.log", "-", "long.txt"], CARD * 1000),
    (0, ["scrub", "--jobs", "7", "--json", "long.txt", "empty.txt", "random.bin"], b""),
    (0, ["scrub", "-q", "-j", "3", "random.log", "-o", "clean.out"], b""),
    (0, ["scrub", "--jobs", "0"], CARD * 10_000),
    (1, ["scrub", "--jobs", "4", "random.log", "missing.log", "long.txt"], b""),
    (2, ["scrub", "--jobs", "257"], b""),
    (2, ["scrub", "--brief", "--jobs", "two"], b""),
    (1, ["scrub", "missing.log"], b""),
    (1, ["scrub", "--brief", "miss\u00e9 \U0001f600.log"], b""),
    (1, ["scrub", "folder"], b""),
    (1, ["scrub", "bad.txt", "-o", "folder"], b""),
    (1, ["scrub", "--brief", "bad.txt", "-o", "no_folder/x"], b""),
    (2, ["scrub", "clean.out", "-o", "./clean.out"], b""),
    (0, ["time", "2020-02-29T12:34:56.789Z", "INF", "1677-09-21 00:12:43.145224192"], b""),
    (0, ["time", "--json"], b"2020-02-29T12:34:56.789Z\r\n20200229t1234\nINF"),
    (0, ["time", "--from", "jd", "--iso", "--jd", "2451545.123456789", "2335000.75", "2547338.5"], b""),
    (1, ["time", "--from", "jd", "-1"], b""),
    (1, ["time", "--from", "jd", "--", "-1", "0.75", "1e300", "nan", "x"], b""),
    (1, ["time", "--iso"], b"2020-02-30 00:00:00\n\n2020-01-01T24:00:01\n\xff\n2262-04-11 23:47:16.854775807\n"),
    (1, ["time", "--brief", "--ns", "2020-13-01T00:00:00", "2020-01-01T00:00:00+01:00"], b""),
    (1, ["time"], b"x" * 3_000_000),
    (0, ["time", "--from", "zoned", "2020-01-01T12:00:00+02:00", "INF", "20200101T1200-99:59"], b""),
    (1, ["time", "--from", "zoned", "--json"], b"2020-01-01T12:00:00-0530\r\n2020-01-01T12:00:00Zx\nINF+02\n\xff\n"),
    (0, ["duration", "1d 2h 3m 4.5s", "P1W2DT0,25H", "##INFINITE##", ""], b""),
    (0, ["duration", "--json"], b"90s\r\n250ms\n-9223372036.854775808s\nPT0.9999999999999999995S\nP999999D"),
    (1, ["duration", "--human", "--seconds"], b"1H\n1mx\n5\n106752d\nP1Y\nPT1D\n\xc2\xb5s\n1u\n9223372036854775800ns\n"),
    (1, ["duration", "--brief", "--ns", "P9223372036854775808D", "P", "1ns", "x" * 3000], b""),
    (2, ["duration", "--weeks"], b""),
    (1, ["utf8", "check", "sample.log", "latin.txt", "bad.txt", "empty.txt"], b""),
    (1, ["utf8", "check", "--json", "random.bin", "bad.txt", "wide.txt", "-"], b"\xef\xbb\xbfx"),
    (0, ["utf8", "repair", "random.bin"], b""),
    (0, ["utf8", "repair", "--replacement", "_"], b"a\xc0\x80\xf0"),
    (1, ["utf8", "to-utf16", "sample.log"], b""),
    (0, ["utf8", "to-utf16", "--be", "--bom"], "h\u00e9 \U0001f600\r\n".encode()),
    (0, ["utf8", "from-utf16", "wide.txt"], b""),
    (0, ["utf8", "from-utf16", "--bom", "wide_be.txt", "wide.txt"], b""),
    (1, ["utf8", "from-utf16", "half.txt"], b""),
    (1, ["utf8", "from-utf16", "--brief", "odd.txt"], b""),
    (0, ["encode", "--help"], b""),
    (0, ["decode", "--help"], b""),
    (0, ["encode", "--base64", "random.bin"], b""),
    (0, ["encode", "--base32", "-w", "0", "random.bin"], b""),
    (0, ["encode", "--hex"], random_bytes(3, 300_001)),
    (0, ["encode", "--base64", "--unpadded", "empty.txt"], b""),
    (2, ["encode", "random.bin"], b""),
    (0, ["decode", "--base64"], base64.encodebytes(random_bytes(4, 1 << 20)).replace(b"\n", b"\r\n")),
    (0, ["decode", "--base32", "--ignore-case"], base64.b32encode(random_bytes(5, 300_001)).lower()),
    (1, ["decode", "--hex", "--strict"], random_bytes(6, 300_001).hex().encode() + b"\n"),
    (1, ["decode", "--base64"], base64.encodebytes(random_bytes(7, 300_001)) + b"A"),
    (1, ["decode", "--base64", "--brief", "random.bin"], b""),
    (0, ["dump", "--help"], b""),
    (0, ["dump", "random.bin"], b""),
    (0, ["dump", "--skip", "0x10", "--length", "33", "wide.txt", "random.bin"], b""),
    (0, ["dump", "empty.txt"], b""),
    (0, ["dump"], b"a\x7f\xff\r\n"),
    (0, ["dump", "--reverse"], b"10: 0d0a 1a00  text\r\n00000014: ff : .\n"),
    (1, ["dump", "--reverse", "--brief"], b"0: 30\n2: 31\n"),
    (1, ["dump", "--reverse", "sample.log"], b""),
    (1, ["dump", "missing.bin"], b""),
    (2, ["dump", "--length", "x"], b""),
    (0, ["error", "list"], b""),
    (0, ["error", "list", "error.errno", "--json"], b""),
    (0, ["error", "show", "2"], b""),
    (0, ["error", "show", "0x1c", "--json"], b""),
    (2, ["error", "show", "99999999999"], b""),
    (0, ["error", "match", "error.a.b", "error.a"], b""),
    (1, ["error", "match", "error.ab", "error.a"], b""),
    (0, ["uuid", "--help"], b""),
    (0, ["uuid", "new", "-n", "0"], b""),
    (2, ["uuid", "new", "-n", "x"], b""),
    (1, ["uuid", "new", "--time", "x"], b""),
    (0, ["uuid", "show", "c232ab00-9414-11ec-b3c8-9f6bdeced846", "00000000-0000-c000-8000-074294967295"], b""),
    (1, ["uuid", "show", "--json"], b"{017F22E2-79B0-7CC3-98C4-DC0C0C07398F}\r\n\n00000000000000000000000000000000\nx"),
    (0, ["uuid", "sort", "--by", "bytes", "--unique", "uuids.txt", "uuids.txt"], b""),
    (0, ["uuid", "sort", "--by", "time", "--format", "braced"], UUIDS),
    (1, ["uuid", "sort", "bad.txt"], b""),
    (0, ["hash", "--json", "random.bin", "-", "empty.txt"], b"hello"),
    (0, ["hash", "--seed", "4294967295", "--text", "gr\u00f6\u00dfe", ""], b""),
    (2, ["hash", "--seed", "4294967296"], b""),
    (1, ["hash", "missing.log"], b""),
    (0, ["env", "--help"], b""),
    (0, ["env", "set-and-run", "--help"], b""),
    (0, ["run", "--help"], b""),
    (0, ["env", "get", "NQ_COMPARED"], b""),
    (1, ["env", "get", "--json", "NQ_COMPARED", "NQ_NOT_THERE", "A=B", ""], b""),
    (1, ["env", "get", "NQ_NOT_THERE"], b""),
    (0, ["env", "expand", "%NQ_COMPARED%%NQ_NO%NQ_COMPARED%", "%%", "%", "", "%NQ_COMPARED"], b""),
    (1, ["env", "expand"], b"%NQ_COMPARED%%%NQ_COMPARED%%\r\na\0b\n" + b"%NQ_COMPARED%%x%" * 40_000),
    (127, ["run", "no_such_program"], b""),
    (127, ["env", "set-and-run", "--brief", "NQ_COMPARED=2", "--", "no_such_program"], b""),
    (2, ["run", "--time-limit", "60", "x"], b""),
    (2, ["run", "--kill-after", "1x", "x"], b""),
    (2, ["env", "set-and-run", "A=1", "--"], b""),
    (0, ["cpu", "--help"], b""),
    (2, ["cpu", "--raw", "--info"], b""),
    (1, ["cpu", "--from", "missing.txt"], b""),
    (1, ["cpu", "--from", "bad.txt"], b""),
    (1, ["cpu", "--from", "-"], b""),
    (1, ["cpu", "--from", "cpuid.txt", "--cpu", "6"], b""),
    (1, ["cpu", "--cpu", "4000000000"], b""),
    (0, ["trace", "--help"], b""),
    (2, ["trace", "--all"], b""),
    (2, ["trace", "--full", "--json"], b""),
]
CASES += [(0, ["cpu", "--from", "cpuid.txt", *form], b"") for form in (
    [], ["--cpu", "5"], ["--all", "--json"], ["--raw", "--all"], ["--raw", "--json"], ["--info"], ["--info", "--cpu", "5"],
    ["--flags"], ["--flags", "--json"], ["--hash", "--hypervisor"], ["--digest", "--normalize", "--all"], ["--topology"],
    ["--topology", "--json"])]
# The same on both systems only where errno numbers have the same meaning.
CASES += [(0, ["error", "show", "--brief", str(number)], b"") for number in (0, 1, 11, 12, 13, 21, 22, 28, 32, 10054)]


def run(program, arguments, folder, **streams):
    result = subprocess.run([*program, *arguments], cwd=folder, timeout=120, **streams)
    return result.returncode, result.stdout, result.stderr


def to_full_device(program, folder, jobs):
    with open("/dev/full", "wb") as full:
        return run(program, ["scrub", "--brief", "--jobs", jobs, "random.log"], folder, stdout=full,
                   stderr=subprocess.PIPE, stdin=subprocess.DEVNULL)


def to_closed_pipe(program, folder, jobs):
    read_end, write_end = os.pipe()
    os.close(read_end)
    with open(write_end, "wb") as pipe:
        return run(program, ["scrub", "--brief", "--jobs", jobs, "random.log"], folder, stdout=pipe,
                   stderr=subprocess.PIPE, stdin=subprocess.DEVNULL)


def following(program, folder, jobs):
    """Each line of a log that is still being written must come out before the next one goes in."""
    process = subprocess.Popen([*program, "scrub", "--quiet", "--jobs", jobs], cwd=folder, bufsize=0,
                               stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    out = b""
    for text in (b"one\n", b"two\nthr", b"ee\n"):
        process.stdin.write(text)
        if not select.select([process.stdout], [], [], 20)[0]:
            out += b"(nothing came)"
            break
        out += process.stdout.read(1000)
    rest, err = process.communicate(timeout=20)
    return process.returncode, out + rest, err


STREAMS = [
    ("> /dev/full", 1, to_full_device),
    ("> closed pipe", 1, to_closed_pipe),
    ("following a log", 0, following),
]


def shown(answer):
    code, out, err = answer
    return f"status {code}, {len(out or b'')} bytes {(out or b'')[:300]!r}\n      error text {err[:900]!r}"


def main():
    programs = sys.argv[1:] or [str(ROOT / "build/linux/bin/nq"), str(ROOT / "build/win32/bin/nq.exe")]
    linux, win32 = [str(pathlib.Path(programs[0]).resolve())], [str(WINE_RUN), str(pathlib.Path(programs[1]).resolve())]
    # Wine reads the names of files and arguments by the locale.
    os.environ["LC_ALL"] = "C.UTF-8"
    os.environ["NQ_COMPARED"] = "h\u00e9 \U0001f600"
    os.environ.pop("NO_COLOR", None)
    differences = 0
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        (folder / "folder").mkdir()
        for file, content in FILES.items():
            (folder / file).write_bytes(content)

        def compare(title, expected, answers):
            nonlocal differences
            cleaned = [(code, SPEED.sub(rb"\1N", out or b""), SPEED.sub(rb"\1N", err)) for code, out, err in answers]
            if cleaned[0] != cleaned[1] or cleaned[0][0] != expected:
                differences += 1
                print(f"{title}: expected status {expected}\n  linux {shown(answers[0])}\n  win32 {shown(answers[1])}")

        for expected, arguments, standard_input in CASES:
            answers = [run(program, arguments, folder, input=standard_input, capture_output=True)
                       for program in (linux, win32)]
            compare("nq " + " ".join(arguments), expected, answers)
            made = folder / "clean.out"
            if made.exists() and "-o" in arguments and expected == 0:
                # The file of the second run must be that of the first.
                second = made.read_bytes()
                run(linux, arguments, folder, input=standard_input, capture_output=True)
                if made.read_bytes() != second or not second:
                    differences += 1
                    print(f"nq {' '.join(arguments)}: different files")
        for title, expected, work in STREAMS:
            for jobs in ("1", "3"):
                compare(f"nq scrub --jobs {jobs} {title}", expected,
                        [work(program, folder, jobs) for program in (linux, win32)])
    print(f"{len(CASES) + 2 * len(STREAMS)} runs on both targets, {differences} differences")
    return 1 if differences else 0


if __name__ == "__main__":
    sys.exit(main())
