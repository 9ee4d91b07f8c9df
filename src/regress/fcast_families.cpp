// Forecasts of models that are more than one index: several choices, the families of MLE.

#include <algorithm>
#include <cmath>

#include "engine/output.h"
#include "nonlinear/nlmle_families.h"
#include "regress/fcast_parts.h"

namespace korvel {

// Forecasts of several choices: P[choice * n + row]; yhat is the most likely choice.
void predict_choices(const ForecastModel& model, ForecastRows& rows, std::span<double> P) {
  const auto K = static_cast<std::size_t>(model.K());
  const auto J = static_cast<std::size_t>(model.choices);
  for (std::size_t r = 0; r < rows.n; ++r) {
    double top = 0.0, sum = 0.0;
    bool missing = false;
    for (std::size_t j = 0; j < J; ++j) {
      double z = 0.0;
      for (std::size_t k = 0; k < K && j > 0; ++k) {
        const double xk = rows.x[k] == nullptr ? 1.0 : rows.x[k][r];
        missing = missing || xk == MACOM.XMISS;
        z += model.coef[(j - 1) * K + k] * xk;
      }
      P[j * rows.n + r] = z;
      top = std::max(top, z);
    }
    std::size_t best = 0;
    for (std::size_t j = 0; j < J; ++j) {
      double& p = P[j * rows.n + r];
      p = std::exp(p - top);
      sum += p;
      if (p > P[best * rows.n + r]) best = j;
    }
    for (std::size_t j = 0; j < J; ++j)
      P[j * rows.n + r] = missing ? MACOM.XNAN : P[j * rows.n + r] / sum;
    rows.yhat[r] = missing ? MACOM.XNAN : static_cast<double>(best);
    rows.index[r] = MACOM.XNAN;
  }
}

namespace {

// Central differences: the third root of the rounding of a mean.
constexpr double STEP = 6e-6;

double index_of(const ForecastRows& rows, std::span<const double> b, std::size_t r, bool& missing) {
  double z = 0.0;
  for (std::size_t k = 0; k < b.size(); ++k) {
    const double xk = rows.x[k] == nullptr ? 1.0 : rows.x[k][r];
    missing = missing || xk == MACOM.XMISS;
    z += b[k] * xk;
  }
  return z;
}

}  // namespace

void predict_family(const ForecastModel& model, ForecastRows& rows, std::span<const double> C,
                    std::span<double> work) {
  const auto K = static_cast<std::size_t>(model.K());
  const std::span<const double> b = model.coef.first(K);
  const std::span<const double> b2 =
      model.second_index ? model.coef.subspan(K, K) : std::span<double>{};
  const std::size_t shapes_at = K + b2.size();
  const auto shape = std::span<double>(work).first(model.coef.size() - shapes_at);
  const std::span<double> d = work.subspan(shape.size(), model.coef.size());
  std::ranges::copy(model.coef.subspan(shapes_at), shape.begin());
  const auto type = static_cast<MleType>(model.family);
  for (std::size_t r = 0; r < rows.n; ++r) {
    bool missing = false;
    const double z = index_of(rows, b, r, missing);
    const double z2 = index_of(rows, b2, r, missing);
    rows.index[r] = missing ? MACOM.XNAN : z;
    rows.yhat[r] = missing ? MACOM.XNAN : mle_moments(type, z, z2, shape).mean;
    if (rows.se.empty()) continue;
    // The slope of the mean at v when mean_at moves it.
    const auto slope = [&](double v, auto&& mean_at) {
      const double h = STEP * std::max(1.0, std::fabs(v));
      return (mean_at(v + h) - mean_at(v - h)) / (2.0 * h);
    };
    const auto spread = [&](std::size_t from, std::size_t count, double by) {
      for (std::size_t k = 0; k < count; ++k) {
        d[from + k] = by * (rows.x[k] == nullptr ? 1.0 : rows.x[k][r]);
      }
    };
    spread(0, K, slope(z, [&](double v) { return mle_moments(type, v, z2, shape).mean; }));
    if (!b2.empty()) {
      spread(K, K, slope(z2, [&](double v) { return mle_moments(type, z, v, shape).mean; }));
    }
    for (std::size_t i = 0; i < shape.size(); ++i) {
      const double kept = shape[i];
      d[shapes_at + i] = slope(kept, [&](double v) {
        shape[i] = v;
        return mle_moments(type, z, z2, shape).mean;
      });
      shape[i] = kept;
    }
    rows.se[r] = missing ? MACOM.XNAN : std::sqrt(packed_form(C, d));
  }
}

}  // namespace korvel
