# numpy's times for the matrix kernels: milliseconds, best of many. Its library decides: say which.
import time

import numpy as np

rng = np.random.default_rng(1)


def best(f, times=20):
    least = 1e9
    for _ in range(times):
        start = time.perf_counter()
        f()
        least = min(least, time.perf_counter() - start)
    return least * 1000


a, b = rng.random((500, 500)), rng.random((500, 500))
s = a.T @ a + 500 * np.eye(500)
t = s[:300, :300].copy()
g = a[:300, :300].copy()
for name, f in (
    ("product 500 x 500", lambda: a @ b),
    ("inverse 500 x 500", lambda: np.linalg.inv(a)),
    ("determinant 500 x 500", lambda: np.linalg.det(a)),
    ("Cholesky 500 x 500", lambda: np.linalg.cholesky(s)),
    ("symmetric eigen 300 x 300", lambda: np.linalg.eigh(t)),
    ("general eigen 300 x 300", lambda: np.linalg.eig(g)),
    ("svd 300 x 300", lambda: np.linalg.svd(g)),
):
    print(f"numpy  {name:38s} {best(f):8.2f} ms")
