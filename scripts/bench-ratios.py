#!/usr/bin/env python3
"""Runs benchmark programs and prints each result as a ratio to the copy baseline of the
same program (the first benchmark whose name contains "Copy" and whose plane count, if any,
matches), so each figure compares two things measured in one run.

Each benchmark runs REPETITIONS times (environment, default 5) and the fastest run counts:
on a shared machine the slow runs measure the neighbours, not the code."""
import json
import os
import re
import subprocess
import sys


def planes_of(name):
    # A whole path segment, so that a member name such as GetAvrGrayRaw does not count.
    m = re.search(r"/(grey|gray|colour|color|1|3)(?=/|$)", name, re.I)
    if not m:
        return None
    return 3 if m.group(1).lower() in ("colour", "color", "3") else 1


def fastest_runs(program, repetitions):
    """The fastest iteration run of each benchmark, in the program's order."""
    out = subprocess.run([program, "--benchmark_format=json", f"--benchmark_repetitions={repetitions}"],
                         capture_output=True, text=True, check=True)
    best = {}
    for b in json.loads(out.stdout)["benchmarks"]:
        if b.get("run_type", "iteration") != "iteration":
            continue
        name = b.get("run_name", b["name"])
        if name not in best or b["real_time"] < best[name]["real_time"]:
            best[name] = dict(b, name=name)
    return list(best.values())


def report(program, repetitions):
    runs = fastest_runs(program, repetitions)
    baselines = [b for b in runs if "copy" in b["name"].lower()]
    print(f"== {program} (fastest of {repetitions})")
    for b in runs:
        base = next((c for c in baselines if planes_of(c["name"]) == planes_of(b["name"])), baselines[0] if baselines else None)
        ratio = f"{b['real_time'] / base['real_time']:.2f} x copy" if base else "no baseline"
        print(f"  {b['name']:<60} {b['real_time']:10.2f} {b['time_unit']}  {ratio}")


if __name__ == "__main__":
    repetitions = int(os.environ.get("REPETITIONS", "5"))
    for program in sys.argv[1:]:
        report(program, repetitions)
