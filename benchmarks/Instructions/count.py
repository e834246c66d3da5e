#!/usr/bin/env python3
"""Counts the user instructions of operations on the device's processor (32-bit ARM).

usage: count.py [--save] [WORD]...
Cross-builds the programs, runs each operation N and 2 N times under qemu-arm with a plug-in that
counts, and prints the difference by N: what one operation takes, without the set-up. With WORDs
only the operations whose names ("Nlohmann read/citm", "Operations log-line") contain all of them.
--save puts the counts into benchmarks/results/instructions.json, for report.py.

One core is used, so that threads that hand work to each other take turns in one way. The sysroot is
that of scripts/arm; a JSON library that it lacks is left out.
"""
import json
import os
import re
import statistics
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
BUILD = ROOT / "build" / "arm"
PLUGIN = ROOT / "build" / "instruction-counter.so"
RESULTS = ROOT / "benchmarks" / "results" / "instructions.json"
ROUNDS = 3  # of an operation with several threads, whose counts differ a little


def build():
    steps = (
        'usage=; source scripts/setup; install_for build arm count; use_sysroot; '
        'configure arm -DTOLVEX_BUILD_BENCHMARKS=ON; '
        'cmake --build build/arm --parallel "$jobs" --target Instructions >build/count.log || '
        '{ cat build/count.log; exit 1; }; '
        f'cc -O2 -shared -fPIC -o "{PLUGIN}" benchmarks/Instructions/Counter.c; '
        'echo "$TOLVEX_ARM_SYSROOT"'
    )
    done = subprocess.run(["bash", "-c", steps], cwd=ROOT, stdout=subprocess.PIPE, text=True)
    if done.returncode != 0:
        sys.exit(done.stdout + "count.py: the build failed")
    return done.stdout.splitlines()[-1]


def run(sysroot, program, operation, count):
    """The instructions of the main thread and of all others."""
    command = ["taskset", "-c", "0", "qemu-arm", "-plugin", PLUGIN, "-L", sysroot, program,
               operation, str(count)]
    done = subprocess.run(command, stderr=subprocess.PIPE, text=True)
    if done.returncode != 0:
        sys.exit(f"{program.name} {operation} failed:\n{done.stderr}")
    return [int(number) for number in done.stderr.split()[-2:]]


def measure(sysroot, program, operation, count):
    def once():
        once_as_often = run(sysroot, program, operation, count)
        twice_as_often = run(sysroot, program, operation, 2 * count)
        return [(twice - single) / count for twice, single in zip(twice_as_often, once_as_often)]

    rounds = [once()]
    if rounds[0][1] != 0:
        rounds += [once() for _ in range(ROUNDS - 1)]
    return [statistics.median(column) for column in zip(*rounds)]


def main():
    words = sys.argv[1:]
    if any(word in ("-h", "--help") for word in words):
        print(__doc__.strip())
        return
    save = "--save" in words
    words = [word for word in words if word != "--save"]
    if any(word.startswith("-") for word in words):
        print(__doc__.strip(), file=sys.stderr)
        sys.exit(2)

    sysroot = build()
    results = {}
    print(f"{'operation':36} {'instructions':>14} {'main thread':>14} {'other threads':>14}")
    for program in sorted((BUILD / "benchmarks" / "Instructions").glob("Instructions.*")):
        listed = subprocess.run(["qemu-arm", "-L", sysroot, program], check=True,
                                stdout=subprocess.PIPE, text=True).stdout
        for line in listed.splitlines():
            operation, count = line.split()
            name = f"{program.name.removeprefix('Instructions.')} {operation}"
            if not all(word in name for word in words):
                continue
            main_thread, others = measure(sysroot, program, operation, int(count))
            results[name] = {"main": round(main_thread), "others": round(others)}
            print(f"{name:36} {main_thread + others:14,.0f} {main_thread:14,.0f} {others:14,.0f}",
                  flush=True)
    if not results:
        sys.exit("count.py: no operation has such a name")
    if save:
        if words:
            results = {**json.loads(RESULTS.read_text()), **results}
        RESULTS.write_text(json.dumps(results, indent=1) + "\n")


if __name__ == "__main__":
    main()
