# numpy's time for stats_bench: means, deviations and correlations of 1,000,000 x 10, principal
# components of 200,000 x 20. Milliseconds, best of several.
import time
import numpy as np

rng = np.random.default_rng(1)
x = rng.standard_normal((10, 1_000_000))
y = rng.standard_normal((200_000, 20))


def best(f, times=5):
    result = 1e9
    for _ in range(times):
        t = time.perf_counter()
        f()
        result = min(result, time.perf_counter() - t)
    return result * 1000


def components():
    d = y - y.mean(axis=0)
    return np.linalg.eigh(d.T @ d)


print("numpy  mean, std, min, max, corrcoef 1,000,000 x 10 %6.1f ms" % best(
    lambda: (x.mean(1), x.std(1, ddof=1), x.min(1), x.max(1), np.corrcoef(x))))
print("numpy  principal components 200,000 x 20      %8.1f ms" % best(components))
