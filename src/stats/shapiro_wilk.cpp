#include "stats/shapiro_wilk.h"

#include <cmath>
#include <numbers>

#include "stats/critical_values.h"

namespace korvel {
namespace {

// Polynomials in 1/sqrt(n) for the two outermost weights, lowest power first.
constexpr double LAST[] = {0.0, 0.221157, -0.147981, -2.07119, 4.434685, -2.706056};
constexpr double NEXT[] = {0.0, 0.042981, -0.293762, -1.752461, 5.682633, -3.582633};
constexpr std::size_t THREE = 3, FIVE = 5;

double polynomial(std::span<const double> c, double x) {
  double sum = 0.0;
  for (std::size_t k = c.size(); k-- > 0;) sum = sum * x + c[k];
  return sum;
}

// Weights of the upper half, the outermost first; the lower half has them with the other sign.
void set_weights(std::size_t n, std::span<double> a) {
  if (n == THREE) {
    a[0] = std::numbers::sqrt2 / 2.0;
    return;
  }
  // 1. Expected order statistics, by Blom's approximation.
  constexpr double BLOM = 0.375, ADDED = 0.25;
  const auto N = static_cast<double>(n);
  double squares = 0.0;
  for (std::size_t i = 0; i < a.size(); ++i) {
    a[i] = -normal_quantile((static_cast<double>(i) + 1.0 - BLOM) / (N + ADDED), Side::below);
    squares += a[i] * a[i];
  }
  squares *= 2.0;
  // 2. The outermost ones are corrected, the others scaled so that all squares sum to 1.
  const double root = std::sqrt(squares), u = 1.0 / std::sqrt(N);
  const double m0 = a[0], m1 = a[1];
  const double a0 = polynomial(LAST, u) + m0 / root;
  std::size_t corrected = 1;
  double above = squares - 2.0 * m0 * m0, below = 1.0 - 2.0 * a0 * a0;
  double a1 = 0.0;
  if (n > FIVE) {
    a1 = polynomial(NEXT, u) + m1 / root;
    above -= 2.0 * m1 * m1;
    below -= 2.0 * a1 * a1;
    corrected = 2;
  }
  const double scale = std::sqrt(above / below);
  a[0] = a0;
  if (n > FIVE) a[1] = a1;
  for (std::size_t i = corrected; i < a.size(); ++i) a[i] /= scale;
}

}  // namespace

double shapiro_wilk(std::span<const double> x, std::span<double> weights) {
  const std::size_t n = x.size();
  const std::span<double> a = weights.first(n / 2);
  set_weights(n, a);
  double mean = 0.0;
  for (const double v : x) mean += v;
  mean /= static_cast<double>(n);
  double squares = 0.0, slope = 0.0;
  for (const double v : x) squares += (v - mean) * (v - mean);
  for (std::size_t i = 0; i < a.size(); ++i) slope += a[i] * (x[n - 1 - i] - x[i]);
  return squares > 0.0 ? slope * slope / squares : 0.0;
}

}  // namespace korvel
