# numpy's time for the statements of genr_bench and for reading text: milliseconds, best of several.
import time
import numpy as np

n = 5_000_000
rng = np.random.default_rng(1)
x1, x2 = rng.standard_normal(n), rng.standard_normal(n)


def best(f, times=5):
    result = 1e9
    for _ in range(times):
        t = time.perf_counter()
        f()
        result = min(result, time.perf_counter() - t)
    return result * 1000


print("numpy  LOG(ABS(X1))+X2**2-3*X1*X2/(1+X2*X2)   %8.1f ms" % best(
    lambda: np.log(np.abs(x1)) + x2**2 - 3 * x1 * x2 / (1 + x2 * x2)))
print("numpy  Y-Y(-1)                                %8.1f ms" % best(lambda: x1[1:] - x1[:-1]))
print("numpy  DUM(X1-X2)                             %8.1f ms" % best(lambda: (x1 - x2 > 0).astype(float)))
print("numpy  running SUM                            %8.1f ms" % best(lambda: np.cumsum(x1)))
print("numpy  copy (memory speed: read 40, write 40 MB) %5.1f ms" % best(lambda: np.copyto(x2, x1)))
x = np.column_stack([rng.standard_normal((1_000_000, 10)), np.ones(1_000_000)])
y = rng.standard_normal(1_000_000)
print("numpy  lstsq 1,000,000 x 10                   %8.1f ms" % best(lambda: np.linalg.lstsq(x, y, rcond=None), 2))
