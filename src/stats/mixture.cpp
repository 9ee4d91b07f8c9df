#include "stats/mixture.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "stats/gamma_terms.h"

namespace korvel {
namespace {

// Sums run in extended precision: its exponent range lets the weights begin at j = 0 however far
// the mean is from there, up to this mean. From then on they begin so many standard deviations
// below it.
constexpr double FROM_ZERO_UP_TO = 10000.0;
constexpr double DEVIATIONS = 40.0;
constexpr long double NEGLIGIBLE = 1e-21L;
// Means of the weights from which the mixture would take seconds; the non-central part is then so
// sharp that its spread counts below 1e-9 only.
constexpr double SHARP_FROM = 1e9;
// Non-centrality of T from which its density comes from the distribution function.
constexpr double SERIES_DELTA = 300.0;

double first_index(double lambda) {
  return lambda <= FROM_ZERO_UP_TO ? 0.0 : std::floor(lambda - DEVIATIONS * std::sqrt(lambda));
}
// Last index that a sum could need; every loop below ends there at the latest.
double last_index(double lambda) {
  return std::ceil(lambda + DEVIATIONS * std::sqrt(lambda)) + 1000.0;
}

long double poisson(double j, double lambda) { return std::exp(log_gamma_term(j, lambda)); }

// A family of central distributions F_j, F_j - F_{j+1} = term(j), with
// term(j+1) = term(j) ratio(j).
// The upper tails grow with j and are summed upward, the lower ones fall and are summed downward
// from where the weights have died out: both only by adding.
template <class Central, class Term, class Ratio>
Tails mix(double lambda, Central central, Term term, Ratio ratio) {
  double j = first_index(lambda);
  const double end = last_index(lambda);
  long double w = poisson(j, lambda);
  long double step = term(j);
  long double upper = central(j).above;
  long double above = 0.0L;
  while (true) {
    above += w * upper;
    if ((j > lambda && w <= NEGLIGIBLE * above) || j >= end) break;
    upper += step;
    step *= ratio(j);
    w *= static_cast<long double>(lambda) / (j + 1.0);
    j += 1.0;
  }
  long double lower = central(j).below;
  long double below = 0.0L;
  w = poisson(j, lambda);
  step = j > 0.0 ? term(j - 1.0) : 0.0L;
  const double start = first_index(lambda);
  while (true) {
    below += w * lower;
    if (j <= start || (j < lambda && w <= NEGLIGIBLE * below)) break;
    lower += step;
    if (j > 1.0) step /= ratio(j - 2.0);
    w *= static_cast<long double>(j) / lambda;
    j -= 1.0;
  }
  return {static_cast<double>(std::min(below, 1.0L)), static_cast<double>(std::min(above, 1.0L))};
}

}  // namespace

// Benton and Krishnamoorthy (2003), Computational Statistics and Data Analysis 43, 249-267, for the
// recurrences.
Tails mixed_gamma_tails(double a, double x, double lambda) {
  if (lambda > SHARP_FROM) {
    // Sankaran (1959), Biometrika 46, 235-237: a power of the variable is nearly normal.
    const double n = 2.0 * a;
    const double C = 2.0 * lambda;
    const double r1 = n + C;
    const double r2 = n + 2.0 * C;
    const double h = 1.0 - 2.0 * r1 / r2 * ((n + 3.0 * C) / r2) / 3.0;
    const double p = r2 / r1 / r1;
    const double mean = 1.0 + h * p * (h - 1.0 - 0.5 * (2.0 - h) * (3.0 * h - 1.0) * p);
    const double z = (std::pow(2.0 * x / r1, h) - mean) /
                     (h * std::sqrt(2.0 * p) * (1.0 + 0.5 * (1.0 - h) * (1.0 - 3.0 * h) * p));
    return normal_tails(z);
  }
  return mix(
      lambda, [&](double j) { return gamma_tails(a + j, x); },
      [&](double j) { return std::exp(log_gamma_term(a + j, x)); },
      [&](double j) { return static_cast<long double>(x) / (a + j + 1.0L); });
}

Tails mixed_beta_tails(long double x, long double y, double a, double b, double lambda) {
  if (lambda > SHARP_FROM) {
    const Tails t = gamma_tails(b, static_cast<double>((a + lambda) * y / x));
    return {t.above, t.below};
  }
  return mix(
      lambda, [&](double j) { return beta_tails(x, y, a + j, b); },
      [&](double j) { return std::exp(log_beta_term(a + j, b, x, y)) / (a + j); },
      [&](double j) { return x * (a + j + b) / (a + j + 1.0L); });
}

// Lenth (1989), Applied Statistics algorithm AS 243: two mixtures, of even and of odd order.
// P(T > t) = sum [p_j U(j + 1/2) + q_j U(j + 1)] / 2 with the upper beta ratios U at
// t^2/(t^2 + df); the lower tail adds what lies below 0. Where delta is negative the odd terms are
// too, and the smaller tail has absolute precision only.
Tails mixed_t_tails(double t, double df, double delta) {
  const long double whole = static_cast<long double>(t) * t + df;
  const long double x = static_cast<long double>(t) * t / whole;
  const long double y = df / whole;
  const double b = df / 2.0;
  const double lambda = 0.5 * delta * delta;
  if (lambda > SHARP_FROM) {
    if (delta < 0.0) return {1.0, 0.0};
    const Tails w = gamma_tails(b, b * (delta / t) * (delta / t));
    return {w.above, w.below};
  }
  const double start = first_index(lambda);
  const double end = last_index(lambda);
  double j = start;
  long double p = poisson(j, lambda);
  long double q = poisson(j + 0.5, lambda);
  if (delta < 0.0) q = -q;
  long double even = beta_tails(x, y, j + 0.5, b).above;
  long double odd = beta_tails(x, y, j + 1.0, b).above;
  long double even_step = std::exp(log_beta_term(j + 0.5, b, x, y)) / (j + 0.5);
  long double odd_step = std::exp(log_beta_term(j + 1.0, b, x, y)) / (j + 1.0);
  long double above = 0.0L;
  while (true) {
    above += 0.5L * (p * even + q * odd);
    if ((j > lambda && p <= NEGLIGIBLE * std::fabs(above)) || j >= end) break;
    even += even_step;
    odd += odd_step;
    even_step *= x * (j + 0.5L + b) / (j + 1.5L);
    odd_step *= x * (j + 1.0L + b) / (j + 2.0L);
    p *= static_cast<long double>(lambda) / (j + 1.0);
    q *= static_cast<long double>(lambda) / (j + 1.5);
    j += 1.0;
  }
  const long double under = 0.5L * std::erfc(delta * std::sqrt(0.5L));  // P(T <= 0)
  long double below = under;
  even = beta_tails(x, y, j + 0.5, b).below;
  odd = beta_tails(x, y, j + 1.0, b).below;
  even_step = j > 0.0 ? std::exp(log_beta_term(j - 0.5, b, x, y)) / (j - 0.5L) : 0.0L;
  odd_step = j > 0.0 ? std::exp(log_beta_term(j, b, x, y)) / j : 0.0L;
  while (true) {
    below += 0.5L * (p * even + q * odd);
    if (j <= start) break;
    even += even_step;
    odd += odd_step;
    if (j > 1.0) {
      even_step /= x * (j - 1.5L + b) / (j - 0.5L);
      odd_step /= x * (j - 1.0L + b) / j;
    }
    p *= static_cast<long double>(j) / lambda;
    q *= (j + 0.5L) / static_cast<long double>(lambda);
    j -= 1.0;
  }
  above = std::clamp(above, 0.0L, 1.0L);
  below = std::clamp(below, 0.0L, 1.0L);
  if (delta < 0.0) below = 1.0L - above;
  return {static_cast<double>(below), static_cast<double>(above)};
}

// ---- Densities
// -----------------------------------------------------------------------------------

namespace {

// Logarithm of the gamma density with shape a at g, times g.
double gamma_log_share(double a, double g) {
  return static_cast<double>(log_gamma_term(a, g)) + std::log(a);
}

// log sum_j w_j density(j) for a family with density(j+1) = density(j) ratio(j). The sum is kept
// relative to its first term, whose logarithm may be out of range.
template <class Log, class Ratio>
double mixed_log_density(double lambda, Log log_density, Ratio ratio) {
  double j = first_index(lambda);
  const double end = last_index(lambda);
  const long double first = log_gamma_term(j, lambda) + log_density(j);
  long double term = 1.0L;
  long double sum = 0.0L;
  long double scale = 0.0L;
  for (;;) {
    sum += term;
    const long double next = static_cast<long double>(lambda) / (j + 1.0) * ratio(j);
    if ((next < 1.0L && term <= NEGLIGIBLE * sum) || j >= end) break;
    term *= next;
    j += 1.0;
    if (term > 1e4000L) {
      term *= 1e-4000L;
      sum *= 1e-4000L;
      scale += 4000.0L;
    }
  }
  return static_cast<double>(first + std::log(sum) + scale * std::log(10.0L));
}

}  // namespace

double mixed_chi_square_log_density(double x, double df, double C) {
  if (C > 2.0 * SHARP_FROM) {
    const double variance = 2.0 * (df + 2.0 * C);
    const double z = (x - df - C) / std::sqrt(variance);
    return -0.5 * z * z - 0.91893853320467274178 - 0.5 * std::log(variance);
  }
  const long double X = x / 2.0L;
  return mixed_log_density(
      C / 2.0, [&](double j) { return log_gamma_term(df / 2.0 + j - 1.0, X) - std::log(2.0L); },
      [&](double j) { return X / (df / 2.0L + j); });
}

double mixed_f_log_density(double f, double df1, double df2, double C) {
  if (C > 2.0 * SHARP_FROM) {
    const double g = 0.5 * df2 * ((df1 + C) / df1) / f;
    return gamma_log_share(0.5 * df2, g) - std::log(f);
  }
  const long double whole = static_cast<long double>(df1) * f + df2;
  const long double x = static_cast<long double>(df1) * f / whole;
  const long double y = df2 / whole;
  return mixed_log_density(
      C / 2.0,
      [&](double j) { return log_beta_term(df1 / 2.0 + j, df2 / 2.0, x, y) - std::log(f * 1.0L); },
      [&](double j) { return x * (df1 / 2.0L + df2 / 2.0L + j) / (df1 / 2.0L + j); });
}

// Johnson, Kotz and Balakrishnan (1995), Continuous Univariate Distributions 2, equation 31.15: a
// power series in delta t root(2/(df + t^2)). Where that is negative the terms alternate and digits
// are lost; the density is then below those digits anyway.
double mixed_t_log_density(double t, double df, double delta) {
  if (std::fabs(delta) > SERIES_DELTA && t != 0.0) {
    // The same source, equation 31.16: a difference of two distribution functions.
    const Tails more = t_tails(t * std::sqrt(1.0 + 2.0 / df), df + 2.0, delta);
    const Tails less = t_tails(t, df, delta);
    const double gap = less.below < 0.5 ? more.below - less.below : less.above - more.above;
    return std::log(std::max(df / t * gap, 0.0));
  }
  const long double tt = static_cast<long double>(t) * t;
  const long double z = delta * t * std::sqrt(2.0L / (df + tt));
  const long double first = -0.5L * std::log(df * 1.0L) - long_log_beta(0.5L, df / 2.0L) -
                            0.5L * (df + 1.0L) * std::log1p(tt / df) -
                            0.5L * static_cast<long double>(delta) * delta;
  long double even = 1.0L;
  long double odd =
      z * std::exp(long_log_gamma(df / 2.0L + 1.0L) - long_log_gamma(df / 2.0L + 0.5L));
  long double sum = 0.0L;
  long double scale = 0.0L;
  // The terms fall from j near delta^2 + |delta| root df on.
  const double end = last_index(delta * delta + std::fabs(delta) * std::sqrt(df));
  for (std::int64_t term = 0; 2.0 * static_cast<double>(term) < end; ++term) {
    const double j = 2.0 * static_cast<double>(term);
    sum += even + odd;
    const long double even_ratio = z * z * (df + j + 1.0L) / (2.0L * (j + 1.0L) * (j + 2.0L));
    const long double odd_ratio = z * z * (df + j + 2.0L) / (2.0L * (j + 2.0L) * (j + 3.0L));
    even *= even_ratio;
    odd *= odd_ratio;
    if (even_ratio < 1.0L && even + std::fabs(odd) <= NEGLIGIBLE * std::fabs(sum)) break;
    if (even > 1e4000L) {
      even *= 1e-4000L;
      odd *= 1e-4000L;
      sum *= 1e-4000L;
      scale += 4000.0L;
    }
  }
  const long double least = 1e-4900L;
  return static_cast<double>(first + std::log(std::max(sum, least)) + scale * std::log(10.0L));
}

}  // namespace korvel
