#include "stats/critical_values.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "stats/gamma_terms.h"

namespace korvel {
namespace {

constexpr double EPS = std::numeric_limits<double>::epsilon();
constexpr double NOWHERE = std::numeric_limits<double>::infinity();

double tail_of(const Tails& t, Side side) { return side == Side::below ? t.below : t.above; }

// Solves tail(x) = p for x between lo and hi, by Newton's method on the logarithm of the tail
// (which is nearly straight far out), inside a bracket that every step narrows. An infinite end of
// the bracket is approached by doubling.
//   tails(x): both sides; log_density(x): logarithm of the density.
template <class TailsOf, class LogDensity>
Critical solve(double p, Side side, double lo, double hi, double start, TailsOf tails,
               LogDensity log_density) {
  const double rising = side == Side::below ? 1.0 : -1.0;
  double x = start;
  for (int n = 0; n < 400; ++n) {
    const double tail = tail_of(tails(x), side);
    if (tail == p) return {x, 0};
    const double up = rising * (tail < p ? 1.0 : -1.0);
    (up > 0.0 ? lo : hi) = x;
    const double density = std::exp(log_density(x));
    double step = NOWHERE;
    if (tail > 0.0 && density > 0.0) {
      step =
          tail < 0.5 ? rising * std::log(p / tail) * tail / density : rising * (p - tail) / density;
    }
    double next = x + step;
    if (!(next > lo && next < hi)) {
      if (std::isinf(lo)) {
        next = hi > 0.0 ? -1.0 : 2.0 * hi - 1.0;
      } else if (std::isinf(hi)) {
        next = lo < 0.0 ? 1.0 : 2.0 * lo + 1.0;
      } else if (lo > 0.0 && hi > 4.0 * lo) {
        next = std::sqrt(lo) * std::sqrt(hi);
      } else if (lo == 0.0) {
        next = 1e-3 * hi;  // values near 0 may lie many powers of ten down
      } else {
        next = lo + 0.5 * (hi - lo);
      }
      if (!(next > lo && next < hi)) return {x, 0};  // neighbours
    }
    if (std::fabs(next - x) <= EPS * std::fabs(next)) return {next, 0};
    if (std::fabs(next) < 1e-300 || std::fabs(next) > 1e300) break;
    x = next;
  }
  return {0.0, 1};
}

bool proper(double p) { return p > 0.0 && p < 1.0; }

// Hastings (1955), Approximations for Digital Computers, sheet 68.
double hastings(double p) {
  const double t = std::sqrt(-2.0 * std::log(p));  // p squared would underflow first
  return t - (2.515517 + 0.802853 * t + 0.010328 * t * t) /
                 (1.0 + 1.432788 * t + 0.189269 * t * t + 0.001308 * t * t * t);
}

// Normal approximation of w in F = exp(2 w): Carter (1947), Abramowitz and Stegun (1964) 26.5.22.
double half_log_f(double z, double df1, double df2) {
  const double s = 1.0 / (df1 - 1.0);
  const double t = 1.0 / (df2 - 1.0);
  const double h = 2.0 / (s + t);
  const double lambda = (z * z - 3.0) / 6.0;
  return z * std::sqrt(h + lambda) / h - (s - t) * (lambda + 5.0 / 6.0 - 2.0 / (3.0 * h));
}

}  // namespace

// ---- Normal
// --------------------------------------------------------------------------------------

double normal_quantile(double p, Side side) {
  if (!proper(p)) {
    if (std::isnan(p) || p < 0.0 || p > 1.0) return std::numeric_limits<double>::quiet_NaN();
    return (p == 0.0) == (side == Side::below) ? -NOWHERE : NOWHERE;
  }
  if (p == 0.5) return 0.0;
  const double tail = std::min(p, 1.0 - p);
  // Hastings' value, then Newton's steps with the second derivative (Halley) on the tail: each
  // triples the digits, and far out the logarithm of the tail is as good as straight.
  double z = hastings(tail);
  for (int n = 0; n < 8; ++n) {
    // Not normal_cdf: it is held above 1e-78.
    const double at = 0.5 * std::erfc(z * 0.70710678118654752440);
    const double density = 0.39894228040143267794 * std::exp(-0.5 * z * z);
    if (!(at > 0.0) || !(density > 0.0)) break;
    const double u = std::log(at / tail) * at / density;
    const double step = u / (1.0 + 0.5 * u * (at / density - z));
    z += step;
    if (std::fabs(step) <= EPS * std::fabs(z)) break;
  }
  return (p < 0.5) == (side == Side::below) ? -z : z;
}

double normal_critical(double p) {
  constexpr double hastings_below = 0.01;
  if (std::isnan(p)) return p;
  if (p < 0.0) return -1e38;
  const double tail = std::max(p > 0.5 ? 1.0 - p : p, 1e-20);
  double z;
  constexpr double same = 1e-15;  // 1-0.95 is not quite 0.05
  if (std::fabs(tail - 0.025) < same) {
    z = 1.96;
  } else if (std::fabs(tail - 0.05) < same) {
    z = 1.645;
  } else {
    z = tail < hastings_below ? hastings(tail) : normal_quantile(tail, Side::above);
  }
  return p > 0.5 ? -z : z;
}

// ---- T
// -------------------------------------------------------------------------------------------

Critical t_quantile(double p, Side side, double df, double delta) {
  if (!proper(p) || !(df > 0.0)) return {0.0, 1};
  const auto tails = [&](double t) { return t_tails(t, df, delta); };
  if (delta != 0.0) {
    return solve(p, side, -NOWHERE, NOWHERE, delta, tails, [&](double t) {
      constexpr double h = 1e-4;  // the slope steers the search only
      return std::log((tails(t + h).below - tails(t - h).below) / (2.0 * h));
    });
  }
  if (p == 0.5) return {0.0, 0};
  const double tail = std::min(p, 1.0 - p);
  // Start: the expansion about the normal value (Abramowitz and Stegun 1964, 26.7.5) or, far out
  // and for few degrees of freedom, the power law of the tail.
  const double x = normal_quantile(tail, Side::above);
  const double xx = x * x;
  double start = x + x * (xx + 1.0) / (4.0 * df) +
                 x * ((5.0 * xx + 16.0) * xx + 3.0) / (96.0 * df * df) +
                 x * (((3.0 * xx + 19.0) * xx + 17.0) * xx - 15.0) / (384.0 * df * df * df);
  if (df < 10.0 && tail < 0.1) {
    const double power =
        std::sqrt(df) * std::exp(-(std::log(tail * df) + log_beta(0.5, df / 2.0)) / df);
    start = std::max(start, 0.5 * power);
  }
  const auto log_density = [&](double t) {
    return -0.5 * (df + 1.0) * std::log1p(t * (t / df)) - 0.5 * std::log(df) -
           log_beta(0.5, df / 2.0);
  };
  Critical found = solve(tail, Side::above, 0.0, NOWHERE, start, tails, log_density);
  if ((p < 0.5) == (side == Side::below)) found.value = -found.value;
  return found;
}

// ---- Chi-square
// ----------------------------------------------------------------------------------

// Starting values of Best and Roberts (1975), Applied Statistics algorithm AS 91.
Critical chi_square_quantile(double p, Side side, double df, double C) {
  constexpr double largest = 999999.0;
  if (!(df > 0.0) || !(p >= 0.0 && p <= 1.0)) return {0.0, 1};
  if (p == (side == Side::below ? 0.0 : 1.0)) return {0.0, 0};
  if (!proper(p)) return {0.0, 1};
  const auto tails = [&](double x) { return chi_square_tails(x, df, C); };
  const double z = normal_quantile(p, side);
  const double c = 0.222222 / df;
  double start = df + C;
  if (C == 0.0) {
    const double below = side == Side::below ? p : 1.0 - p;
    if (df < -1.24 * std::log(below) && below > 0.0) {
      const double half = df / 2.0;
      start = std::exp((std::log(below * half) + log_gamma(half) + half * std::log(2.0)) / half);
    } else {
      start = df * std::pow(std::max(z * std::sqrt(c) + 1.0 - c, 1e-3), 3.0);
    }
  }
  const auto log_density = [&](double x) {
    if (C > 0.0) {
      const double h = 1e-4 * x;
      return std::log((tails(x + h).below - tails(x - h).below) / (2.0 * h));
    }
    return static_cast<double>(log_gamma_term(df / 2.0, x / 2.0)) + std::log(df / 2.0) -
           std::log(x);
  };
  if (!(start > 0.0)) start = 1e-290;
  Critical found = solve(p, side, 0.0, NOWHERE, start, tails, log_density);
  if (found.value > largest) found.IFAULT = 1;
  return found;
}

// ---- F
// -------------------------------------------------------------------------------------------

Critical f_quantile(double p, Side side, double df1, double df2, double C) {
  if (!(df1 > 0.0 && df2 > 0.0) || !(p >= 0.0 && p <= 1.0)) return {0.0, 1};
  if (p == (side == Side::below ? 0.0 : 1.0)) return {0.0, 0};
  if (!proper(p)) return {0.0, 1};
  const auto tails = [&](double f) { return f_tails(f, df1, df2, C); };
  const auto log_density = [&](double f) {
    if (C > 0.0) {
      const double h = 1e-4 * f;
      return std::log((tails(f + h).below - tails(f - h).below) / (2.0 * h));
    }
    const long double whole = static_cast<long double>(df1) * f + df2;
    return static_cast<double>(
               log_beta_term(df1 / 2.0, df2 / 2.0, df1 * (f / whole), df2 / whole)) -
           std::log(f);
  };
  double start = 1.0 + C / df1;
  if (C == 0.0 && df1 > 1.0 && df2 > 1.0) {
    start = std::exp(2.0 * half_log_f(normal_quantile(p, side), df1, df2));
    if (!(start > 1e-200 && start < 1e200)) start = 1.0;
  }
  return solve(p, side, 0.0, NOWHERE, start, tails, log_density);
}

Critical f_critical(double p, double df1, double df2) {
  if (!(df1 > 0.0 && df2 > 0.0) || !(p > 0.0 && p <= 1.0)) return {0.0, 1};
  if (p == 1.0) return {0.0, 0};
  // P(F > f) = (1 + 2f/df2)^(-df2/2) for df1 = 2; 1/F has the degrees of freedom the other way.
  if (df1 == 2.0) return {0.5 * df2 * std::expm1(-2.0 / df2 * std::log(p)), 0};
  if (df2 == 2.0) return {2.0 / (df1 * std::expm1(-2.0 / df1 * std::log1p(-p))), 0};
  if (df1 == 1.0) {
    const Critical t = t_quantile(0.5 * p, Side::above, df2);
    return {t.value * t.value, t.IFAULT};
  }
  // The approximation divides by df2-1 and takes the root of h+lambda, which may be negative for a
  // few degrees of freedom in the middle of the distribution.
  const double f = df1 > 1.0 && df2 > 1.0 ? std::exp(2.0 * half_log_f(normal_critical(p), df1, df2))
                                          : std::numeric_limits<double>::quiet_NaN();
  if (std::isfinite(f)) return {f, 0};
  return f_quantile(p, Side::above, df1, df2);
}

// ---- Beta
// ----------------------------------------------------------------------------------------

// Cran, Martin and Thomas (1977), Applied Statistics remark AS R19 and algorithm AS 109, for the
// start.
Critical beta_quantile(double p, Side side, double a, double b) {
  constexpr double prec = 1e-14;
  constexpr double floor = 1e-32;
  if (!(a > 0.0 && b > 0.0) || !(p >= 0.0 && p <= 1.0)) return {0.0, 1};
  if (!proper(p)) return {(p == 0.0) == (side == Side::below) ? 0.0 : 1.0, 0};
  const double below = side == Side::below ? p : 1.0 - p;
  const double tail = std::min(below, 1.0 - below);
  double start = a / (a + b);
  if (tail > 0.0) {
    const double r = std::sqrt(-2.0 * std::log(tail));
    double y = r - (2.30753 + 0.27061 * r) / (1.0 + (0.99229 + 0.04481 * r) * r);
    if (below > 0.5) y = -y;
    if (a > 1.0 && b > 1.0) {
      const double s = 1.0 / (2.0 * a - 1.0);
      const double t = 1.0 / (2.0 * b - 1.0);
      const double h = 2.0 / (s + t);
      const double q = (y * y - 3.0) / 6.0;
      const double w = y * std::sqrt(h + q) / h - (t - s) * (q + 5.0 / 6.0 - 2.0 / (3.0 * h));
      start = a / (a + b * std::exp(2.0 * w));
    } else if (below < 0.5) {
      start = std::exp((std::log(below * a) + log_beta(a, b)) / a);
    }
  }
  if (!(start > prec * floor)) start = prec * floor;
  if (!(start < 1.0 - EPS)) start = 0.5;
  return solve(
      p, side, 0.0, 1.0, start, [&](double x) { return beta_tails(x, 1.0L - x, a, b); },
      [&](double x) {
        return static_cast<double>(log_beta_term(a, b, x, 1.0L - x)) - std::log(x) - std::log1p(-x);
      });
}

}  // namespace korvel
