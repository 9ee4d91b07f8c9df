# numpy's time for sort_bench: the order of 2,000,000 normal keys, and key and two columns moved into
# it. Milliseconds, best of several.
import time
import numpy as np

n = 2_000_000
rng = np.random.default_rng(1)
key, a, b = (rng.standard_normal(n) for _ in range(3))


def best(f, times=5):
    result = 1e9
    for _ in range(times):
        t = time.perf_counter()
        f()
        result = min(result, time.perf_counter() - t)
    return result * 1000


def rows(kind):
    order = np.argsort(key, kind=kind)
    return key[order], a[order], b[order]


print("numpy  sort 2,000,000, two columns carried    %8.1f ms" % best(lambda: rows("quicksort")))
print("numpy  the same, stable                       %8.1f ms" % best(lambda: rows("stable")))
