// YHAT: the prediction kernel. Forecasts of a linear index with lags of the dependent variable and
// ARMA errors, and their variances (Judge et al. 1985, section 8.3; Baillie 1979, Journal of
// Econometrics 10 for the share of an estimated rho).

#include "regress/yhat.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "engine/output.h"
#include "regress/auto.h"
#include "stats/probability.h"

namespace korvel {
namespace {

constexpr double NONE = std::numeric_limits<double>::quiet_NaN();
constexpr double ROOT_2_PI = 2.5066282746310005;
// Weights of disturbances kept beyond the rows: with a root of 0.99 the rest is below 1E-17.
constexpr std::int64_t MORE_WEIGHTS = 2000;

std::int64_t largest_lag(const YhatModel& m) {
  std::int64_t largest = 0;
  for (const int lag : m.lag) largest = std::max<std::int64_t>(largest, lag);
  return largest;
}

// Rows that a recursion over derivatives looks back.
std::int64_t window(const YhatModel& m) {
  return std::max({std::ssize(m.rho), std::ssize(m.theta), largest_lag(m)}) + 1;
}

// State and work space of one walk over the rows.
class Walk {
 public:
  Walk(std::span<const double* const> x, std::span<const double> obs, const YhatModel& model,
       const YhatVariance& variance, bool with_variance, std::span<double> work)
      : m(model), v(variance), x_(x), obs_(obs), work_(work) {
    n = obs.size();
    K = m.b.size();
    total = K + (m.link.kind == LinkKind::tobit ? 1 : 0);
    if (has_errors()) {
      e = take(n);
      u = take(n);
    }
    starter = take(m.rho.size() * m.rho.size());
    starter_root = take(m.rho.size());
    if (!with_variance) return;
    for (std::span<double>* const weights : {&cumulated, &weight, &impulse}) {
      *weights = take(n + MORE_WEIGHTS + 1);
    }
    g = take(K);
    d = take(total);
    rows = static_cast<std::size_t>(window(m));
    for (std::span<double>* const ring : {&D, &E, &U}) *ring = take(rows * K);
  }

  const YhatModel& m;
  const YhatVariance& v;
  std::size_t n = 0, K = 0, total = 0, rows = 0;
  std::span<double> e, u;                        // errors and disturbances, one a row
  std::span<double> cumulated, weight, impulse;  // sums of squared weights; weights by step
  std::span<double> starter, starter_root;       // predictors of the first errors, their deviations
  std::span<double> g, d;                        // derivatives of the index and of the forecast
  std::span<double> D, E, U;                     // of forecasts, errors, disturbances: last rows

  double value(std::size_t k, std::size_t r) const { return x_[k] == nullptr ? 1.0 : x_[k][r]; }
  bool has_errors() const { return !m.rho.empty() || !m.theta.empty(); }
  std::span<double> of(std::span<double> ring, std::size_t r) const {
    return ring.subspan(r % rows * K, K);
  }
  std::size_t start_of_section(std::size_t r) const {
    const auto length = static_cast<std::size_t>(m.section);
    return length == 0 ? 0 : r / length * length;
  }
  // Row of the observation that regressor k of row r takes from the forecasts, n when it takes its
  // own value.
  std::size_t forecast_row(std::size_t k, std::size_t r) const {
    if (!m.dynamic || m.lag.empty() || m.lag[k] <= 0) return n;
    const double wanted = obs_[r] - m.lag[k];
    if (wanted <= m.ESTEND) return n;
    for (std::size_t back = r; back-- > start_of_section(r);) {
      if (obs_[back] == wanted) return back;
      if (obs_[back] < wanted) break;
    }
    return n;
  }
  bool behind_estimate(std::size_t r) const { return obs_[r] > m.ESTEND; }
  // How far row r lies behind the row before it.
  double distance(std::size_t r) const {
    if (!m.gaps || r == 0) return 1.0;
    if (m.gap_obs > 0) return obs_[r] == m.gap_obs ? m.gap_steps : 1.0;
    return obs_[r] - obs_[r - 1];
  }

  // Weights of the disturbances in the value that lies so many steps behind them, and the sums of
  // their squares: ARMA errors first, then what lags of the dependent variable make of them.
  void weights() {
    const std::size_t terms = cumulated.size();
    double sum = 0.0;
    for (std::size_t i = 0; i < terms; ++i) {
      double psi = i == 0 ? 1.0 : 0.0;
      if (i > 0 && i <= m.theta.size()) psi += m.theta[i - 1];
      for (std::size_t j = 1; j <= std::min(i, m.rho.size()); ++j)
        psi += m.rho[j - 1] * impulse[i - j];
      impulse[i] = psi;
      if (m.dynamic) {
        for (std::size_t k = 0; k < m.lag.size(); ++k) {
          const auto lag = static_cast<std::size_t>(std::max(m.lag[k], 0));
          if (lag > 0 && lag <= i) psi += m.b[k] * weight[i - lag];
        }
      }
      weight[i] = psi;
      sum += psi * psi;
      cumulated[i] = sum;
    }
  }

  // Predictors of orders 0 to p-1 of the errors with coefficients rho, by going down from order p
  // (Levinson 1947), and the deviations of what they leave in units of the disturbance.
  void starters() {
    const std::size_t p = m.rho.size();
    double variance = 1.0;
    for (std::size_t order = p; order-- > 0;) {
      const auto above = [&](std::size_t j) {  // of order+1, j from 1
        return order + 1 == p ? m.rho[j - 1] : starter[(order + 1) * p + j - 1];
      };
      const double last = above(order + 1);
      const double left = 1.0 - last * last;
      for (std::size_t j = 1; j <= order; ++j) {
        starter[order * p + j - 1] = (above(j) + last * above(order + 1 - j)) / left;
      }
      variance /= left;
      starter_root[order] = left > 0.0 && variance > 0.0 ? std::sqrt(variance) : 0.0;
    }
  }
  // Disturbance of row r among the first of the estimate, for a series of errors error(row).
  template <class F>
  double first_disturbance(std::size_t r, F&& error) const {
    if (!(starter_root[r] > 0.0)) return error(r);
    double left = error(r);
    for (std::size_t j = 1; j <= r; ++j) left -= starter[r * m.rho.size() + j - 1] * error(r - j);
    return left / starter_root[r];
  }

  // What the errors before say of the error of row r.
  template <class F, class G>
  double expected(std::size_t r, F&& error, G&& disturbance) const {
    const std::size_t s = start_of_section(r);
    const double distant = distance(r);
    if (distant > 1.0) return std::pow(m.rho[0], distant) * error(r - 1);
    double sum = 0.0;
    for (std::size_t j = 1; j <= m.rho.size() && r >= s + j; ++j)
      sum += m.rho[j - 1] * error(r - j);
    for (std::size_t j = 1; j <= m.theta.size() && r >= s + j; ++j) {
      sum += m.theta[j - 1] * disturbance(r - j);
    }
    return sum;
  }

  // Behind a gap the estimate takes `share` of the disturbance, which brings its variance down to
  // that of the others: the part of the error that its fitted value holds.
  static double fitted_behind_gap(double error, double expected, double share) {
    return error - (error - expected) * share;
  }

  // Derivatives of row r; `known`: its error is that of the data; share: as above, 1 no gap.
  void derive(std::size_t r, bool known, bool fitted, double share, const Link::Value& value_at) {
    const std::span<double> Dr = of(D, r), Er = of(E, r), Ur = of(U, r);
    for (std::size_t k = 0; k < K; ++k) {
      const std::size_t from = forecast_row(k, r);
      g[k] = from == n ? value(k, r) : forecasts[from];
    }
    for (std::size_t i = 0; i < K; ++i) {
      const std::size_t from = forecast_row(i, r);
      if (from == n) continue;
      const std::span<const double> before = of(D, from);
      for (std::size_t k = 0; k < K; ++k) d[k] = m.b[i] * before[k];
      for (std::size_t k = 0; k < K; ++k) g[k] += d[k];
    }
    for (std::size_t k = 0; k < K; ++k) {
      Er[k] = -g[k];
      double hat = 0.0;
      if (has_errors()) {
        const auto error = [&](std::size_t s) { return of(E, s)[k]; };
        hat = fitted ? Er[k] - first_disturbance(r, error)
                     : expected(r, error, [&](std::size_t s) { return of(U, s)[k]; });
        if (share != 1.0) hat = fitted_behind_gap(Er[k], hat, share);
      }
      if (!known) Er[k] = hat;
      Ur[k] = obs_[r] < m.first_u ? 0.0 : Er[k] - hat;
      Dr[k] = value_at.slope * (g[k] + hat);
      d[k] = Dr[k];
    }
    if (total > K) d[K] = value_at.by_h;
  }

  std::span<const double> forecasts;

 private:
  std::span<double> take(std::size_t count) {
    const std::span<double> part = work_.first(count);
    work_ = work_.subspan(count);
    return part;
  }
  std::span<const double* const> x_;
  std::span<const double> obs_;
  std::span<double> work_;
};

}  // namespace

double packed_form(std::span<const double> C, std::span<const double> d) {
  double sum = 0.0;
  const double* c = C.data();
  for (std::size_t i = 0; i < d.size(); ++i) {
    double row = 0.0;
    for (std::size_t j = 0; j < i; ++j) row += c[j] * d[j];
    sum += d[i] * (2.0 * row + c[i] * d[i]);
    c += i + 1;
  }
  return sum;
}

Link::Value Link::at(double z) const {
  Value r;
  switch (kind) {
    case LinkKind::identity:
      r.mean = z;
      break;
    case LinkKind::box: {
      // Box and Cox (1964): z = (y^lambda - 1)/lambda, the logarithm for lambda = 0.
      if (lambda == 0.0) {
        r.mean = r.slope = std::exp(z);
      } else {
        const double base = lambda * z + 1.0;
        if (!(base > 0.0)) return {.mean = NONE, .slope = NONE, .by_h = 0.0, .defined = false};
        r.mean = std::pow(base, 1.0 / lambda);
        r.slope = r.mean / base;
      }
      r.defined = std::isfinite(r.mean);
      break;
    }
    case LinkKind::probit:
      r.mean = low + share * normal_cdf(z);
      r.slope = share * std::exp(-z * z / 2.0) / ROOT_2_PI;
      break;
    case LinkKind::logit: {
      constexpr double limit_of_exp = 709.0;
      const double F = 1.0 / (1.0 + std::exp(-std::clamp(z, -limit_of_exp, limit_of_exp)));
      r.mean = low + share * F;
      r.slope = share * F * (1.0 - F);
      break;
    }
    case LinkKind::tobit: {
      // E(y) of a variable censored at `limit`; z is x'b/sigma (McDonald and Moffitt 1980).
      const double w = side * (z - h * limit);
      const double F = normal_cdf(w), f = std::exp(-w * w / 2.0) / ROOT_2_PI;
      const double beyond = F * z + side * f;
      r.mean = limit * normal_cdf(-w) + beyond / h;
      r.slope = F / h;
      r.by_h = -beyond / (h * h);
      break;
    }
  }
  return r;
}

std::int64_t YHAT_words(int K, std::int64_t rows, const YhatModel& m, bool variance) {
  const auto p = std::ssize(m.rho);
  const std::int64_t errors = m.rho.empty() && m.theta.empty() ? 0 : 2 * rows;
  const std::int64_t of_variance =
      3 * (rows + MORE_WEIGHTS + 1) + std::int64_t{2} * K + 1 + 3 * window(m) * K;
  return errors + p * p + p + (variance ? of_variance : 0);
}

YhatResult YHAT(std::span<const double* const> x, std::span<const double> obs,
                std::span<const double> y, const YhatModel& model, const YhatVariance& variance,
                std::span<double> yhat, std::span<double> index, std::span<double> var,
                std::span<double> work) {
  Walk w(x, obs, model, variance, !var.empty(), work);
  w.forecasts = yhat;
  const std::size_t p = model.rho.size();
  YhatResult result;
  result.whole = std::min(std::ssize(model.rho), std::ssize(obs));
  if (!var.empty()) w.weights();
  if (model.fitted_start) w.starters();
  std::size_t since = 0;  // rows since first_u
  std::size_t steps = 1;  // from the last row with a known error
  for (std::size_t r = 0; r < w.n; ++r) {
    if (r % 1024 == 0 && stop_requested()) {
      result.IFAULT = 2;
      return result;
    }
    const std::size_t place = r - w.start_of_section(r);
    steps = place == 0 ? 1 : steps + static_cast<std::size_t>(w.distance(r)) - 1;
    // 1. The index.
    double z = model.shift.empty() ? 0.0 : model.shift[r];
    bool missing = false;
    for (std::size_t k = 0; k < w.K; ++k) {
      const std::size_t from = w.forecast_row(k, r);
      const double xk = from < w.n ? yhat[from] : w.value(k, r);
      missing = missing || xk == model.XMISS || xk != xk;
      z += model.b[k] * xk;
    }
    // 2. The error that is to be expected, and the one that the data show.
    const bool fitted = model.fitted_start && r < p && y[r] == y[r];
    const bool behind = (model.iterate || model.dynamic) && w.behind_estimate(r);
    const bool known = y[r] == y[r] && !missing && !behind;
    double hat = 0.0, share = 1.0;
    if (w.has_errors()) {
      w.e[r] = y[r] - z;
      const auto error = [&](std::size_t s) { return w.e[s]; };
      hat = fitted ? w.e[r] - w.first_disturbance(r, error)
                   : w.expected(r, error, [&](std::size_t s) { return w.u[s]; });
      if (model.gaps && known && steps > 1 && obs[r] <= model.fitted_end) {
        share = 1.0 / std::sqrt(steps_variance(model.rho[0], static_cast<double>(steps)));
        hat = Walk::fitted_behind_gap(w.e[r], hat, share);
      }
    }
    if (obs[r] >= model.first_u && !model.before.empty()) {
      for (std::size_t j = since + 1; j <= model.theta.size(); ++j) {
        if (j - since <= model.before.size()) {
          hat += model.theta[j - 1] * model.before[j - since - 1];
        }
      }
      ++since;
    }
    if (w.has_errors()) {
      w.e[r] = known ? y[r] - z : hat;
      w.u[r] = obs[r] < model.first_u ? 0.0 : w.e[r] - hat;
    }
    // 3. The forecast.
    const Link::Value value = model.link.at(z + hat);
    index[r] = missing ? NONE : z;
    yhat[r] = missing ? NONE : value.mean;
    if (!missing && !value.defined && result.IFAULT == 0) {
      result.IFAULT = 1;
      result.row = static_cast<std::int64_t>(r);
    }
    // 4. Its variance.
    if (!var.empty()) {
      if (!variance.C.empty()) w.derive(r, known, fitted, share, value);
      // A start without a past has the variance that the errors have on the whole.
      const std::size_t h = place < p ? w.cumulated.size() : std::min(steps, w.cumulated.size());
      double sum = value.slope * value.slope * variance.sigma2 * w.cumulated[h - 1];
      if (!variance.C.empty()) sum += packed_form(variance.C, w.d);
      if (variance.rho_rows > 0.0 && p == 1 && place > 0) {
        const auto s = static_cast<double>(steps);
        const double by_rho = s * std::pow(model.rho[0], s - 1.0);
        sum += by_rho * by_rho * variance.sigma2 / variance.rho_rows;
      }
      var[r] = missing ? NONE : sum;
    }
    steps = known ? 1 : steps + 1;
  }
  return result;
}

}  // namespace korvel
