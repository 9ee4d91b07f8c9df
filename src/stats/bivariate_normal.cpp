// Bivariate normal distribution.
#include <algorithm>
#include <cmath>

#include "stats/probability.h"

namespace korvel {
namespace {

constexpr double PI = 3.14159265358979323846;

// 1/(2 pi) times the integral of exp[-(h^2 - 2 h k sin a + k^2) / (2 cos^2 a)] over a = from..to,
// by the double exponential rule of Takahasi and Mori (1974): its nodes crowd at the ends, where
// the integrand changes quickly when the correlation is near 1.
double angle_integral(double h, double k, double from, double to) {
  constexpr double step = 1.0 / 32.0;
  constexpr int nodes = 110;  // to 3.4, where the weights are below 1e-18
  const double half = 0.5 * (to - from);
  double sum = 0.0;
  for (int i = -nodes; i <= nodes; ++i) {
    const double u = step * i;
    const double e = 0.5 * PI * std::sinh(u);
    const double c = std::cosh(e);
    const double from_end = half * std::exp(-std::fabs(e)) / c;  // from the nearer end
    const double angle = i < 0 ? from + from_end : to - from_end;
    const double s = std::sin(angle);
    const double cc = std::cos(angle) * std::cos(angle);
    if (cc <= 0.0) continue;
    // h^2 - 2hks + k^2 = (h - k)^2 + 2hk(1 - s), and alike with h + k: no cancellation near 1.
    const double form = s >= 0.0 ? (h - k) * (h - k) / cc + 2.0 * h * k / (1.0 + s)
                                 : (h + k) * (h + k) / cc - 2.0 * h * k / (1.0 - s);
    sum += std::exp(-0.5 * form) * std::cosh(u) / (c * c);
  }
  return sum * step * half * 0.5 * PI / (2.0 * PI);
}

}  // namespace

// Plackett (1954), Biometrika 41, 351-360: the derivative by the correlation is the density.
// Integration starts at correlation 0 or -1, so that all parts are positive and small values keep
// their digits.
TailValue bivariate_normal_cdf(double h, double k, double rho) {
  if (!(std::fabs(rho) < 1.0)) return {0.0, 1};
  const double end = std::asin(rho);
  if (rho >= 0.0) {
    const double part = rho == 0.0 ? 0.0 : angle_integral(h, k, 0.0, end);
    return {std::min(normal_cdf(h) * normal_cdf(k) + part, 1.0), 0};
  }
  const double base = h + k > 0.0 ? normal_cdf(h) - normal_cdf(-k) : 0.0;
  return {std::clamp(base + angle_integral(h, k, -0.5 * PI, end), 0.0, 1.0), 0};
}

TailValue bivariate_normal_density(double x, double y, double rho) {
  if (!(std::fabs(rho) < 1.0)) return {0.0, 1};
  const double rest = (1.0 - rho) * (1.0 + rho);
  const double form = (x - rho * y) * (x - rho * y) / rest + y * y;
  return {std::exp(-0.5 * form) / (2.0 * PI * std::sqrt(rest)), 0};
}

}  // namespace korvel
