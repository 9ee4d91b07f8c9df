// Imhof (1961), "Computing the distribution of quadratic forms in normal variables", Biometrika 48,
// 419-426: the inversion of the characteristic function, here along the contour of contour.h.
#include "stats/imhof.h"

#include <cmath>
#include <complex>
#include <limits>

#include "stats/contour.h"

namespace korvel {
namespace {

// K(s) = -1/2 sum log(1 - 2 w_i s). Off the real axis every factor has its argument between -pi and
// pi, so the principal logarithms add up without a jump.
struct SumOfSquares {
  std::span<const double> weights;

  double operator()(double s) const {
    double sum = 0.0;
    for (const double w : weights) sum += std::log1p(-2.0 * w * s);
    return -0.5 * sum;
  }
  std::complex<double> operator()(std::complex<double> s) const {
    double size = 1.0;
    double log_size = 0.0;
    double angle = 0.0;
    for (const double w : weights) {
      const double re = 1.0 - 2.0 * w * s.real();
      const double im = -2.0 * w * s.imag();
      size *= re * re + im * im;
      angle += std::atan2(im, re);
      if (size > 1e150 || size < 1e-150) {
        log_size += std::log(size);
        size = 1.0;
      }
    }
    return {-0.25 * (log_size + std::log(size)), -0.5 * angle};
  }
};

}  // namespace

FourierTails FQUAD(std::span<const double> weights, double x) {
  double largest = 0.0;
  double smallest = 0.0;
  double mean = 0.0;
  for (const double w : weights) {
    if (!std::isfinite(w)) return {{}, 3};
    largest = std::max(largest, w);
    smallest = std::min(smallest, w);
    mean += w;
  }
  if (std::isnan(x) || !std::isfinite(mean)) return {{}, 3};
  if (weights.empty()) return {{}, 3};
  // All weights are zero, or x lies where a sum of one sign never comes.
  if (largest == 0.0 && smallest == 0.0) return {x < 0.0 ? Tails{0.0, 1.0} : Tails{1.0, 0.0}, 0};
  if (smallest == 0.0 && x <= 0.0) return {{0.0, 1.0}, 0};
  if (largest == 0.0 && x >= 0.0) return {{1.0, 0.0}, 0};
  if (std::isinf(x)) return {x < 0.0 ? Tails{0.0, 1.0} : Tails{1.0, 0.0}, 0};
  constexpr double infinity = std::numeric_limits<double>::infinity();
  const double high = largest > 0.0 ? 0.5 / largest : infinity;
  const double low = smallest < 0.0 ? 0.5 / smallest : -infinity;
  const SumOfSquares K{weights};
  const bool above = x > mean;
  const ContourTail tail = contour_tail(K, low, high, x, above);
  const Tails tails =
      above ? Tails{1.0 - tail.value, tail.value} : Tails{tail.value, 1.0 - tail.value};
  return {tails, tail.IFAULT};
}

}  // namespace korvel
