#!/usr/bin/env python3
"""check_scrub_memory.py [NQ]: `nq scrub` on streams of 1 GiB must stay under 64 MiB resident, and lose nothing,
with one job and with four.

One stream has lines, one is a single line of text, one a single number. NQ: the program (default: the linux tree's).
"""
import itertools
import os
import pathlib
import subprocess
import sys
import threading
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
LIMIT_KIB = 64 * 1024
SIZE = 1 << 30
JOBS = (1, 4)
STREAMS = {
    "lines": b"2026-11-01T12:34:56.789Z INFO  [worker-3] request served id=7f3a took=1200us from 10.0.0.1\n" * 11_000,
    "one line of text": b"word " * 200_000,
    "one number": b"4" * 1_000_000,
}


def feed(pipe, block):
    left = SIZE
    try:
        while left:
            left -= pipe.write(block[:left])
        pipe.close()
    except BrokenPipeError:
        pass    # the program's exit code tells


def drain(pipe, counted):
    # Reads without keeping.
    buffer = bytearray(1 << 20)
    while count := pipe.readinto(buffer):
        counted[0] += count


def measure(program, jobs, block):
    """Exit code, bytes out, highest resident size in KiB, seconds."""
    begin = time.monotonic()
    process = subprocess.Popen([program, "scrub", "--quiet", "--jobs", str(jobs)], stdin=subprocess.PIPE,
                               stdout=subprocess.PIPE, bufsize=0)
    counted = [0]
    threads = [threading.Thread(target=feed, args=(process.stdin, block)),
               threading.Thread(target=drain, args=(process.stdout, counted))]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    return process.returncode, counted[0], usage.ru_maxrss, time.monotonic() - begin


def main():
    program = sys.argv[1] if len(sys.argv) > 1 else str(ROOT / "build/linux/bin/nq")
    failed = False
    for jobs, (name, block) in itertools.product(JOBS, STREAMS.items()):
        status, size, resident, seconds = measure(program, jobs, block)
        # None of these texts changes its length: the stamps have their final form already.
        good = status == 0 and size == SIZE and resident < LIMIT_KIB
        failed |= not good
        print(f"{name}, jobs {jobs}: status {status}, {size} of {SIZE} bytes, {resident / 1024:.1f} MiB resident, "
              f"{seconds:.1f} s{'' if good else '  FAILED'}")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
