// Start values of HETERO: least squares for the mean, regressions of its residuals for the
// variance.

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "engine/output.h"
#include "expr/kernels/lsreg.h"
#include "expr/kernels/packed.h"
#include "nonlinear/nlhet.h"

namespace korvel {
namespace {

constexpr double LEAST_SLOPE = 0.05;                    // in place of a negative one
constexpr double LARGEST_SUM = 0.95;                    // of a and f
constexpr double GARCH_SHARE = 0.5;                     // sum of f
constexpr double LOG_CHI2_MEAN = 1.2703628454614782;    // minus the mean of log chi-square(1)
constexpr double ROOT_HALF_PI = 1.2533141373155002512;  // sigma over the mean of |e|

bool singular() {
  fail(" ...ERROR..SINGULAR MATRIX IN ARCH STARTING VALUES");
  return false;
}

// Takes words off the front of a room.
std::span<double> take(std::span<double>& room, std::size_t n) {
  const std::span<double> taken = room.first(n);
  room = room.subspan(n);
  return taken;
}

std::int64_t regression_words(int columns, std::int64_t rows) {
  const auto packed = static_cast<std::int64_t>(packed_words(columns));
  return LSMOM_words(columns, rows) + 4 * packed + std::int64_t{4} * columns;
}

// Least squares of the last column on the others, of which the last may be the constant (null).
// Means and packed moments are left at the front of the room.
struct Regression {
  std::span<double> mean, cross, coef;
  double SSE = 0.0, SWT = 0.0;
  int fault = 0;  // the regressor (from 1) at which it failed, when one is known
  bool good = false;
};
Regression regress(std::span<const double* const> column, std::int64_t rows, const double* weight,
                   std::span<double> coef, std::span<double> room) {
  const int columns = static_cast<int>(column.size());
  const auto C = static_cast<std::size_t>(columns);
  Regression r;
  r.mean = take(room, C);
  r.cross = take(room, packed_words(columns));
  const std::span<double> inverse = take(room, packed_words(columns));
  const std::span<double> work = take(room, packed_words(columns) + C);
  MomentRows data;
  data.x = {column, rows, nullptr, {}};
  data.weight = weight;
  r.SWT = LSMOM(data, room, r.mean, r.cross);
  r.coef = coef;
  if (columns < 2) {  // no regressors
    r.SSE = r.cross[0] + r.SWT * r.mean[0] * r.mean[0];
    r.good = true;
    return r;
  }
  const MomentView view{
      .mean = r.mean, .cross = r.cross, .SWT = r.SWT, .constant = column[C - 2] == nullptr};
  const NormalFit fit =
      LSREG(view, 0.0, false, work, coef, inverse.first(packed_words(columns - 1)));
  r.SSE = fit.SSE;
  r.fault = std::abs(fit.IFAULT);
  r.good = fit.IFAULT == 0 && std::ranges::all_of(coef, [](double v) { return std::isfinite(v); });
  return r;
}

// ... and the column that made it so; `first` is the place of the first regressor in `loaded`.
bool singular(Workspace ws, const HetModel& m, int first, const Regression& fit) {
  const auto at = static_cast<std::size_t>(first + fit.fault) - 1;
  singular();
  if (fit.fault > 0 && at < m.loaded.size()) {
    warn<"(' ...WARNING..VARIABLE ', A, ' IS A LINEAR COMBINATION OF OTHERS')">(
        NAME(ws, m.loaded[at].var));
  }
  return false;
}

// Squares of the residuals in f (rows).
void squares_of(std::span<const double> e, std::span<double> f) {
  for (std::size_t t = 0; t < e.size(); ++t) f[t] = e[t] * e[t];
}

// a: regression of e^2 on its lags; then f, and a0 for an unconditional variance of SSE/N.
bool arch_start(HetModel& m, std::span<double> v) {
  const HetRows& r = m.rows;
  std::ranges::fill(v, 0.0);
  const auto p = static_cast<std::size_t>(r.p), q = static_cast<std::size_t>(r.q);
  const std::span<double> a = v.subspan(1 + static_cast<std::size_t>(r.M), p);
  const std::span<double> f = v.subspan(1 + static_cast<std::size_t>(r.M) + p, q);
  if (p > 0) {
    if (r.rows <= 2 * r.p + 1) return singular();
    std::span<double> room = m.room;
    const std::span<double> squares = take(room, static_cast<std::size_t>(r.rows));
    squares_of(m.e, squares);
    std::span<double> coef = take(room, p + 1);
    auto* const places = reinterpret_cast<const double**>(take(room, p + 2).data());
    for (std::size_t i = 0; i < p; ++i) places[i] = squares.data() + (p - 1 - i);
    places[p] = nullptr;
    places[p + 1] = squares.data() + p;
    const Regression fit = regress(std::span(places, p + 2), r.rows - r.p, nullptr, coef, room);
    if (!fit.good) return singular();
    for (std::size_t i = 0; i < p; ++i) a[i] = coef[i] < 0.0 ? LEAST_SLOPE : coef[i];
  }
  for (double& fj : f) fj = GARCH_SHARE / r.q;
  double sum = 0.0;
  for (const double c : v.subspan(1 + static_cast<std::size_t>(r.M))) sum += c;
  if (sum > LARGEST_SUM) {
    for (double& c : v.subspan(1 + static_cast<std::size_t>(r.M))) c *= LARGEST_SUM / sum;
    sum = LARGEST_SUM;
  }
  v[0] = r.presample * (1.0 - sum);
  return true;
}

// Fitted values z'a of all rows are above 0.
bool all_positive(const HetRows& r, std::span<const double> a) {
  const int wide = HetRows::padded(r.M);
  for (std::int64_t t = 0; t < r.rows; ++t) {
    double s = 0.0;
    for (int k = 0; k < r.M; ++k) s += a[static_cast<std::size_t>(k)] * r.Z[t * wide + k];
    if (!(s > 0.0)) return false;
  }
  return true;
}

// Regression of f(e) on z: e^2, |e| or log e^2. Where the first two don't stay positive, the
// constant alone.
bool form_start(Workspace ws, HetModel& m, std::span<double> a) {
  const HetRows& r = m.rows;
  std::span<double> room = m.room;
  const std::span<double> target = take(room, static_cast<std::size_t>(r.rows));
  for (std::size_t t = 0; t < target.size(); ++t) {
    const double e2 = m.e[t] * m.e[t];
    if (r.form == HetForm::VARLIN)
      target[t] = e2;
    else if (r.form == HetForm::STDLIN)
      target[t] = ROOT_HALF_PI * std::fabs(m.e[t]);
    else  // a residual of 0 counts as a very small one
      target[t] = std::log(std::max(e2, 1e-12 * r.presample)) + LOG_CHI2_MEAN;
  }
  const auto M = static_cast<std::size_t>(r.M);
  auto* const places = reinterpret_cast<const double**>(take(room, M + 1).data());
  std::copy_n(m.column.begin() + m.regressors, M, places);
  places[M] = target.data();
  const Regression fit = regress(std::span(places, M + 1), r.rows, r.weight, a, room);
  if (!fit.good) return singular(ws, m, m.regressors, fit);
  if (r.form == HetForm::MULT || all_positive(r, a)) return true;
  if (places[M - 1] != nullptr) return true;  // the first evaluation tells
  std::ranges::fill(a, 0.0);
  a.back() = r.form == HetForm::VARLIN ? r.presample : std::sqrt(r.presample);
  return true;
}

// a^2 = sum e^2 / sum (x'b)^2.
void depvar_start(HetModel& m, std::span<double> a) {
  double fits = 0.0, squares = 0.0;
  for (std::size_t t = 0; t < m.e.size(); ++t) {
    const double fit = m.rows.y[t] - m.e[t];
    fits += fit * fit;
    squares += m.e[t] * m.e[t];
  }
  a[0] = fits > 0.0 ? std::sqrt(squares / fits) : 1.0;
}

}  // namespace

std::int64_t het_start_words(const HetModel& m) {
  const HetRows& r = m.rows;
  const int widest = std::max({m.regressors, r.M, r.p + 1}) + 1;
  return r.rows + std::int64_t{2} * widest + 2 + regression_words(widest, r.rows);
}

bool het_least_squares(Workspace ws, HetModel& m) {
  const HetRows& r = m.rows;
  const auto K = static_cast<std::size_t>(r.K);
  std::span<double> room = m.room;
  auto* const places = reinterpret_cast<const double**>(take(room, K + 1).data());
  std::copy_n(m.column.begin(), K, places);
  places[K] = r.y;
  const Regression fit = regress(std::span(places, K + 1), r.rows, r.weight, m.b.first(K), room);
  if (!fit.good) return singular(ws, m, 0, fit);
  std::ranges::fill(m.means, 0.0);
  std::ranges::fill(m.squares, 0.0);
  for (std::size_t k = 0; k <= K; ++k) {
    const std::size_t to = k < K ? k : m.means.size() - 1;
    m.means[to] = fit.mean[k];
    m.squares[to] = fit.cross[packed(static_cast<int>(k) + 1, static_cast<int>(k) + 1)];
  }
  const int wide = HetRows::padded(r.K);
  double SSE = 0.0;
  for (std::size_t t = 0; t < m.e.size(); ++t) {
    const double* const x = r.X + static_cast<std::ptrdiff_t>(t) * wide;
    double e = r.y[t];
    for (std::size_t k = 0; k < K; ++k) e -= m.b[k] * x[k];
    m.e[t] = e;
    SSE += (r.weight == nullptr ? 1.0 : r.weight[t]) * e * e;
  }
  m.SSE0 = SSE;
  m.rows.presample = SSE / m.N;
  return true;
}

bool het_start(Workspace ws, HetModel& m) {
  const auto first = static_cast<std::size_t>(m.rows.mean_terms());
  if (m.rows.arch_m()) m.b[first - 1] = 0.0;
  const std::span<double> v = m.b.subspan(first);
  switch (m.rows.form) {
    case HetForm::ARCH:
      return arch_start(m, v);
    case HetForm::DEPVAR:
      depvar_start(m, v);
      return true;
    default:
      return form_start(ws, m, v);
  }
}

}  // namespace korvel
