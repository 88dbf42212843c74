"""What the peer scripts share: their command line and the best time of
several runs."""
import argparse
import importlib
import os
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
