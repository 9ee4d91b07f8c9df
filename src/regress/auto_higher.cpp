// AUT2: errors of higher order and moving averages. Gauss-Newton on the sum of squares in b and the
// coefficients of the errors (Pagan 1974): given the latter, b comes from a linear fit of filtered
// rows; the step of the latter from a fit of its residuals on the filtered regressors and the
// derivatives of the errors.

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>

#include "engine/output.h"
#include "expr/kernels/cholesky.h"
#include "expr/kernels/gsreg.h"
#include "expr/kernels/packed.h"
#include "platform/parallel.h"
#include "regress/auto.h"

namespace korvel {
namespace {

constexpr ResultProfile AUT2_PROFILE{.word = "AUTO", .autocorrelated = true};
constexpr int HALVINGS = 20;

struct HigherOrder {
  Workspace ws;
  AutoRoom& room;
  int K = 0;
  int before = 0;  // errors before the sample that are estimated
  double N = 0.0;
  ErrorModel model{};        // its coefficients are views into `coef`
  std::span<double> coef{};  // r, then m
  std::span<double> trial{}, kept{};
  std::span<double> above{}, below{}, work{};  // p x p or q x q: factors and their differences
  std::span<double> errors_before{};
  std::span<const double*> column{};  // of the fits: x*, derivatives, then y* or u
  std::span<double> factor{}, inverse{}, solution{};
  double jacobian = 0.0;
  double objective = 0.0;

  int derivatives() const { return static_cast<int>(coef.size()); }
  const double* extra(int k) const { return room.star_column[static_cast<std::size_t>(K + 1 + k)]; }
  std::span<double> extra_words(int k) const {
    const auto rows = static_cast<std::size_t>(room.N());
    return room.star.subspan(static_cast<std::size_t>(K + 1 + k) * rows, rows);
  }

  bool admissible(std::span<const double> c) const;
  void shrink_start() const;
  bool fit(std::span<const double> c);
  bool fit_with_errors_before() const;
  void make_derivatives(bool likelihood);
  int joint(bool with_regressors, int count, const double* last) const;
  bool step(std::span<double> delta);
};

// Stationary where the first rows depend on it, invertible. Leaves the factor of the first rows.
bool HigherOrder::admissible(std::span<const double> c) const {
  const auto p = static_cast<std::size_t>(model.p());
  if (model.exact()) return first_rows_factor(c.first(p), model.first, work);
  const std::span<const double> m = c.subspan(p);
  if (m.empty()) return true;
  const std::span<double> negative = solution.first(m.size());
  std::ranges::transform(m, negative.begin(), [](double v) { return -v; });
  return first_rows_factor(negative, above, work);
}

// A start outside the stable range is told; its roots are drawn in.
void HigherOrder::shrink_start() const {
  bool told = false;
  while (!admissible(coef)) {
    warn_unstable(told);
    const auto p = static_cast<std::size_t>(model.p());
    for (std::size_t j = 0; j < coef.size(); ++j) {
      coef[j] *= std::pow(0.95, static_cast<double>(j < p ? j + 1 : j - p + 1));
    }
  }
}

// b and the sum of squares at the coefficients c, which become `coef`.
bool HigherOrder::fit(std::span<const double> c) {
  if (c.data() != coef.data()) std::ranges::copy(c, coef.begin());
  jacobian = 0.0;
  if (model.exact()) {
    first_rows_factor(model.r, model.first, work);
    const auto p = static_cast<std::size_t>(model.p());
    for (std::size_t i = 0; i < p; ++i) jacobian += std::log(model.first[i * p + i]);
  }
  const auto rows = static_cast<std::size_t>(room.N());
  const auto one = [&](int k) {
    const auto at = static_cast<std::size_t>(k);
    filter_column(model, room.raw.column[at], room.raw.rows, room.star.subspan(at * rows, rows));
  };
  constexpr std::int64_t worth_threads = 20000;
  if (room.raw.rows < worth_threads) {
    for (int k = 0; k <= K; ++k) one(k);
  } else {
    parallel_sections(K + 1, one);
  }
  if (!(before > 0 ? fit_with_errors_before() : fit_rows(ws, room))) return false;
  objective = FCOM.SSE;
  if (AUTCOM.ML) objective *= std::exp(-2.0 * jacobian / N);
  return true;
}

// PREPER: the errors before the sample are further coefficients of the linear fit.
bool HigherOrder::fit_with_errors_before() const {
  const int columns = K + before + 1;
  for (int k = 0; k < before; ++k) derivative_before(model, k + 1, extra_words(k));
  for (int k = 0; k < K; ++k) {
    column[static_cast<std::size_t>(k)] = room.star_column[static_cast<std::size_t>(k)];
  }
  for (int k = 0; k < before; ++k) column[static_cast<std::size_t>(K + k)] = extra(k);
  column[static_cast<std::size_t>(K + before)] = room.star_column[static_cast<std::size_t>(K)];
  const ColumnList x{column.first(static_cast<std::size_t>(columns)), room.N(), nullptr, {}};
  const int IFAULT = GSREG(x, room.fit.work, factor, columns, {}, {});
  if (IFAULT != 0) {
    fail(" ...ERROR..THE ERRORS BEFORE THE SAMPLE CANNOT BE ESTIMATED. LEAVE PREPER OUT");
    temporary(temporary_place("ERR")) = 6017;
    return false;
  }
  const auto all = static_cast<std::size_t>(columns - 1);
  gs_coefficients(factor, columns, solution);
  gs_inverse(factor, columns, inverse);
  FCOM.SSE = factor[packed(columns, columns)];
  gs_residuals(x, solution.first(all), room.u);
  const auto regressors = static_cast<std::size_t>(K);
  std::copy_n(solution.begin(), regressors, room.fit.coef.begin());
  std::copy_n(inverse.begin(), packed_words(K), room.fit.cov.begin());
  std::copy_n(solution.begin() + K, before, errors_before.begin());
  return true;
}

// Minus the derivatives of the errors, one column a coefficient. With `likelihood` those of the
// errors over the N-th root of the Jacobian, whose sum of squares maximum likelihood makes least.
void HigherOrder::make_derivatives(bool likelihood) {
  const int p = model.p();
  gs_residuals(room.raw, room.fit.coef, room.e);
  for (int j = 1; j <= p; ++j) {
    const std::span<double> out = extra_words(before + j - 1);
    double log_slope = 0.0;
    if (model.exact()) {
      // P is smooth: a central difference keeps 9 digits of its derivative, which only steers the
      // step. At the edge of the stable range one side is missing.
      constexpr double h = 1e-6;
      const auto at = static_cast<std::size_t>(j - 1);
      std::ranges::copy(model.r, trial.begin());
      const std::span<double> r = trial.first(model.r.size());
      const auto side = [&](double shift, std::span<double> P) {
        r[at] = model.r[at] + shift;
        if (first_rows_factor(r, P, work)) return shift;
        std::ranges::copy(model.first, P.begin());
        return 0.0;
      };
      const double width = side(h, above) - side(-h, below);
      for (std::size_t i = 0; i < above.size(); ++i) {
        above[i] = width > 0.0 ? (above[i] - below[i]) / width : 0.0;
      }
      const auto order = static_cast<std::size_t>(p);
      for (std::size_t i = 0; i < order; ++i) {
        log_slope += above[i * order + i] / model.first[i * order + i];
      }
    }
    derivative_r(model, j, room.e, above, out);
    if (!likelihood || log_slope == 0.0) continue;
    for (std::size_t t = 0; t < out.size(); ++t) out[t] += room.u[t] * log_slope / N;
  }
  for (int j = 1; j <= model.q(); ++j) {
    derivative_m(model, j, room.u, errors_before.first(static_cast<std::size_t>(before)),
                 extra_words(before + p + j - 1));
  }
}

// Fit of the errors u on the first `count` derivatives, with the filtered regressors or without
// them. Returns the IFAULT of the fit; solution and inverse hold the regressors first.
int HigherOrder::joint(bool with_regressors, int count, const double* last) const {
  std::size_t n = 0;
  for (int k = 0; with_regressors && k < K; ++k) {
    column[n++] = room.star_column[static_cast<std::size_t>(k)];
  }
  for (int k = with_regressors ? 0 : before; k < before + count; ++k) {
    column[n++] = extra(k);
  }
  column[n++] = last;
  const ColumnList x{column.first(n), room.N(), nullptr, {}};
  const int columns = static_cast<int>(n);
  const int IFAULT = GSREG(x, room.fit.work, factor, columns, {}, {});
  if (IFAULT != 0) return IFAULT;
  gs_coefficients(factor, columns, solution);
  gs_inverse(factor, columns, inverse);
  return 0;
}

// The step of the coefficients; 0 where the derivatives tell nothing. Restricted coefficients b
// stay where they are: the errors are not orthogonal to the directions that are closed to them.
bool HigherOrder::step(std::span<double> delta) {
  make_derivatives(AUTCOM.ML);
  const bool with_regressors = FCOM.NQ == 0;
  std::ranges::fill(delta, 0.0);
  int count = derivatives();
  if (joint(with_regressors, count, room.u.data()) != 0) {
    // Where both kinds are 0 their derivatives are the same: the autoregressive ones go first.
    count = model.p();
    if (count == 0 || joint(with_regressors, count, room.u.data()) != 0) return false;
  }
  const auto from = static_cast<std::size_t>(with_regressors ? K + before : 0);
  std::copy_n(solution.begin() + static_cast<std::ptrdiff_t>(from), count, delta.begin());
  return std::ranges::all_of(delta, [](double d) { return std::isfinite(d); });
}

// Ends with the fit behind the first step that is shorter than CONV.
bool iterate(HigherOrder& m) {
  const AutCom& a = AUTCOM;
  if (!m.fit(m.coef)) return false;
  print_auto_iteration(1, m.coef);
  double change = std::numeric_limits<double>::infinity();
  bool done = a.ITER == 1, blocked = false, stuck = false;
  for (int iteration = 2; !done && iteration <= a.ITER; ++iteration) {
    if (stop_requested()) return false;
    const std::span<double> delta = m.kept.subspan(m.coef.size());
    const std::span<double> from = m.kept.first(m.coef.size());
    stuck = !m.step(delta);
    done = only_rounding(m.room);
    if (stuck || done) break;
    std::ranges::copy(m.coef, from.begin());
    const double before = m.objective;
    double largest = 0.0, share = 1.0;
    for (const double d : delta) largest = std::max(largest, std::fabs(d));
    bool better = false;
    blocked = false;
    // A step that leaves the admissible range or makes things worse is halved. Rounding may lift
    // the sum of squares a little at its minimum.
    for (int halving = 0; halving <= HALVINGS && !better; ++halving, share *= 0.5) {
      for (std::size_t j = 0; j < delta.size(); ++j) m.trial[j] = from[j] + share * delta[j];
      if (!m.admissible(m.trial.first(delta.size()))) {
        blocked = true;
        continue;
      }
      if (!m.fit(m.trial.first(delta.size()))) return false;
      better = m.objective <= before * (1.0 + 1e-13);
      if (better) change = share * largest;
    }
    if (!better) {
      // Nothing near is better: the minimum, unless a step was still to be made.
      if (!m.fit(from)) return false;
      done = largest < std::max(a.CONV, 1e-6);
      change = largest;
      break;
    }
    print_auto_iteration(iteration, m.coef);
    done = largest < a.CONV || largest == 0.0;  // a halved step is no sign of a minimum
  }
  if (done) return true;
  bool told = false;
  if (blocked && m.model.q() == 0) {
    warn_unstable(told);
  } else if (blocked) {
    warn(" ...WARNING..MOVING AVERAGE AT THE EDGE OF THE INVERTIBLE RANGE");
  } else if (stuck) {
    warn(" ...WARNING..THE COEFFICIENTS OF THE ERRORS CAN'T BE TOLD APART");
  } else {
    warn<"(' ...WARNING..NO CONVERGENCE AFTER', I6, ' ITERATIONS. RHO CHANGED BY', G13.5)">(a.ITER,
                                                                                            change);
  }
  return true;
}

// Variances of the coefficients of the errors, and for DLAG the covariance of b beside them.
bool joint_variances(HigherOrder& m, std::span<double> variance, AutoResult& result) {
  AutoRoom& room = m.room;
  m.make_derivatives(false);
  std::ranges::fill(variance, 0.0);
  if (m.joint(true, m.derivatives(), room.u.data()) != 0) return !OLSCOM.DLAG || dhrymes_failed();
  const int first = m.K + m.before + 1;
  for (std::size_t j = 0; j < variance.size(); ++j) {
    const int place = first + static_cast<int>(j);
    variance[j] = FCOM.SSE / m.N * m.inverse[packed(place, place)];
  }
  if (!OLSCOM.DLAG) return true;
  result.lag_variance = m.inverse[0] - room.fit.cov[0];
  result.lag_covariance = m.inverse[packed(first, 1)];
  std::copy_n(m.inverse.begin(), packed_words(m.K), room.fit.cov.begin());
  return true;
}

std::int64_t own_words(int columns, int p, int q) {
  const std::int64_t square = std::int64_t{std::max(p, q)} * std::max(p, q);
  return 2 * static_cast<std::int64_t>(packed_words(columns)) + std::int64_t{3} * columns +
         4 * std::int64_t{p + q} + q + 4 * square + 16;
}

}  // namespace

void AUT2(Workspace ws) {
  const Trace trace("AUT2");
  const AutCom& o = AUTCOM;
  const int p = o.ORDER, q = o.NUMARMA;
  const int lost = o.DROP ? p : 0;
  const int before = o.PREPER ? q : 0;
  const int columns = OLSCOM.NF + before + p + q;
  if (o.PREPER && o.limits != nullptr) return fail(" ...ERROR..INCOMPATIBLE OPTIONS ");
  // 1. Room and columns.
  Scratch own(ws, own_words(columns, p, q));
  if (!own) return;
  Scratch scratch(ws, auto_words(DATCOM.NOB, lost, before + p + q));
  if (!scratch) return;
  AutoRoom room;
  if (!load_auto(ws, scratch, lost, before + p + q, room) || !auto_range(ws, room, true)) return;
  const auto count = static_cast<std::size_t>(p + q);
  const auto order = static_cast<std::size_t>(p);
  const auto square =
      static_cast<std::size_t>(std::max(p, q)) * static_cast<std::size_t>(std::max(p, q));
  HigherOrder m{.ws = ws, .room = room};
  m.K = OLSCOM.NF - 1;
  m.before = before;
  m.N = static_cast<double>(room.N());
  m.coef = own.take(count);
  m.trial = own.take(count);
  m.kept = own.take(2 * count);
  m.errors_before = own.take(static_cast<std::size_t>(q));
  m.model = {.r = m.coef.first(order),
             .m = m.coef.subspan(order),
             .first = own.take(square).first(order * order),
             .drop = o.DROP};
  m.above = own.take(square);
  m.below = own.take(square);
  m.work = own.take(square);
  m.factor = own.take(packed_words(columns));
  m.inverse = own.take(packed_words(columns));
  m.solution = own.take(static_cast<std::size_t>(columns));
  const std::span<double> places = own.take(static_cast<std::size_t>(columns));
  auto* const pointers = reinterpret_cast<const double**>(places.data());
  std::uninitialized_fill_n(pointers, columns, nullptr);
  m.column = {pointers, static_cast<std::size_t>(columns)};
  // 2. The start. Errors before the sample have no weight where a moving average is 0.
  for (std::size_t j = 0; j < count; ++j) {
    m.coef[j] = o.PREPER && j >= order ? std::pow(0.3, static_cast<double>(j - order + 1)) : 0.0;
  }
  if (o.RHO != 0.0) m.coef[0] = o.RHO;
  if (o.SRHO != 0.0 && count > 1) m.coef[1] = o.SRHO;
  m.shrink_start();
  // 3. The estimates.
  print_auto_header(ws, room.N(), q > 0 || o.PAGAN, {});
  if (OCOM.OPUT) {
    say<"(' AUTOREGRESSIVE ORDER =', I3, '  MOVING AVERAGE ORDER =', I3)">(p, q);
  }
  print_auto_heading(true);
  if (!iterate(m)) return;
  // 4. Their variances, the results.
  AutoResult result{
      .r = m.model.r, .m = m.model.m, .variance = m.kept.first(count), .jacobian = m.jacobian};
  result.before = m.errors_before.first(static_cast<std::size_t>(before));
  if (!joint_variances(m, m.kept.first(count), result)) return;
  print_auto_rho(result, m.N);
  if (OLSCOM.DLAG) print_dhrymes(result, room.fit.coef[0]);
  finish_auto(ws, room, AUT2_PROFILE, result);
}

}  // namespace korvel
