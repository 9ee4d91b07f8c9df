// Normal, gamma and chi-square.
#include "stats/probability.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "engine/output.h"
#include "stats/gamma_terms.h"
#include "stats/mixture.h"

namespace korvel {
namespace {

constexpr double EPS = std::numeric_limits<double>::epsilon();
constexpr double TINY = 1e-300;  // stands for a zero denominator in a continued fraction

// ---- Normal
// --------------------------------------------------------------------------------------

constexpr double NORMAL_LOW = 1e-78;
// 1/root 2 and what its double leaves out.
constexpr double ROOT_HALF = 0.70710678118654752440;
constexpr double ROOT_HALF_REST = -4.8336466567264567e-17;
constexpr double TWO_BY_ROOT_PI = 1.12837916709551257390;

// erfc(x / root 2) / 2, x >= 0. The rounding of the argument counts x*x times in a tail, so it is
// taken up by one step of Taylor's series.
double upper_normal(double x) {
  const double y = x * ROOT_HALF;
  const double rest = std::fma(x, ROOT_HALF, -y) + x * ROOT_HALF_REST;
  return 0.5 * (std::erfc(y) - TWO_BY_ROOT_PI * std::exp(-y * y) * rest);
}

}  // namespace

double normal_cdf(double x) {
  if (std::isnan(x)) return x;
  if (x < 0.0) return x < -40.0 ? NORMAL_LOW : std::max(upper_normal(-x), NORMAL_LOW);
  const double p = x > 40.0 ? 1.0 : 1.0 - upper_normal(x);
  return p >= 1.0 ? 1.0 - NORMAL_LOW : p;
}

double normal_two_sided(double z) { return std::min(1.0, 2.0 * normal_cdf(-std::fabs(z))); }

// ---- Gamma functions
// -----------------------------------------------------------------------------

double log_gamma(double x) {
  if (x <= 0.0) return 9.9999999999999e37;
  if (std::fabs(x - 1.0) < 1e-14 || std::fabs(x - 2.0) < 1e-14) return 0.0;
  return static_cast<double>(long_log_gamma(x));
}

double log_beta(double a, double b) { return static_cast<double>(long_log_beta(a, b)); }

namespace {

// Lower ratio over its leading factor: 1 + x/(a+1) + x^2/((a+1)(a+2)) + ...
// Bhattacharjee (1970), Applied Statistics algorithm AS 32. Near x = a the terms fall like
// exp(-n^2/2a), hence the bound.
double gamma_series(double a, double x) {
  const double most = 500.0 + 12.0 * std::sqrt(a);
  double term = 1.0;
  double sum = 1.0;
  for (int k = 1; k < most; ++k) {
    const double n = k;
    term *= x / (a + n);
    sum += term;
    if (term <= 0.1 * EPS * sum) break;
  }
  return sum;
}

// Upper ratio over x^a e^-x / gamma(a): Legendre's continued fraction in the form of Shea (1988),
// Applied Statistics algorithm AS 239, run forward by the method of Lentz (1976). excess = x - a.
double gamma_fraction(double a, double x, double excess) {
  const double most = 500.0 + 12.0 * std::sqrt(x);
  double b = excess + 1.0;
  double c = 1.0 / TINY;
  double d = 1.0 / b;
  double value = d;
  for (int k = 1; k < most; ++k) {
    const double n = k;
    const double numerator = -n * (n - a);
    b += 2.0;
    d = numerator * d + b;
    if (std::fabs(d) < TINY) d = TINY;
    c = b + numerator / c;
    if (std::fabs(c) < TINY) c = TINY;
    d = 1.0 / d;
    const double change = c * d;
    value *= change;
    if (std::fabs(change - 1.0) <= EPS) break;
  }
  return value;
}

// Upper ratio for small a and x, where it is small although x is near 0: DiDonato and Morris
// (1986), ACM Transactions on Mathematical Software 12, 377-393, equation 7.
double gamma_above_near_zero(double a, double x) {
  long double term = 1.0L;
  long double sum = 0.0L;
  for (int k = 1; k < 60; ++k) {
    term *= -static_cast<long double>(x) / k;
    const long double next = term / (static_cast<long double>(a) + k);
    sum += next;
    if (std::fabs(next) <= 1e-20L * std::fabs(sum)) break;
  }
  const long double log_factor =
      a * std::log(static_cast<long double>(x)) - long_log_gamma(1.0L + a);
  return static_cast<double>(-std::expm1(log_factor) - std::exp(log_factor) * a * sum);
}

// Shape above which even the bounded sums would take seconds; the normal form has more than double
// precision by then.
constexpr double GAMMA_NORMAL_FROM = 1e13;

// Wilson and Hilferty (1931): the cube root of a gamma variable is nearly normal.
double wilson_hilferty(double a, double x) {
  return 3.0 * std::sqrt(a) * (std::cbrt(x / a) + 1.0 / (9.0 * a) - 1.0);
}

}  // namespace

Tails gamma_tails(double a, double x) {
  if (!(x > 0.0)) return {0.0, 1.0};
  if (std::isinf(x)) return {1.0, 0.0};
  if (a > GAMMA_NORMAL_FROM) return normal_tails(wilson_hilferty(a, x));
  const auto excess = static_cast<double>(static_cast<long double>(x) - a);
  if (x <= 1.0 || excess < 0.0) {
    const auto factor = static_cast<double>(std::exp(log_gamma_term(a, x)));
    const double below = std::min(factor * gamma_series(a, x), 1.0);
    if (x <= 1.0 && below > 0.5) {
      const double above = gamma_above_near_zero(a, x);
      return {1.0 - above, above};
    }
    return {below, 1.0 - below};
  }
  const auto factor = static_cast<double>(std::exp(log_gamma_term(a, x))) * a;
  const double above = std::min(factor * gamma_fraction(a, x, excess), 1.0);
  return {1.0 - above, above};
}

// ---- Chi-square
// ----------------------------------------------------------------------------------

TailValue chi_square_tail(double x, double df) {
  if (!(df > 0.0) || !(x >= 0.0)) return {1.0, 1};
  return {chi_square_tails(x, df).above, 0};
}

Tails chi_square_tails(double x, double df, double C) {
  constexpr double normal_from = 1000.0;  // half the degrees of freedom
  constexpr double never_above = 1e8;     // half of x
  constexpr double least_log = 308.0;     // a tail below exp(-308) is 0
  const double X = x / 2.0;
  const double P = df / 2.0;
  if (!(X > 0.0)) return {0.0, 1.0};
  if (C > 0.0) return mixed_gamma_tails(P, X, C / 2.0);
  if (P > normal_from) return normal_tails(wilson_hilferty(P, X));
  if (X > never_above) return {1.0, 0.0};
  Tails tails = gamma_tails(P, X);
  static const double least = std::exp(-least_log);
  if (tails.above < least) tails.above = 0.0;
  return tails;
}

double PCHI(double x, double df) {
  const TailValue tail = chi_square_tail(x, df);
  if (tail.IFAULT != 0) error_line(" ...ERROR..IN PCHI");
  return tail.value;
}

}  // namespace korvel
