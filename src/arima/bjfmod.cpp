// BJFMOD: forecasts of ARIMA models.
#include "arima/bjfmod.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace korvel {
namespace {

constexpr double TWO_PI = 6.2831853071796;

// p := p (1 - B^s) on the coefficients of 1, B, B^2, ... with the sign of the AR side turned: ar[i]
// belongs to B^(i+1), and the polynomial is 1 - sum ar B^i.
void multiply_difference(std::span<double> ar, std::size_t s) {
  for (std::size_t i = ar.size(); i > s; --i) ar[i - 1] -= ar[i - 1 - s];
  ar[s - 1] += 1.0;
}

}  // namespace

void BJFMOD(const BjOrders& o, const LagList& list, std::span<double> ar) {
  std::fill(ar.begin(), ar.end(), 0.0);
  for (int k = 0; k < list.terms; ++k) {
    const auto i = static_cast<std::size_t>(k);
    ar[static_cast<std::size_t>(list.lag[i]) - 1] = list.coef[i];
  }
  for (int d = 0; d < o.NDIFF; ++d) multiply_difference(ar, 1);
  for (int d = 0; d < o.NSDIFF; ++d) multiply_difference(ar, static_cast<std::size_t>(o.NSPAN));
}

void known_residuals(std::span<const double> y, std::span<const double> ar, const LagList& ma,
                     double c, std::span<double> a) {
  const std::size_t P = std::min(ar.size(), y.size());
  std::fill_n(a.begin(), P, 0.0);
  for (std::size_t t = P; t < y.size(); ++t) {
    double fitted = c;
    for (std::size_t i = 0; i < P; ++i) fitted += ar[i] * y[t - 1 - i];
    for (int k = 0; k < ma.terms; ++k) {
      const auto j = static_cast<std::size_t>(k);
      const auto lag = static_cast<std::size_t>(ma.lag[j]);
      if (lag <= t) fitted -= ma.coef[j] * a[t - lag];
    }
    a[t] = y[t] - fitted;
  }
}

void forecast_steps(std::span<const double> y, std::span<const double> a,
                    std::span<const double> ar, const LagList& ma, double c, std::span<double> path,
                    std::span<double> f) {
  const std::size_t P = ar.size(), n = y.size();
  std::copy_n(y.end() - static_cast<std::ptrdiff_t>(P), P, path.begin());
  for (std::size_t l = 1; l <= f.size(); ++l) {
    double sum = c;
    for (std::size_t i = 1; i <= P; ++i) sum += ar[i - 1] * path[P + l - 1 - i];
    for (int k = 0; k < ma.terms; ++k) {
      const auto j = static_cast<std::size_t>(k);
      const auto lag = static_cast<std::size_t>(ma.lag[j]);
      if (lag >= l && lag - l < n) sum -= ma.coef[j] * a[n - 1 - (lag - l)];
    }
    path[P + l - 1] = f[l - 1] = sum;
  }
}

void psi_weights(std::span<const double> ar, const LagList& ma, std::span<double> psi) {
  if (psi.empty()) return;
  std::fill(psi.begin(), psi.end(), 0.0);
  psi[0] = 1.0;
  for (int k = 0; k < ma.terms; ++k) {
    const auto j = static_cast<std::size_t>(k);
    const auto lag = static_cast<std::size_t>(ma.lag[j]);
    if (lag < psi.size()) psi[lag] = -ma.coef[j];
  }
  for (std::size_t j = 1; j < psi.size(); ++j) {
    for (std::size_t i = 1; i <= std::min(j, ar.size()); ++i) psi[j] += ar[i - 1] * psi[j - i];
  }
}

bool theoretical_autocorrelations(std::span<const double> psi, std::span<double> rho) {
  constexpr std::size_t last = 500, tail = 20;
  constexpr double died_out = 1e-4;
  double rest = 0.0;
  for (std::size_t j = last - tail; j < last; ++j) rest += std::fabs(psi[j]);
  if (!(rest < died_out)) return false;
  const auto covariance = [&](std::size_t k) {
    double sum = 0.0;
    for (std::size_t j = 0; j + k < psi.size(); ++j) sum += psi[j] * psi[j + k];
    return sum;
  };
  const double variance = covariance(0);
  for (std::size_t k = 1; k <= rho.size(); ++k) rho[k - 1] = covariance(k) / variance;
  return true;
}

double mean_time(double r) {
  const double angle = std::acos(std::clamp(r, -1.0, 1.0));
  return angle > 0.0 ? TWO_PI / angle : std::numeric_limits<double>::infinity();
}

}  // namespace korvel
