#!/usr/bin/env python3
"""Compares the library of an earlier commit with the working tree's on the same benchmark
program, for a machine whose speed drifts from minute to minute.

    scripts/bench-ab.py BASE PROGRAM [FILTER] [ROUNDS]

BASE is any commit; PROGRAM a benchmark program of build-bench/bench (bench_tone, say);
FILTER a --benchmark_filter expression; ROUNDS (default 6) how many times each side runs.
The base library is built in a temporary worktree, and the two sides run alternately, one
process each, so that a slow phase of the machine falls on both. Each side's fastest run
counts.

Only the shared libraries differ between the sides: the benchmark program is the working
tree's. That is sound as long as the public headers the program uses did not change
between BASE and the working tree."""
import json
import os
import shutil
import subprocess
import sys
import tempfile

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
BENCH_BUILD = os.path.join(ROOT, "build-bench")
# The library and the two it links, as build directories lay them out.
LIBRARIES = [("src", "libqrnimg.so"), ("src/container", "libqrncim.so"), ("src/platform", "libqrnsys.so")]


def run(args, **kw):
    subprocess.run(args, check=True, **kw)


def configure_and_build(source, build, targets):
    # Configured every time, so that an existing build folder is a release build too.
    run(["cmake", "-S", source, "-B", build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release", "-DQRN_BUILD_BENCH=ON",
         "-DQRN_BUILD_TESTS=OFF"], stdout=subprocess.DEVNULL)
    run(["cmake", "--build", build, "--target", *targets], stdout=subprocess.DEVNULL)


def collect_libraries(build, into):
    """Copies the built libraries, under their run-time names, into a directory of their own.
    A library left out would be found through the program's run path instead: the working
    tree's, which would make both sides the same."""
    os.makedirs(into)
    for folder, name in LIBRARIES:
        directory = os.path.join(build, folder)
        entries = [e for e in os.listdir(directory) if e.startswith(name + ".")] if os.path.isdir(directory) else []
        if not entries:
            sys.exit(f"{name} not found in {directory}: this script knows the layout of recent builds only")
        for entry in entries:
            shutil.copy2(os.path.join(directory, entry), os.path.join(into, entry), follow_symlinks=True)


def build_base(commit, scratch):
    tree = os.path.join(scratch, "tree")
    run(["git", "-C", ROOT, "worktree", "add", "--detach", tree, commit], stdout=subprocess.DEVNULL,
        stderr=subprocess.DEVNULL)
    try:
        build = os.path.join(scratch, "build")
        configure_and_build(tree, build, ["qrnimg"])
        collect_libraries(build, os.path.join(scratch, "base"))
    finally:
        run(["git", "-C", ROOT, "worktree", "remove", "--force", tree])


def timings(program, libraries, pattern):
    env = dict(os.environ, LD_LIBRARY_PATH=libraries)
    out = subprocess.run([program, "--benchmark_format=json", f"--benchmark_filter={pattern}",
                          "--benchmark_min_time=0.3"], capture_output=True, text=True, check=True, env=env)
    return {b["name"]: (b["real_time"], b["time_unit"]) for b in json.loads(out.stdout)["benchmarks"]}


def main():
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    commit, program = sys.argv[1], sys.argv[2]
    pattern = sys.argv[3] if len(sys.argv) > 3 else "."
    rounds = int(sys.argv[4]) if len(sys.argv) > 4 else 6
    program = os.path.join(BENCH_BUILD, "bench", os.path.basename(program))
    configure_and_build(ROOT, BENCH_BUILD, ["qrnimg", os.path.basename(program)])
    with tempfile.TemporaryDirectory() as scratch:
        build_base(commit, scratch)
        collect_libraries(BENCH_BUILD, os.path.join(scratch, "head"))
        sides = {"base": os.path.join(scratch, "base"), "head": os.path.join(scratch, "head")}
        best, units = {}, {}
        for round_ in range(rounds):
            # Each side goes first in every other round, so neither always runs on a warm machine.
            order = list(sides.items()) if round_ % 2 == 0 else list(reversed(sides.items()))
            for side, libraries in order:
                for name, (time, unit) in timings(program, libraries, pattern).items():
                    key = (name, side)
                    best[key] = min(best.get(key, time), time)
                    units[name] = unit
    print(f"{'benchmark':<60} {'base':>10} {'head':>10}  head/base (fastest of {rounds})")
    for name, unit in units.items():
        base, head = best[(name, "base")], best[(name, "head")]
        print(f"{name:<60} {base:10.2f} {head:10.2f}  {head / base:.3f}  {unit}")


if __name__ == "__main__":
    main()
