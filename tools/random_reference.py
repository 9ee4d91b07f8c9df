"""First numbers of the FRAND and FRANDN streams, worked out step by step in plain Python.

Python floats are IEEE doubles and every operation rounds once, so the numbers are exact to the last
bit. Run: python3 random_reference.py; the printed hexadecimal values are those of random_test.cpp.
"""

D = [0.0, 0.67448975, 0.47585963, 0.383771164, 0.328611323, 0.291142827, 0.263684322, 0.242508452,
     0.225567444, 0.211634166, 0.199924267, 0.189910758, 0.181225181, 0.1736014, 0.166841909,
     0.160796729, 0.155349717, 0.150409384, 0.145902577, 0.141770033, 0.137963174, 0.134441762,
     0.13117215, 0.128125965, 0.12527909, 0.122610883, 0.12010356, 0.117741707, 0.0]


class Generator:
    def __init__(self, lag, seed):
        self.lag = lag
        self.table = [0.0] * (lag + 1)
        k = abs(seed) % 8190 + 1
        for place in range(lag, 0, -1):
            word = 0.0
            for _ in range(4):
                k = 17 * k % 8191
                word = (k * 0.5 + word) * 2.0 ** -12
            k = 17 * k % 8191
            word = (k // 256 + word) * 2.0 ** -5
            self.table[place] = word
        self.last = self.table[1]
        self.place = 0
        self.carried = None

    def uniform(self):
        if self.place == 0:
            self.place = self.lag
        v = self.last + self.table[self.place]
        if v >= 1.0:
            v = (self.last - 0.5) + (self.table[self.place] - 0.5)
        self.last = self.table[self.place] = v
        self.place -= 1
        return v

    def normal(self):
        if self.carried is None:
            self.carried = self.uniform()
        u, a, i = self.carried, 0.0, 0
        while True:
            u = u + u
            if u == 2.0:
                u = self.uniform()
            if u < 1.0 or i == 27:
                break
            i += 1
            u -= 1.0
            a -= D[i]
        accepted = False
        while not accepted:
            w = D[i + 1] * u
            t = (0.5 * w - a) * w
            while True:
                u = self.uniform()
                if t <= u:
                    accepted = True
                    break
                new = self.uniform()
                if new < u:
                    t = new
                    continue
                u = (new - u) / (1.0 - u)
                break
        u = (u - t) / (1.0 - t)
        u = 2.0 * u
        if u < 1.0:
            self.carried = u
            return -(w - a)
        self.carried = u - 1.0
        return w - a


def show(name, values):
    print(name, ", ".join(v.hex() for v in values))


for lag, seed in ((127, 0), (127, 1234), (22, 1), (532, 77), (60, 8191), (63, 5), (153, 123456)):
    g = Generator(lag, seed)
    u = [g.uniform() for _ in range(2000)]
    show(f"uniform lag {lag} seed {seed}: 1-3, 2000:", u[:3] + u[-1:])
    g = Generator(lag, seed)
    z = [g.normal() for _ in range(5000)]
    show(f"normal  lag {lag} seed {seed}: 1-3, 5000:", z[:3] + z[-1:])
# As an expression draws under SET RANSEED=1234: one uniform, then one normal that restarts again.
g = Generator(127, 1234)
g.uniform()
g = Generator(127, 1234)
g.normal()
show("expression, RANSEED=1234: uniforms 1-3", [g.uniform() for _ in range(3)])
