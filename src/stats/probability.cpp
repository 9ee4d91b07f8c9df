#include "stats/probability.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "engine/output.h"
#include "engine/shared_areas.h"

namespace korvel {
namespace {

constexpr double ROOT2 = 1.41421356237309;
constexpr double NORMAL_LOW = 1e-78;
constexpr double EPS = std::numeric_limits<double>::epsilon();

// Stirling's correction: log gamma(x) - [(x - 0.5) log x - x + 0.5 log(2 pi)], for x of 18 and
// more, where the first term left out is below 1e-20.
double stirling_correction(double x) {
  const double r = 1.0 / x;
  const double s = r * r;
  return r * (1.0 / 12.0 +
              s * (-0.002777777777777778 +
                   s * (0.0007936507936507937 +
                        s * (-0.0005952380952380953 +
                             s * (0.0008417508417508417 +
                                  s * (-0.001917526917526918 + s * 0.00641025641025641))))));
}
constexpr double HALF_LOG_2PI = 0.91893853320467;
constexpr double STIRLING_FROM = 18.0;

}  // namespace

// ---- Normal and gamma
// ----------------------------------------------------------------------------

double normal_cdf(double x) {
  // 0.5 + 0.5 erf loses every digit of the lower tail, so that side is taken from erfc.
  const double p = x < 0.0 ? 0.5 * std::erfc(-x / ROOT2) : std::erf(x / ROOT2) * 0.5 + 0.5;
  if (p < NORMAL_LOW) return NORMAL_LOW;
  return p >= 1.0 ? 1.0 - NORMAL_LOW : p;
}

double normal_two_sided(double z) { return std::min(1.0, 2.0 * normal_cdf(-std::fabs(z))); }

double log_gamma(double x) {
  if (x <= 0.0) return 9.9999999999999e37;
  if (std::fabs(x - 1.0) < 1e-14 || std::fabs(x - 2.0) < 1e-14) return 0.0;
  double product = 1.0;
  while (x < STIRLING_FROM) {
    product *= x;
    x += 1.0;
  }
  const double series = (x - 0.5) * std::log(x) + HALF_LOG_2PI - x + stirling_correction(x);
  return product == 1.0 ? series : series - std::log(product);
}

double log_beta(double a, double b) {
  if (a < b) std::swap(a, b);
  if (a < STIRLING_FROM) return log_gamma(a) + log_gamma(b) - log_gamma(a + b);
  const double rest = stirling_correction(a) - stirling_correction(a + b);
  if (b < STIRLING_FROM) {
    return log_gamma(b) - (a - 0.5) * std::log1p(b / a) - b * std::log(a + b) + b + rest;
  }
  return -(a - 0.5) * std::log1p(b / a) - b * std::log1p(a / b) - 0.5 * std::log(b) + HALF_LOG_2PI +
         rest + stirling_correction(b);
}

// ---- Chi-square
// ----------------------------------------------------------------------------------

namespace {

constexpr double CHI_STOP = 1e-60;
constexpr int CHI_TERMS = 100000;  // never reached: P is at most 1000

// Lower incomplete gamma ratio by its power series.
double gamma_series(double X, double P) {
  double term = 1.0;
  double sum = 1.0;
  double a = P;
  for (int n = 0; n < CHI_TERMS && term > CHI_STOP; ++n) {
    a += 1.0;
    term *= X / a;
    sum += term;
  }
  const double log_value = P * std::log(X) - X - log_gamma(P + 1.0) + std::log(sum);
  return log_value < -MACOM.IEXLIM ? 0.0 : std::exp(log_value);
}

// Upper incomplete gamma ratio by the continued fraction, its terms scaled back when they pass
// 1e37.
double gamma_fraction(double X, double P) {
  constexpr double large = 1e37;
  double a = 1.0 - P;
  double b = a + X + 1.0;
  double c = 0.0;
  double p1 = 1.0;
  double p2 = X;
  double p3 = X + 1.0;
  double p4 = X * b;
  double value = p3 / p4;
  for (int n = 0; n < CHI_TERMS; ++n) {
    a += 1.0;
    b += 2.0;
    c += 1.0;
    const double p5 = b * p3 - a * c * p1;
    const double p6 = b * p4 - a * c * p2;
    if (std::fabs(p6) > 0.0) {
      const double next = p5 / p6;
      const double change = std::fabs(value - next);
      value = next;
      // The limit is below a rounding of the value: a last bit that flips to and fro ends it too.
      if (change <= std::max(CHI_STOP, CHI_STOP * next) || (n > 500 && change <= EPS * next)) break;
    }
    p1 = p3;
    p2 = p4;
    p3 = p5;
    p4 = p6;
    if (std::fabs(p5) >= large) {
      p1 /= large;
      p2 /= large;
      p3 /= large;
      p4 /= large;
    }
  }
  const double log_value = P * std::log(X) - X - log_gamma(P) + std::log(value);
  return log_value < -MACOM.IEXLIM ? 0.0 : std::exp(log_value);
}

}  // namespace

// Bhattacharjee (1970) and Shea (1988), Applied Statistics algorithms AS 32 and AS 239.
Tail chi_square_tail(double x, double df) {
  const double X = x / 2.0;
  const double P = df / 2.0;
  if (!(P > 0.0) || !(X >= 0.0)) return {1.0, 1};
  if (X == 0.0) return {1.0, 0};
  if (P > 1000.0) {  // Wilson and Hilferty (1931)
    const double z = 3.0 * std::sqrt(P) * (std::cbrt(X / P) + 1.0 / (9.0 * P) - 1.0);
    return {normal_cdf(-z), 0};
  }
  if (X > 1e8) return {0.0, 0};
  if (X <= 1.0 || X < P) return {std::max(0.0, 1.0 - gamma_series(X, P)), 0};
  return {gamma_fraction(X, P), 0};
}

double PCHI(double x, double df) {
  const Tail tail = chi_square_tail(x, df);
  if (tail.IFAULT != 0) error_line(" ...ERROR..IN PCHI");
  return tail.value;
}

// ---- Incomplete beta, F and T
// --------------------------------------------------------------------

namespace {

// Sum of p and q up to which the series is used: above, it would need millions of terms (its ratio
// nears 1 as 1/p), and the continued fraction gives the same digits in some hundred steps.
constexpr double SERIES_UP_TO = 200.0;

// Series of Majumder and Bhattacharjee (1973), Applied Statistics algorithm AS 63. Without factor.
double beta_series(double x, double cx, double p, double q) {
  double sum = p + q;
  double term = 1.0;
  double ai = 1.0;
  double value = 1.0;
  int ns = static_cast<int>(q + cx * sum);
  double rx = ns == 0 ? x : x / cx;
  double factor = q - ai;
  for (int n = 0; n < 1000000; ++n) {
    term *= factor * rx / (p + ai);
    value += term;
    const double size = std::fabs(term);
    if (size <= 1e-17 && size <= 1e-17 * value) break;
    ai += 1.0;
    --ns;
    if (ns >= 0) {
      factor = q - ai;
      if (ns == 0) rx = x;
    } else {
      factor = sum;
      sum += 1.0;
    }
  }
  return value;
}

// Continued fraction of DiDonato and Morris (1992), ACM TOMS algorithm 708, equation 9. Without
// factor. distance = p - (p+q)x, not negative, comes from the caller without cancellation: near the
// mean of the distribution it is the small difference of large numbers.
double beta_fraction(double x, double cx, double p, double q, double distance) {
  const double c = 1.0 + distance;
  const double c0 = q / p;
  const double c1 = 1.0 + 1.0 / p;
  double rank = 1.0;
  double s = p + 1.0;
  double an = 0.0;
  double bn = 1.0;
  double an1 = 1.0;
  double bn1 = c / c1;
  double value = c1 / c;
  for (int n = 1; n < 100000; ++n) {
    const double t = n / p;
    const double w = n * (q - n) * x;
    const double e = p / s;
    const double alpha = rank * (rank + c0) * e * e * (w * x);
    const double beta = n + w / s + (1.0 + t) / (c1 + t + t) * (c + n * (1.0 + cx));
    rank = 1.0 + t;
    s += 2.0;
    const double an2 = alpha * an + beta * an1;
    const double bn2 = alpha * bn + beta * bn1;
    const double next = an2 / bn2;
    const double change = std::fabs(next - value);
    value = next;
    if (change <= EPS * next) break;
    an = an1 / bn2;
    bn = bn1 / bn2;
    an1 = next;
    bn1 = 1.0;
  }
  return value;
}

// I_x(p, q) with cx = 1 - x given, which keeps the digits of an x near 1.
double beta_ratio(double x, double cx, double p, double q, double logbeta) {
  if (x <= 0.0) return 0.0;
  if (cx <= 0.0) return 1.0;
  const bool swap = (p + q) * x > p;
  if (swap) {
    std::swap(x, cx);
    std::swap(p, q);
  }
  const double log_x = x > 0.5 ? std::log1p(-cx) : std::log(x);
  const double log_cx = cx > 0.5 ? std::log1p(-x) : std::log(cx);
  double value;
  if (p + q <= SERIES_UP_TO) {
    value = beta_series(x, cx, p, q) * std::exp(p * log_x + (q - 1.0) * log_cx - logbeta) / p;
  } else {
    const double distance = x > 0.5 ? (p + q) * cx - q : p - (p + q) * x;
    value = beta_fraction(x, cx, p, q, std::max(distance, 0.0)) *
            std::exp(p * log_x + q * log_cx - logbeta);
  }
  return swap ? 1.0 - value : value;
}

}  // namespace

Tail BETAIN(double x, double p, double q, double logbeta) {
  if (!(p > 0.0) || !(q > 0.0)) return {x, 1};
  if (!(x >= 0.0 && x <= 1.0)) return {x, 2};
  if (x == 0.0 || x == 1.0) return {x, 0};
  return {beta_ratio(x, 1.0 - x, p, q, logbeta), 0};
}

double f_tail(double f, double df1, double df2) {
  if (!(df1 > 0.0) || !(df2 > 0.0)) return 1.0;
  if (!(f > 0.0)) return 0.0;
  const double a = df1 / 2.0;
  const double b = df2 / 2.0;
  const double whole = df1 * f + df2;
  if (std::isinf(whole)) return 0.0;
  return beta_ratio(df2 / whole, df1 * f / whole, b, a, log_beta(a, b));
}

double f_tail(double f, double df1, double df2, double C) {
  if (C == 0.0) return f_tail(f, df1, df2);
  if (!(df1 > 0.0) || !(df2 > 0.0)) return 1.0;
  if (!(f > 0.0)) return 0.0;
  constexpr double limit = 88.0;
  const double lambda = std::clamp(C / 2.0, -limit, limit);
  const double whole = df1 * f + df2;
  const double x = df2 / whole;
  const double cx = df1 * f / whole;
  const double b = df2 / 2.0;
  double weight = std::exp(-lambda);
  double weights = 0.0;
  double tail = 0.0;
  for (int j = 0; j < 10000; ++j) {
    const double a = df1 / 2.0 + j;
    tail += weight * beta_ratio(x, cx, b, a, log_beta(a, b));
    weights += weight;
    if (j > lambda && weight <= 1e-17 * weights) break;
    weight *= lambda / (j + 1.0);
  }
  return tail;
}

// Lenth (1989), Applied Statistics algorithm AS 243; the central case is the F tail.
double t_cdf(double t, double df, double delta) {
  if (!(df > 0.0)) return 0.5;
  if (delta == 0.0) {
    if (t == 0.0) return 0.5;
    const double tail = 0.5 * f_tail(t * t, 1.0, df);
    return t < 0.0 ? tail : 1.0 - tail;
  }
  constexpr double root_2_by_pi = 0.7978845608028654;
  const bool negative = t < 0.0;
  const double del = negative ? -delta : delta;
  const double whole = t * t + df;
  const double x = t * t / whole;
  double value = 0.0;
  if (x > 0.0) {
    const double lambda = del * del;
    double p = 0.5 * std::exp(-0.5 * lambda);
    double q = root_2_by_pi * p * del;
    double s = 0.5 - p;
    double a = 0.5;
    const double b = 0.5 * df;
    const double rxb = std::exp(b * std::log(df / whole));
    const double logbeta = log_beta(a, b);
    double xodd = beta_ratio(x, df / whole, a, b, logbeta);
    double godd = 2.0 * rxb * std::exp(a * std::log(x) - logbeta);
    double xeven = 1.0 - rxb;
    double geven = b * x * rxb;
    value = p * xodd + q * xeven;
    for (int en = 1; en <= 10000; ++en) {
      a += 1.0;
      xodd -= godd;
      xeven -= geven;
      godd *= x * (a + b - 1.0) / a;
      geven *= x * (a + b - 0.5) / (a + 0.5);
      p *= lambda / (2.0 * en);
      q *= lambda / (2.0 * en + 1.0);
      s -= p;
      value += p * xodd + q * xeven;
      if (2.0 * s * (xodd - godd) <= 1e-16) break;
    }
  }
  value += normal_cdf(-del);
  return negative ? 1.0 - value : value;
}

}  // namespace korvel
