// What MLE needs before its first step: the range of the dependent variable, moments, start values.

#include <algorithm>
#include <cmath>

#include "engine/output.h"
#include "expr/kernels/cholesky.h"
#include "expr/kernels/columns.h"
#include "expr/kernels/gsreg.h"
#include "expr/kernels/packed.h"
#include "expr/vector_functions.h"
#include "nonlinear/nlmle_parts.h"
#include "regress/ols_parts.h"
#include "stats/probability.h"

namespace korvel {
namespace {

constexpr double PI = 3.14159265358979323846;
constexpr double EULER = 0.57721566490153286061;
constexpr double POOR_FIT = 0.1;       // R-square of the start below which EPOISSON warns
constexpr double ZERO_COUNT = 0.5;     // stands for a count of 0 under the logarithm
constexpr int KNOWN_FACTORIALS = 256;  // log y! of small counts is looked up

bool in_range(MleRange range, double y) {
  switch (range) {
    case MleRange::positive:
      return y > 0.0;
    case MleRange::zero_up:
      return y >= 0.0;
    case MleRange::counts:
      return y >= 0.0 && y == std::floor(y);
    case MleRange::unit:
      return y > 0.0 && y < 1.0;
    case MleRange::real:
      break;
  }
  return true;
}

// Least squares of m.fitted on the columns: coefficients in b, the residuals in m.residual.
struct StartFit {
  double SSE = 0.0, SST = 0.0;
};
bool fit_target(Workspace ws, MleModel& m, StartFit& fit) {
  const std::span<const double> target = m.fitted;
  const int K = m.K();
  const auto n = static_cast<std::size_t>(m.rows.rows);
  std::span<double> work = m.work;
  const auto take = [&](std::size_t count) {
    const std::span<double> part = work.first(count);
    work = work.subspan(count);
    return part;
  };
  const std::span<double> factor = take(packed_words(K + 1));
  auto** const pointers =
      reinterpret_cast<const double**>(take(static_cast<std::size_t>(K) + 1).data());
  std::ranges::copy(m.rows.column, pointers);
  pointers[K] = target.data();
  const ColumnList x{
      .column = {pointers, static_cast<std::size_t>(K) + 1}, .rows = m.rows.rows, .root = nullptr};
  const int IFAULT = GSREG(x, work, factor, K + 1, {}, {});
  if (IFAULT == FEWER_ROWS) {
    fail<"(' ...ERROR..FEWER OBSERVATIONS THAN VARIABLES:', I10)">(m.rows.rows);
    return false;
  }
  if (IFAULT != 0 && std::abs(IFAULT) <= K) {
    MATINV(IFAULT, "MLE STARTING VALUES");
    warn<"(' ...WARNING..VARIABLE ', A, ' IS A LINEAR COMBINATION OF THOSE BEFORE IT')">(
        NAME(ws, m.list[static_cast<std::size_t>(std::abs(IFAULT)) - 1].var));
    return false;
  }
  gs_coefficients(factor, K + 1, m.b.first(static_cast<std::size_t>(K)));
  double mean = 0.0;
  for (const double v : target) mean += v;
  mean /= static_cast<double>(n);
  fit.SST = 0.0;
  for (const double v : target) fit.SST += (v - mean) * (v - mean);
  gs_residuals(x, m.b.first(static_cast<std::size_t>(K)), m.residual);
  fit.SSE = 0.0;
  for (const double e : m.residual) fit.SSE += e * e;
  return true;
}

// Adds `amount` to the constant; a model without one starts where least squares left it.
void move_index(MleModel& m, double amount) {
  for (int k = 0; k < m.K(); ++k) {
    if (m.rows.column[static_cast<std::size_t>(k)] != nullptr) continue;
    m.b[static_cast<std::size_t>(k)] += amount;
    return;
  }
}

double log_factorial(double y) { return log_gamma(y + 1.0); }

// Share q of the sorted values lies below the result.
double quantile(std::span<const double> sorted, double q) {
  const double place = q * static_cast<double>(sorted.size()) - 0.5;
  const auto last = static_cast<double>(sorted.size() - 1);
  const double low = std::clamp(std::floor(place), 0.0, last);
  const double high = std::min(low + 1.0, last);
  const double share = std::clamp(place - low, 0.0, 1.0);
  return (1.0 - share) * sorted[static_cast<std::size_t>(low)] +
         share * sorted[static_cast<std::size_t>(high)];
}

// Stability and scale from quantiles of the residuals: McCulloch (1986), "Simple consistent
// estimators of stable distribution parameters", tables III and V for symmetric laws.
void stable_start(MleModel& m, std::span<double> residual) {
  constexpr double RATIO[] = {2.439, 2.5, 2.6, 2.7, 2.8, 3.0, 3.2, 3.5, 4.0, 5.0, 6.0, 8.0, 10.0};
  constexpr double STABILITY[] = {2.000, 1.916, 1.808, 1.729, 1.664, 1.563, 1.484,
                                  1.391, 1.279, 1.128, 1.029, 0.896, 0.818};
  constexpr double SPREAD[] = {2.588, 2.337, 2.189, 2.098, 2.040, 2.000, 1.980, 1.965,
                               1.955, 1.946, 1.939, 1.933, 1.927, 1.921, 1.914, 1.908};
  std::ranges::sort(residual);
  const double quarters = quantile(residual, 0.75) - quantile(residual, 0.25);
  const double tails = quantile(residual, 0.95) - quantile(residual, 0.05);
  double A = 1.5;
  if (quarters > 0.0) {
    const double r = std::clamp(tails / quarters, RATIO[0], RATIO[12]);
    std::size_t i = 1;
    while (i < 12 && r > RATIO[i]) ++i;
    const double share = (r - RATIO[i - 1]) / (RATIO[i] - RATIO[i - 1]);
    A = (1.0 - share) * STABILITY[i - 1] + share * STABILITY[i];
  }
  // Off both ends of the range, so that the first steps stay inside.
  A = std::clamp(A, 0.95, 1.9);
  const double place = (A - 0.5) * 10.0;  // SPREAD begins at 0.5
  const auto at = std::min(static_cast<std::size_t>(place), std::size_t{14});
  const double share = place - static_cast<double>(at);
  const double spread = (1.0 - share) * SPREAD[at] + share * SPREAD[at + 1];
  m.b[static_cast<std::size_t>(m.K())] = A;
  m.b[static_cast<std::size_t>(m.K()) + 1] = quarters > 0.0 ? quarters / spread : 1.0;
  move_index(m, quantile(residual, 0.5));
}

// Families on the whole line: from the residuals of least squares.
void line_start(MleModel& m, std::span<double> residual, double SSE) {
  const auto n = static_cast<double>(m.rows.rows);
  const std::span<double> shape = m.b.last(static_cast<std::size_t>(m.family->shapes));
  const double s = SSE > 0.0 ? std::sqrt(SSE / n) : 1.0;
  switch (m.family->type) {
    case MleType::EDGE: {
      double e3 = 0.0, e4 = 0.0;
      for (const double e : residual) {
        const double w = e / s;
        e3 += w * w * w;
        e4 += w * w * w * w;
      }
      shape[0] = s;
      shape[1] = e3 / n;
      shape[2] = e4 / n - 3.0;
      // Moments that would make the density of a row negative come nearer to the normal ones.
      MleLikelihood likelihood(*m.family, m.rows, m.likelihood_work);
      for (int i = 0; i < 40; ++i) {
        mle_to_units(*m.family, m.rows, m.b, m.scaled);
        if (likelihood.evaluate(m.scaled, {}).good) return;
        shape[1] *= 0.5;
        shape[2] *= 0.5;
      }
      return;
    }
    case MleType::STABLE:
      stable_start(m, residual);
      return;
    default:
      break;
  }
  shape[0] = s * std::sqrt(6.0) / PI;
  const double shift = EULER * shape[0];
  move_index(m, m.family->type == MleType::EXTREMEV ? -shift : shift);
}

// P and Q of a beta variable with the mean and the variance of y.
void beta_start(MleModel& m, std::span<double> target) {
  const double mean = m.means.back();
  const double variance = m.squares.back() / m.N;
  const double bound = mean * (1.0 - mean);
  const double F = variance > 0.0 && variance < bound ? bound / variance - 1.0 : 2.0;
  const MleType type = m.family->type;
  m.b.back() = type == MleType::MBETA ? F : F * (1.0 - mean);
  const double P = F * mean;
  for (std::size_t t = 0; t < target.size(); ++t) {
    target[t] = type == MleType::BETA    ? P
                : type == MleType::EBETA ? std::log(P)
                                         : m.log_y[t] - m.log_rest[t];
  }
}

}  // namespace

std::int64_t mle_start_words(int K, std::int64_t rows) {
  return static_cast<std::int64_t>(packed_words(K + 1)) + K + 1 + GSREG_words(K + 1, rows);
}

MleIndexes mle_indexes(const MleModel& m, std::size_t t) {
  MleIndexes r{0.0, 0.0};
  const std::size_t K = m.rows.column.size();
  for (std::size_t k = 0; k < K; ++k) {
    const double x = m.rows.column[k] == nullptr ? 1.0 : m.rows.column[k][t];
    r.z += m.b[k] * x;
    if (m.family->both) r.z2 += m.b[K + k] * x;
  }
  return r;
}

bool settle_dependent(Workspace ws, MleModel& m) {
  const MleFamily& family = *m.family;
  double factorials[KNOWN_FACTORIALS];
  if (family.count()) {
    for (int i = 0; i < KNOWN_FACTORIALS; ++i) factorials[i] = log_factorial(i);
  }
  double sum = 0.0;
  KeptRows kept(ws);
  for (std::size_t t = 0; t < static_cast<std::size_t>(m.rows.rows); ++t) {
    kept.next();
    const double y = m.rows.y[t];
    if (!std::isfinite(y)) return refuse_values(ws, m.list.back().var);
    if (!in_range(family.range, y)) {
      fail<"(' ...ERROR..DEP VAR IN OB. NO. ', I0, ' OUT OF RANGE ')">(kept.obs);
      return false;
    }
    sum += m.rows.weight_at(t) * y;
    if (family.count()) {
      m.log_y[t] = y < KNOWN_FACTORIALS ? factorials[static_cast<int>(y)] : log_factorial(y);
    } else if (family.range == MleRange::positive || family.beta()) {
      m.log_y[t] = LOG(y);
    }
    if (family.beta()) m.log_rest[t] = std::log1p(-y);
  }
  if ((family.count() || family.range == MleRange::zero_up) && !(sum > 0.0)) {
    fail(" ...ERROR..DEPENDENT VARIABLE IS 0 IN ALL OBSERVATIONS");
    return false;
  }
  for (int k = 0; k < m.K(); ++k) {
    const double* const x = m.rows.column[static_cast<std::size_t>(k)];
    if (x == nullptr) continue;
    if (!std::all_of(x, x + m.rows.rows, [](double v) { return std::isfinite(v); })) {
      return refuse_values(ws, m.list[static_cast<std::size_t>(k)].var);
    }
  }
  return true;
}

void settle_moments(MleModel& m) {
  std::ranges::fill(m.means, 0.0);
  std::ranges::fill(m.squares, 0.0);
  const auto n = static_cast<std::size_t>(m.rows.rows);
  double W = 0.0;
  for (std::size_t t = 0; t < n; ++t) W += m.rows.weight_at(t);
  const auto moments = [&](const double* x, double& mean, double& square) {
    double sum = 0.0;
    for (std::size_t t = 0; t < n; ++t) sum += m.rows.weight_at(t) * x[t];
    mean = sum / W;
    for (std::size_t t = 0; t < n; ++t) {
      square += m.rows.weight_at(t) * (x[t] - mean) * (x[t] - mean);
    }
  };
  for (std::size_t k = 0; k < m.rows.column.size(); ++k) {
    if (m.rows.column[k] == nullptr)
      m.means[k] = 1.0;
    else
      moments(m.rows.column[k], m.means[k], m.squares[k]);
  }
  moments(m.rows.y, m.means.back(), m.squares.back());
}

bool mle_start(Workspace ws, MleModel& m) {
  const MleFamily& family = *m.family;
  const std::span<double> target = m.fitted;
  const auto n = static_cast<std::size_t>(m.rows.rows);
  std::ranges::fill(m.b, 0.0);
  // 1. What is regressed on the columns.
  double lowest = 0.0;  // of the positive values: what stands for a 0 under the logarithm
  if (family.range == MleRange::zero_up) {
    lowest = m.means.back();
    for (std::size_t t = 0; t < n; ++t) {
      if (m.rows.y[t] > 0.0) lowest = std::min(lowest, m.rows.y[t]);
    }
  }
  if (family.beta()) beta_start(m, target);
  for (std::size_t t = 0; t < n && !family.beta(); ++t) {
    const double y = m.rows.y[t];
    if (family.range == MleRange::positive)
      target[t] = m.log_y[t];
    else if (family.range == MleRange::zero_up)
      target[t] = LOG(std::max(y, 0.5 * lowest));
    else if (family.count())
      target[t] = LOG(std::max(y, ZERO_COUNT));
    else
      target[t] = y;
  }
  const double last = m.b.back();
  StartFit fit;
  if (!fit_target(ws, m, fit)) return false;
  // 2. What follows for the other coefficients.
  if (family.beta()) {
    m.b.back() = last;
  } else if (family.type == MleType::POISSON) {
    std::ranges::fill(m.b, 0.0);
    move_index(m, std::log(m.means.back()));
  } else if (family.type == MleType::EPOISSON) {
    const double R2 = fit.SST > 0.0 ? 1.0 - fit.SSE / fit.SST : 0.0;
    if (R2 < POOR_FIT) warn(" ...WARNING..RESULTS MAY BE UNRELIABLE");
  } else {
    for (double& shape : m.b.last(static_cast<std::size_t>(family.shapes))) shape = 1.0;
    if (family.range == MleRange::real) line_start(m, m.residual, fit.SSE);
  }
  return true;
}

}  // namespace korvel
