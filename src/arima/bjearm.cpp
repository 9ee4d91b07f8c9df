// BJEARM: residuals of an ARMA model by back-forecasting.
#include "arima/bjearm.h"

#include <algorithm>
#include <limits>

namespace korvel {

void combine_lags(std::span<const double> ordinary, std::span<const double> seasonal, int span,
                  LagList& product) {
  std::array<double, PRESAMPLE + 1> full{};
  const auto s = static_cast<std::size_t>(span);
  const std::size_t longest = ordinary.size() + seasonal.size() * s;
  for (std::size_t i = 1; i <= ordinary.size(); ++i) full[i] += ordinary[i - 1];
  for (std::size_t j = 1; j <= seasonal.size(); ++j) {
    full[j * s] += seasonal[j - 1];
    for (std::size_t i = 1; i <= ordinary.size(); ++i) {
      full[i + j * s] -= ordinary[i - 1] * seasonal[j - 1];
    }
  }
  product.longest = static_cast<int>(longest);
  product.terms = 0;
  for (std::size_t i = longest; i >= 1; --i) {
    if (full[i] == 0.0) continue;
    const auto at = static_cast<std::size_t>(product.terms++);
    product.lag[at] = static_cast<int>(i);
    product.coef[at] = full[i];
  }
}

double arm_limit(std::span<const double> series) {
  constexpr double beyond = 1e18;  // times the sum of squares of the series itself
  double squares = 0.0;
  for (const double w : series) squares += w * w;
  return std::max(1e38, std::min(beyond * squares, std::numeric_limits<double>::max()));
}

double mean_factor(const BjOrders& o, std::span<const double> b) {
  double ordinary = 1.0, seasonal = 1.0;
  for (int i = 0; i < o.NARP; ++i) ordinary -= b[static_cast<std::size_t>(i)];
  for (int i = 0; i < o.NSARP; ++i) seasonal -= b[static_cast<std::size_t>(o.NARP + o.NMA + i)];
  return ordinary * seasonal;
}

void make_model(const BjOrders& o, std::span<const double> b, bool mean, BjModel& model) {
  const auto part = [&](int first, int count) {
    return b.subspan(static_cast<std::size_t>(first), static_cast<std::size_t>(count));
  };
  combine_lags(part(0, o.NARP), part(o.NARP + o.NMA, o.NSARP), o.NSPAN, model.ar);
  combine_lags(part(o.NARP, o.NMA), part(o.NARP + o.NMA + o.NSARP, o.NSMA), o.NSPAN, model.ma);
  model.c = 0.0;
  if (!o.constant) return;
  model.c = b[static_cast<std::size_t>(o.arma())];
  if (mean) model.c *= mean_factor(o, b);
}

double BJEARM(const BjModel& model, const ArmRoom& room, std::span<double> a) {
  const LagList& ar = model.ar;
  const LagList& ma = model.ma;
  const auto N = static_cast<std::ptrdiff_t>(room.w.size());
  double* const w = room.w.data();
  double* const e = room.e.data();
  double* const out = a.data();
  const double c = model.c;
  const auto ahead = [](const LagList& list, const double* x) {  // sum coef x(t + lag)
    double sum = 0.0;
    for (int k = 0; k < list.terms; ++k) {
      const auto i = static_cast<std::size_t>(k);
      sum += list.coef[i] * x[list.lag[i]];
    }
    return sum;
  };
  const auto behind = [](const LagList& list, const double* x) {  // sum coef x(t - lag)
    double sum = 0.0;
    for (int k = 0; k < list.terms; ++k) {
      const auto i = static_cast<std::size_t>(k);
      sum += list.coef[i] * x[-list.lag[i]];
    }
    return sum;
  };
  // 1. Backward residuals, from the last observation that has all its AR terms.
  if (ma.terms > 0) {
    std::fill(e, e + PRESAMPLE, 0.0);
    std::fill(e + N - ar.longest, e + N + PRESAMPLE, 0.0);
    for (std::ptrdiff_t t = N - ar.longest - 1; t >= PRESAMPLE; --t) {
      e[t] = w[t] - c - ahead(ar, w + t) + ahead(ma, e + t);
    }
  }
  // 2. The series before the sample. Residuals there are 0, so that the MA terms end soon.
  for (std::ptrdiff_t t = PRESAMPLE - 1; t >= 0; --t) {
    w[t] = c + ahead(ar, w + t);
    if (t + ma.longest >= PRESAMPLE && ma.terms > 0) w[t] -= ahead(ma, e + t);
  }
  // 3. The residuals.
  const auto first = static_cast<std::ptrdiff_t>(first_residual(model));
  std::fill(out, out + first, 0.0);
  double S = 0.0;
  for (std::ptrdiff_t t = first; t < N; ++t) {
    out[t] = w[t] - c - behind(ar, w + t) + behind(ma, out + t);
    S += out[t] * out[t];
    if (!(S <= room.limit)) return S > room.limit ? S : std::numeric_limits<double>::infinity();
  }
  return S;
}

}  // namespace korvel
