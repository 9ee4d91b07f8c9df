# Writes 100,000 x 10 values as text; times are given for 1,000,000 rows.
import os
import time

import numpy

x = numpy.random.default_rng(1).normal(0, 100, (100000, 10))
start = time.perf_counter()
numpy.savetxt("/dev/shm/korvel_write_peer.txt", x, fmt="%15.7g")
print(f"numpy savetxt 1000000 x 10: {10000 * (time.perf_counter() - start):.0f} ms")
os.unlink("/dev/shm/korvel_write_peer.txt")
