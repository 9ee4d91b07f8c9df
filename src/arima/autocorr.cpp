// Correlations of series.
#include "arima/autocorr.h"

#include <algorithm>
#include <cmath>

#include "expr/kernels/vector_lanes.h"

namespace korvel {
namespace {

// Rows of a block: 16 KB, so that a block and its neighbour stay in the first-level cache while all
// lags pass over them.
constexpr std::size_t BLOCK = 2048;

double dot(std::span<const double> x, const double* y) {
  return vector_lanes().dot(x.data(), y, static_cast<std::ptrdiff_t>(x.size()));
}

}  // namespace

SeriesMoments series_moments(std::span<const double> x) {
  SeriesMoments m;
  const auto n = static_cast<double>(x.size());
  if (x.empty()) return m;
  for (const double v : x) m.mean += v;
  m.mean /= n;
  // The second pass takes out the rounding of the first.
  double rest = 0.0;
  for (const double v : x) rest += v - m.mean;
  m.mean += rest / n;
  double squares = 0.0;
  for (const double v : x) squares += (v - m.mean) * (v - m.mean);
  m.variance = squares / n;
  return m;
}

std::span<double> difference(std::span<double> x, std::size_t lag) {
  if (x.size() <= lag) return {};
  const std::size_t left = x.size() - lag;
  for (std::size_t t = 0; t < left; ++t) x[t] = x[t + lag] - x[t];
  return x.first(left);
}

void lagged_products(std::span<const double> x, std::span<double> sums) {
  std::fill(sums.begin(), sums.end(), 0.0);
  const std::size_t n = x.size();
  for (std::size_t first = 0; first < n; first += BLOCK) {
    for (std::size_t k = 1; k <= sums.size(); ++k) {
      if (first + k >= n) break;
      const std::size_t rows = std::min(BLOCK, n - k - first);
      sums[k - 1] += dot(x.subspan(first, rows), x.data() + first + k);
    }
  }
}

void autocorrelations(std::span<double> x, SeriesMoments moments, std::span<double> r) {
  for (double& v : x) v -= moments.mean;
  lagged_products(x, r);
  const double total = moments.variance * static_cast<double>(x.size());
  for (double& v : r) v = total > 0.0 ? v / total : 0.0;
}

void bartlett_errors(std::span<const double> r, double n, std::span<double> errors) {
  double sum = 0.0;
  for (std::size_t k = 0; k < errors.size(); ++k) {
    errors[k] = std::sqrt((1.0 + 2.0 * sum) / n);
    sum += r[k] * r[k];
  }
}

void ljung_box(std::span<const double> r, double n, std::span<double> Q) {
  double sum = 0.0;
  for (std::size_t k = 0; k < Q.size(); ++k) {
    sum += r[k] * r[k] / (n - static_cast<double>(k + 1));
    Q[k] = n * (n + 2.0) * sum;
  }
}

void BJIPAR(std::span<const double> r, std::span<double> out, std::span<double> phi,
            std::span<double> spare) {
  for (std::size_t k = 0; k < out.size(); ++k) {
    double above = r[k];
    double below = 1.0;
    for (std::size_t j = 0; j < k; ++j) {
      above -= phi[j] * r[k - 1 - j];
      below -= phi[j] * r[j];
    }
    // A series that its past determines has nothing left to be explained.
    const double last = below > 0.0 ? above / below : 0.0;
    for (std::size_t j = 0; j < k; ++j) spare[j] = phi[j] - last * phi[k - 1 - j];
    std::copy_n(spare.begin(), k, phi.begin());
    phi[k] = last;
    out[k] = last;
  }
}

void inverse_autocorrelations(std::span<const double> phi, std::span<double> out) {
  const std::size_t p = phi.size();
  const auto f = [&](std::size_t j) { return j == 0 ? 1.0 : -phi[j - 1]; };
  double squares = 0.0;
  for (std::size_t j = 0; j <= p; ++j) squares += f(j) * f(j);
  for (std::size_t k = 1; k <= out.size(); ++k) {
    double sum = 0.0;
    for (std::size_t j = 0; j + k <= p; ++j) sum += f(j) * f(j + k);
    out[k - 1] = sum / squares;
  }
}

double cross_product(std::span<const double> x, std::span<const double> y, std::size_t k) {
  if (k >= y.size()) return 0.0;
  return dot(x.first(std::min(x.size(), y.size() - k)), y.data() + k);
}

}  // namespace korvel
