#include "stats/gamma_terms.h"

#include <array>
#include <cmath>
#include <utility>

namespace korvel {
namespace {

constexpr long double HALF_LOG_2PI = 0.918938533204672741780329736405617640L;
constexpr long double TWO_PI = 6.283185307179586476925286766559005768L;
constexpr long double STIRLING_FROM = 18.0L;

// log gamma(x) - [(x - 0.5) log x - x + 0.5 log(2 pi)] for x of 18 and more; the first term left
// out is below 1e-20 there.
long double stirling_correction(long double x) {
  const long double r = 1.0L / x;
  const long double s = r * r;
  return r * (1.0L / 12.0L +
              s * (-1.0L / 360.0L +
                   s * (1.0L / 1260.0L +
                        s * (-1.0L / 1680.0L + s * (1.0L / 1188.0L + s * (-691.0L / 360360.0L +
                                                                          s * 1.0L / 156.0L))))));
}

// zeta(k) - 1 for k = 2, 3, ...
constexpr std::array<long double, 18> ZETA_LESS_ONE = {
    0.644934066848226436472415166646025189L,    0.202056903159594285399738161511449991L,
    0.0823232337111381915160036965411679028L,   0.0369277551433699263313654864570341681L,
    0.0173430619844491397145179297909205279L,   0.00834927738192282683979754984979675959L,
    0.00407735619794433937868523850865246525L,  0.00200839282608221441785276923241206049L,
    0.000994575127818085337145958900319017006L, 0.000494188604119464558702282526469936468L,
    0.000246086553308048298637998047739670961L, 0.000122713347578489146751836526357395714L,
    6.12481350587048292585451051353337474e-05L, 3.05882363070204935517285106450625877e-05L,
    1.52822594086518717325714876367220232e-05L, 7.63719763789976227360029356302921309e-06L,
    3.81729326499983985646164462193973046e-06L, 1.90821271655393892565695779510135326e-06L};
constexpr long double ONE_LESS_EULER = 0.422784335098467139393487909917597569L;
constexpr long double NEAR_ONE = 0.15L;

// log gamma(1 + e), |e| <= 0.15 (Abramowitz and Stegun 1964, 6.1.33).
long double log_gamma_near_one(long double e) {
  long double sum = 0.0L;
  for (std::size_t i = ZETA_LESS_ONE.size(); i-- > 0;) {
    sum = ZETA_LESS_ONE[i] / static_cast<long double>(i + 2) - e * sum;
  }
  return e * (ONE_LESS_EULER + e * sum) - std::log1p(e);
}

// t - log(1 + t), where ratio = 1 + t to its own precision, without cancellation near 0: with
// r = t/(2+t) the logarithm is 2 (r + r^3/3 + r^5/5 + ...).
long double log_gap(long double t, long double ratio) {
  if (std::fabs(t) > 0.25L) return t - std::log(ratio);
  const long double r = t / (2.0L + t);
  const long double s = r * r;
  long double sum = 0.0L;
  for (int k = 25; k >= 3; k -= 2) sum = sum * s + 1.0L / static_cast<long double>(k);
  return r * t - 2.0L * r * s * sum;
}

long double accurate_log(long double x, long double y) {
  return y < 0.5L ? std::log1p(-y) : std::log(x);
}

}  // namespace

long double long_log_gamma(long double x) {
  if (std::fabs(x - 1.0L) <= NEAR_ONE) return log_gamma_near_one(x - 1.0L);
  if (std::fabs(x - 2.0L) <= NEAR_ONE) return log_gamma_near_one(x - 2.0L) + std::log(x - 1.0L);
  if (x < NEAR_ONE) return log_gamma_near_one(x) - std::log(x);
  long double product = 1.0L;
  while (x < STIRLING_FROM) {
    product *= x;
    x += 1.0L;
  }
  return (x - 0.5L) * std::log(x) + HALF_LOG_2PI - x + stirling_correction(x) - std::log(product);
}

long double long_log_beta(long double a, long double b) {
  if (a < b) std::swap(a, b);
  if (a < STIRLING_FROM) return long_log_gamma(a) + long_log_gamma(b) - long_log_gamma(a + b);
  const long double rest = stirling_correction(a) - stirling_correction(a + b);
  if (b < STIRLING_FROM) {
    return long_log_gamma(b) - (a - 0.5L) * std::log1p(b / a) - b * std::log(a + b) + b + rest;
  }
  return -(a - 0.5L) * std::log1p(b / a) - b * std::log1p(a / b) - 0.5L * std::log(b) +
         HALF_LOG_2PI + rest + stirling_correction(b);
}

// Loader (2000), "Fast and accurate computation of binomial probabilities": the deviance form, in
// which the large logarithms have cancelled on paper.
long double log_gamma_term(long double a, long double x) {
  if (a < STIRLING_FROM) return a * std::log(x) - x - long_log_gamma(a + 1.0L);
  const long double deviance = a * log_gap((x - a) / a, x / a);
  return -deviance - stirling_correction(a) - 0.5L * std::log(TWO_PI * a);
}

long double log_beta_term(long double a, long double b, long double x, long double y) {
  if (a < STIRLING_FROM || b < STIRLING_FROM) {
    return a * accurate_log(x, y) + b * accurate_log(y, x) - long_log_beta(a, b);
  }
  const long double n = a + b;
  const long double distance = b * x - a * y;
  return -a * log_gap(distance / a, n * x / a) - b * log_gap(-distance / b, n * y / b) +
         stirling_correction(n) - stirling_correction(a) - stirling_correction(b) +
         0.5L * (std::log(a / n) + std::log(b) - std::log(TWO_PI));
}

}  // namespace korvel
