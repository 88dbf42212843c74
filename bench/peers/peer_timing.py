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
