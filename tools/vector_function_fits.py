"""The polynomials of EXP and LOG in src/expr/vector_math.h: Chebyshev fits at 60 digits (mpmath)."""
from mpmath import chebyfit, expm1, log, mp, mpf, nstr, sqrt

mp.dps = 60


def show(name, function, interval, terms, contribution):
    coefficients, error = chebyfit(function, interval, terms, error=True)
    print(name, "relative error in the function about", nstr(error * contribution, 3))
    for c in reversed(coefficients):
        print("  ", float(c).hex())


half = log(2) / 2 * mpf("1.0002")


def exp_rest(r):  # (exp(r) - 1 - r) / r^2
    if abs(r) < mpf("1e-12"):
        return mpf(1) / 2 + r / 6 + r * r / 24
    return (expm1(r) - r) / r**2


show("EXP", exp_rest, [-half, half], 11, half**2)

s_most = (sqrt(2) - 1) / (sqrt(2) + 1) * mpf("1.0005")


def log_rest(z):  # (log((1+s)/(1-s)) - 2 s) / s^3, z = s^2
    if z < mpf("1e-25"):
        return mpf(2) / 3
    s = sqrt(z)
    return (log((1 + s) / (1 - s)) - 2 * s) / s / z


show("LOG", log_rest, [0, s_most**2], 7, s_most**2 / 2)
