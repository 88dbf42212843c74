"""What the peer scripts share: the best time of several runs."""
import time


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
