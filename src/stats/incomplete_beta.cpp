// Incomplete beta ratio, F and T.
#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "stats/gamma_terms.h"
#include "stats/mixture.h"
#include "stats/probability.h"

namespace korvel {
namespace {

constexpr double EPS = std::numeric_limits<double>::epsilon();

// Sum of p and q up to which the series is used: above, it would need millions of terms (its ratio
// nears 1 as 1/p), and the continued fraction gives the same digits in some hundred steps.
constexpr double SERIES_UP_TO = 200.0;

// Parameters from which the fraction would take seconds; the limits have more than single precision
// by then.
constexpr double LIMIT_FROM = 1e13;

// Series of Majumder and Bhattacharjee (1973), Applied Statistics algorithm AS 63, with Soper's
// reduction. Without its factor x^p y^(q-1) / (p B(p, q)).
double beta_series(double x, double y, double p, double q) {
  double sum = p + q;
  double term = 1.0;
  double ai = 1.0;
  double value = 1.0;
  int ns = static_cast<int>(q + y * sum);
  double rx = ns == 0 ? x : x / y;
  double factor = q - ai;
  for (int n = 0; n < 100000; ++n) {
    term *= factor * rx / (p + ai);
    value += term;
    if (std::fabs(term) <= 0.1 * EPS * std::fabs(value)) break;
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

// Continued fraction of DiDonato and Morris (1992), ACM TOMS algorithm 708, equation 9. Without its
// factor x^p y^q / B(p, q). distance = p - (p+q)x, not negative, comes from the caller without
// cancellation: near the mean of the distribution it is the small difference of large numbers.
double beta_fraction(double x, double y, double p, double q, double distance) {
  const double most = 1000.0 + 10.0 * std::sqrt(std::max(p, q));
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
  for (int k = 1; k < most; ++k) {
    const double n = k;
    const double t = n / p;
    const double w = n * (q - n) * x;
    const double e = p / s;
    const double alpha = rank * (rank + c0) * e * e * (w * x);
    const double beta = n + w / s + (1.0 + t) / (c1 + t + t) * (c + n * (1.0 + y));
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

// One huge parameter: -p log X is gamma with shape q. Two: the signed root of twice the deviance is
// normal.
Tails limit_tails(long double x, long double y, double p, double q) {
  const long double log_x = y < 0.5L ? std::log1p(-y) : std::log(x);
  const long double log_y = x < 0.5L ? std::log1p(-x) : std::log(y);
  if (q <= LIMIT_FROM) {
    const Tails t = gamma_tails(q, static_cast<double>(-p * log_x));
    return {t.above, t.below};
  }
  if (p <= LIMIT_FROM) return gamma_tails(p, static_cast<double>(-q * log_y));
  const long double n = static_cast<long double>(p) + q;
  const long double deviance = p * (std::log(p / n) - log_x) + q * (std::log(q / n) - log_y);
  const auto root = static_cast<double>(std::sqrt(std::max(2.0L * deviance, 0.0L)));
  return normal_tails(x * n < p ? -root : root);
}

}  // namespace

Tails beta_tails(long double x, long double y, double p, double q) {
  if (!(x > 0.0L)) return {0.0, 1.0};
  if (!(y > 0.0L)) return {1.0, 0.0};
  if (std::max(p, q) > LIMIT_FROM) return limit_tails(x, y, p, q);
  // The side below the mean is summed, for two small parameters the side below one half.
  const bool swap = std::max(p, q) < 1.0 ? x > 0.5L : q * x > p * y;
  if (swap) {
    std::swap(x, y);
    std::swap(p, q);
  }
  const auto dx = static_cast<double>(x);
  const auto dy = static_cast<double>(y);
  const auto factor = static_cast<double>(std::exp(log_beta_term(p, q, x, y)));
  double value;
  if (p + q <= SERIES_UP_TO) {
    value = factor * beta_series(dx, dy, p, q) / (p * dy);
  } else {
    const auto distance = static_cast<double>(p * y - q * x);
    value = factor * beta_fraction(dx, dy, p, q, std::max(distance, 0.0));
  }
  value = std::clamp(value, 0.0, 1.0);
  return swap ? Tails{1.0 - value, value} : Tails{value, 1.0 - value};
}

TailValue BETAIN(double x, double p, double q, double /*logbeta*/) {
  if (!(p > 0.0) || !(q > 0.0)) return {x, 1};
  if (!(x >= 0.0 && x <= 1.0)) return {x, 2};
  if (x == 0.0 || x == 1.0) return {x, 0};
  return {beta_tails(x, 1.0L - x, p, q).below, 0};
}

// ---- F
// -------------------------------------------------------------------------------------------

Tails f_tails(double f, double df1, double df2, double C) {
  if (!(f > 0.0)) return {0.0, 1.0};
  const long double whole = static_cast<long double>(df1) * f + df2;
  if (std::isinf(f)) return {1.0, 0.0};
  const long double x = df1 * (f / whole);
  const long double y = df2 / whole;
  if (C > 0.0) return mixed_beta_tails(x, y, df1 / 2.0, df2 / 2.0, C / 2.0);
  return beta_tails(x, y, df1 / 2.0, df2 / 2.0);
}

double f_tail(double f, double df1, double df2) { return f_tail(f, df1, df2, 0.0); }

double f_tail(double f, double df1, double df2, double C) {
  if (!(df1 > 0.0) || !(df2 > 0.0)) return 1.0;
  if (!(f > 0.0)) return 0.0;
  return f_tails(f, df1, df2, C).above;
}

// ---- T
// -------------------------------------------------------------------------------------------

double t_cdf(double t, double df, double delta) { return t_tails(t, df, delta).below; }

Tails t_tails(double t, double df, double delta) {
  if (!(df > 0.0)) return {0.5, 0.5};
  if (t < 0.0) {
    const Tails mirror = t_tails(-t, df, -delta);
    return {mirror.above, mirror.below};
  }
  if (std::isinf(t)) return {1.0, 0.0};
  if (delta != 0.0) {
    if (t == 0.0) return normal_tails(-delta);
    return mixed_t_tails(t, df, delta);
  }
  if (!(t > 0.0)) return {0.5, 0.5};
  const long double tt = static_cast<long double>(t) * t;
  const long double whole = tt + df;
  const double above = 0.5 * beta_tails(df / whole, tt / whole, df / 2.0, 0.5).below;
  return {1.0 - above, above};
}

}  // namespace korvel
