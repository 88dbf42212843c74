"""What the peer scripts share: their command line, the best time of several
runs, and the best times of a benchmark binary's cases."""
import argparse
import importlib
import json
import os
import subprocess
import sys
import time


def binding_args(repeats=3, add=None):
    """Parses --build (default: the tree's build/) and --repeats, and what
    add(parser) adds; puts the build's binding first on the path and returns
    the arguments and the zvstats module."""
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", default=os.path.join(os.path.dirname(__file__), "..", "..", "build"))
    parser.add_argument("--repeats", type=int, default=repeats)
    if add:
        add(parser)
    args = parser.parse_args()
    sys.path.insert(0, os.path.join(args.build, "python"))
    return args, importlib.import_module("zvstats")


def best_of(repeats, fn):
    """The least wall time of `repeats` calls of fn, and the last result."""
    best, out = float("inf"), None
    for _ in range(repeats):
        t = time.perf_counter()
        out = fn()
        best = min(best, time.perf_counter() - t)
    return best, out


def best_wall_and_cpu(repeats, fn):
    """The least wall time and the least CPU time (all threads) of `repeats`
    calls of fn, and the last result: on a shared machine the CPU time is the
    steadier figure."""
    wall, cpu, out = float("inf"), float("inf"), None
    for _ in range(repeats):
        c, t = time.process_time(), time.perf_counter()
        out = fn()
        wall = min(wall, time.perf_counter() - t)
        cpu = min(cpu, time.process_time() - c)
    return (wall, cpu), out


def benchmark_best(bench, pattern, repeats):
    """Runs the benchmark binary on the cases whose names match the regular
    expression `pattern`, `repeats` times each, and returns the least real
    time of each case in seconds, keyed by its name without the /real_time or
    /process_time suffix."""
    out = subprocess.run([bench, "--benchmark_format=json", f"--benchmark_filter={pattern}",
                          f"--benchmark_repetitions={repeats}"], check=True, capture_output=True, text=True).stdout
    scale = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}
    best = {}
    for b in json.loads(out)["benchmarks"]:
        if b.get("run_type") != "iteration":
            continue
        key = b["run_name"].split("/process_time")[0].split("/real_time")[0]
        best[key] = min(best.get(key, float("inf")), b["real_time"] * scale[b["time_unit"]])
    return best
