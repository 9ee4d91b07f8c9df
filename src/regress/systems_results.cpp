// Results of SYSTEM, 2SLS and INST: the tables of the equations, stored variables, the estimate
// that TEST and its like work on.

#include <algorithm>
#include <cmath>
#include <cstring>

#include "engine/commands.h"
#include "engine/output.h"
#include "expr/kernels/gsreg.h"
#include "expr/kernels/packed.h"
#include "regress/ols_parts.h"
#include "regress/systems.h"

namespace korvel {
namespace {

constexpr ResultProfile SYSTEM_PROFILE{.word = "SYSTEM",
                                       .likelihood = false,
                                       .likelihood_line = false,
                                       .f_test = false,
                                       .adjusted = false};
constexpr ResultProfile TWO_STAGE_PROFILE{
    .word = "2SLS", .likelihood = false, .likelihood_line = false};
constexpr ResultProfile INST_PROFILE{.word = "INST", .likelihood = false, .likelihood_line = false};

std::size_t at(int i) { return static_cast<std::size_t>(i); }

bool whole_system() { return INPCOM.IKOD == K_SYSTEM; }

const ResultProfile& profile() {
  if (whole_system()) return SYSTEM_PROFILE;
  return INPCOM.IKOD == K_2SLS ? TWO_STAGE_PROFILE : INST_PROFILE;
}

bool drops_first() { return SYSCOM.AUTO && SYSCOM.DROP; }

bool keeps_residuals() { return !OLSCOM.RESID.text.empty() || !OLSCOM.PREDICT.text.empty(); }
bool wants_residuals() { return OLSCOM.RSTAT || keeps_residuals(); }

// Rows of residuals and predictions, an equation behind the other.
struct ResidualRoom {
  std::span<double> residual, predicted;
  std::int64_t rows = 0;
  std::span<double> of(std::span<double> all, int i) const {
    return all.subspan(static_cast<std::size_t>(rows * i), static_cast<std::size_t>(rows));
  }
};

// Columns of an equation from its first row in use: regressors, dependent variable.
void gather(const SystemModel& model, const SystemData& data, int i,
            std::span<const double*> column) {
  const SavedEquation& e = model.equation[at(i)];
  const int skipped = drops_first() ? 1 : 0;
  const auto place = [&](int c) {
    const double* p = data.column[at(c)];
    return p == nullptr ? p : p + skipped;
  };
  for (int k = 0; k < e.K; ++k) column[at(k)] = place(model.regressor[at(e.first + k)]);
  column[at(e.K)] = place(model.dependent[at(i)]);
}

// e = y - Xb, or what the autoregression leaves of it: u(t) = e(t) - r e(t-1), in the first row
// that is kept sqrt(1-r^2) e(1). `before`: e of the dropped first row.
void transform(std::span<double> e, double r, double before) {
  for (std::size_t t = e.size() - 1; t > 0; --t) e[t] -= r * e[t - 1];
  e[0] = drops_first() ? e[0] - r * before : std::sqrt(1.0 - r * r) * e[0];
}

void find_residuals(const SystemModel& model, const SystemData& data, const SystemFit& fit, int i,
                    std::span<const double*> column, std::span<double> e) {
  const SavedEquation& equation = model.equation[at(i)];
  gather(model, data, i, column);
  const std::span<const double* const> columns = column.first(at(equation.K) + 1);
  const std::span<const double> b = fit.coef.subspan(at(equation.first), at(equation.K));
  gs_residuals({columns, std::ssize(e), nullptr, {}}, b, e);
  if (!SYSCOM.AUTO) return;
  double before = 0.0;
  if (drops_first()) {
    before = columns.back()[-1];
    for (int k = 0; k < equation.K; ++k) {
      before -= b[at(k)] * (columns[at(k)] == nullptr ? 1.0 : columns[at(k)][-1]);
    }
  }
  transform(e, fit.rho[at(i)], before);
}

void print_compact_table(Workspace ws, const Estimate& est) {
  say(" VARIABLE       COEFFICIENT    ST.ERROR       T-RATIO");
  for (int k = 0; k < est.K(); ++k) {
    const int var = est.list[at(k)].var;
    if (var == DATCOM.MCON) continue;
    const double se = standard_error(est, k);
    const double b = est.coef[at(k)];
    say<"(1X, A8, 3G15.5)">(NAME(ws, var), b, se, t_ratio(b, se));
  }
}

// One equation through the results stage, in full or as the short table.
void print_equation(Workspace ws, const SystemModel& model, Estimate& est, int i) {
  const bool full = SYSCOM.FULL || !whole_system();
  if (OCOM.OPUT && whole_system()) {
    Line first;
    first.put<"(' EQUATION', I3, ' OF', I3, ' EQUATIONS')">(i + 1, model.M);
    Line second;
    second.put<"(' DEPENDENT VARIABLE = ', A8, I8, ' OBSERVATIONS')">(
        NAME(ws, est.dependent().var), static_cast<std::int64_t>(FCOM.ZZ));
    OUTLINE();
  }
  if (full) return OLSOUT(ws, est);
  // The stage sets the temporaries; what it prints stays away but for the residual statistics.
  const bool output = OCOM.OPUT;
  const bool residual_statistics = OLSCOM.RSTAT;
  OCOM.OPUT = OLSCOM.RSTAT = false;
  OLSOUT(ws, est);
  OCOM.OPUT = output;
  OLSCOM.RSTAT = residual_statistics;
  if (output) print_compact_table(ws, est);
  if (residual_statistics) OLSRES(ws, est);
}

// Sums of squares and means of an equation, as OLSOUT takes them.
void equation_statistics(const SystemModel& model, const SystemMoments& moments,
                         const SystemFit& fit, int i, std::span<double> means,
                         std::span<double> squares) {
  const SavedEquation& e = model.equation[at(i)];
  for (int k = 0; k <= e.K; ++k) {
    const int c = k < e.K ? model.regressor[at(e.first + k)] : model.dependent[at(i)];
    const bool ones = c == model.constant_column();
    means[at(k)] = ones ? 1.0 : column_mean(model, moments, c);
    squares[at(k)] = ones ? 0.0 : column_product(model, moments, c, c, true);
  }
  const double n = fit.N();
  FCOM.ZZ = FCOM.SWT = n;
  FCOM.SST = squares[at(e.K)];
  FCOM.RAW = FCOM.SST + means[at(e.K)] * means[at(e.K)] * n;
  FCOM.SSE = fit.E[packed(i + 1, i + 1)];
}

// The covariance of an equation's coefficients out of that of all.
void equation_covariance(const SystemFit& fit, const SavedEquation& e, double factor,
                         std::span<double> cov) {
  for (int k = 1; k <= e.K; ++k) {
    for (int l = 1; l <= k; ++l) {
      cov[packed(k, l)] = factor * fit.cov[packed(e.first + k, e.first + l)];
    }
  }
}

// ---- Stored variables

// N by M matrices of residuals and predictions; rows out of the sample hold the missing code.
bool store_rows(Workspace ws, const NameOption& option, int M, const ResidualRoom& room,
                std::span<double> values) {
  if (option.text.empty()) return true;
  const std::int64_t length = DATCOM.MEND;
  const int var = make_result(ws, option, MATRIX2, length * M, M);
  if (var == 0) return false;
  const std::span<double> to = elements(ws, var);
  std::ranges::fill(to, MACOM.XMISS);
  KeptRows rows(ws);
  while (rows.next()) {
    for (int i = 0; i < M; ++i) {
      to[static_cast<std::size_t>(length * i + rows.obs - 1)] = room.of(values, i)[at(rows.row)];
    }
  }
  return true;
}

// A column an equation, filled with zeros.
void store_coefficient_matrix(Workspace ws, const SystemModel& model, const SystemFit& fit) {
  if (SYSCOM.COEFMATR.text.empty() || OCOM.ODONT) return;
  int rows = 0;
  for (const SavedEquation& e : model.equation) rows = std::max(rows, e.K);
  const int var = make_result(ws, SYSCOM.COEFMATR, MATRIX2, std::int64_t{rows} * model.M, model.M);
  if (var == 0) return;
  const std::span<double> to = elements(ws, var);
  std::ranges::fill(to, 0.0);
  for (int i = 0; i < model.M; ++i) {
    const SavedEquation& e = model.equation[at(i)];
    std::copy_n(fit.coef.begin() + e.first, e.K, to.begin() + std::int64_t{rows} * i);
  }
}

void store_system(Workspace ws, const SystemModel& model, const SystemFit& fit,
                  const SystemOutcome& outcome, const ResidualRoom& room) {
  const OlsCom& o = OLSCOM;
  const int K = model.K();
  if (!store_rows(ws, o.PREDICT, model.M, room, room.predicted)) return;
  if (!store_rows(ws, o.RESID, model.M, room, room.residual)) return;
  const auto se = [&](int k) { return std::sqrt(std::max(fit.cov[packed(k + 1, k + 1)], 0.0)); };
  store_vector(ws, o.TRATIO, at(K), [&](int k) { return t_ratio(fit.coef[at(k)], se(k)); });
  store_vector(ws, o.STDERR, at(K), se);
  ADDCOM.KCOEF = store_vector(ws, o.COEFFICE, at(K), [&](int k) { return fit.coef[at(k)]; });
  ADDCOM.KCOV = store_symmetric(ws, o.COVARIAN, fit.cov, K);
  store_symmetric(ws, SYSCOM.SIGMA, outcome.used, model.M);
  store_coefficient_matrix(ws, model, fit);
}

// Coefficients of all equations as one estimate, with their places.
void save_system(Workspace ws, SystemModel& model, const SystemMoments& moments,
                 const SystemFit& fit, int restrictions, std::span<double> means) {
  const int K = model.K();
  for (int k = 0; k < K; ++k) {
    const int c = model.regressor[at(k)];
    means[at(k)] = c == model.constant_column() ? 1.0 : column_mean(model, moments, c);
  }
  means[at(K)] = column_mean(model, moments, model.dependent.back());
  const double N = fit.N();
  // One more entry, and the list is that of an estimate: the dependent variable last.
  model.list.push_back(model.equation.back().dependent);
  const Estimate all{.profile = &profile(),
                     .list = model.list,
                     .coef = fit.coef,
                     .cov = fit.cov,
                     .means = means,
                     .squares = {},
                     .observed = {},
                     .residual = {}};
  FCOM.DF = OLSCOM.DN ? model.M * N : model.M * N - K + restrictions;
  save_estimate(ws, all);
  model.list.pop_back();
  SavedEstimate& s = SAVED;
  if (SYSCOM.AUTO) s.rho.assign(1, fit.rho[0]);
  s.first_rows = !drops_first();
  if (!whole_system()) return;
  s.names.resize(static_cast<std::size_t>(K + 1 + model.M) * NAMELEN, ' ');
  s.equations.assign(model.equation.begin(), model.equation.end());
  const auto view = [&](std::ptrdiff_t place, std::size_t length) {
    return std::string_view(s.names.data() + place * NAMELEN, length);
  };
  for (int k = 0; k <= K; ++k) s.list[at(k)].name = view(k, s.list[at(k)].name.size());
  for (int i = 0; i < model.M; ++i) {
    const std::string_view name = NAME(ws, model.equation[at(i)].dependent.var);
    char* to = s.names.data() + (std::ptrdiff_t{K} + 1 + i) * NAMELEN;
    const std::size_t n = std::min<std::size_t>(name.size(), NAMELEN);
    std::memcpy(to, name.data(), n);
    s.equations[at(i)].dependent.name = view(K + 1 + i, n);
    s.equations[at(i)].rho = fit.rho[at(i)];
    const double rows = OLSCOM.DN ? N : N - model.equation[at(i)].K;
    if (rows > 0.0) s.equations[at(i)].sigma2 = fit.E[packed(i + 1, i + 1)] / rows;
  }
}

}  // namespace

std::int64_t system_result_words(const SystemModel& model, std::int64_t rows) {
  int most = 0;
  for (const SavedEquation& e : model.equation) most = std::max(most, e.K);
  std::int64_t words =
      4 * (std::int64_t{most} + 1) + static_cast<std::int64_t>(packed_words(most)) + model.K() + 1;
  if (keeps_residuals())
    words += 2 * rows * model.M;
  else if (wants_residuals())
    words += rows;
  return words;
}

void give_results(Workspace ws, SystemModel& model, const SystemData& data,
                  const SystemMoments& moments, SystemFit& fit, const SystemOutcome& outcome) {
  const std::int64_t rows = data.rows - (drops_first() ? 1 : 0);
  Scratch scratch(ws, system_result_words(model, rows));
  if (!scratch) return;
  int most = 0;
  for (const SavedEquation& e : model.equation) most = std::max(most, e.K);
  const std::span<double> means = scratch.take(at(most) + 1);
  const std::span<double> squares = scratch.take(at(most) + 1);
  const std::span<double> places = scratch.take(at(most) + 1);
  const std::span<double> cov = scratch.take(packed_words(most));
  const std::span<double> all_means = scratch.take(at(model.K()) + 1);
  auto* const pointers = reinterpret_cast<const double**>(places.data());
  std::uninitialized_fill_n(pointers, most + 1, nullptr);
  const std::span<const double*> column{pointers, at(most) + 1};
  ResidualRoom room;
  room.rows = rows;
  if (keeps_residuals()) {
    room.residual = scratch.take(static_cast<std::size_t>(rows * model.M));
    room.predicted = scratch.take(static_cast<std::size_t>(rows * model.M));
  } else if (wants_residuals()) {
    room.residual = scratch.take(static_cast<std::size_t>(rows));
  }
  static std::vector<ListItem> list;
  // The first row in use is the one behind the dropped one.
  if (drops_first()) {
    KeptRows kept(ws);
    kept.next();
    kept.next();
    DATCOM.MBEG = kept.obs;
    DATCOM.NOB = static_cast<int>(rows);
  }
  // 1. The tables, equation after equation; the temporaries are those of the last one.
  FCOM.NQ = whole_system() ? 0 : outcome.restrictions;
  OLSCOM.MULSIGSQ = false;
  for (int i = 0; i < model.M; ++i) {
    SavedEquation& e = model.equation[at(i)];
    equation_statistics(model, moments, fit, i, means, squares);
    std::span<double> residual;
    if (wants_residuals()) {
      residual = keeps_residuals() ? room.of(room.residual, i) : room.residual;
      find_residuals(model, data, fit, i, column, residual);
      FCOM.SSE = 0.0;
      for (const double u : residual) FCOM.SSE += u * u;
    }
    const double d0 = FCOM.ZZ - e.K + FCOM.NQ;
    FCOM.DF = OLSCOM.DN ? FCOM.ZZ : d0;
    e.sigma2 = FCOM.DF > 0.0 ? FCOM.SSE / FCOM.DF : FCOM.SSE;
    FCOM.SEPLOT = std::sqrt(e.sigma2);
    // A single equation's covariance has the variance of its own residuals, restricted ones too.
    const double factor = whole_system() ? 1.0 : e.sigma2 / outcome.used[0];
    equation_covariance(fit, e, factor, cov);
    if (!whole_system()) std::copy_n(cov.begin(), packed_words(e.K), fit.cov.begin());
    list.assign(model.list.begin() + e.first, model.list.begin() + e.first + e.K);
    list.push_back(e.dependent);
    Estimate est{.profile = &profile(),
                 .list = list,
                 .coef = fit.coef.subspan(at(e.first), at(e.K)),
                 .cov = cov.first(packed_words(e.K)),
                 .means = means.first(at(e.K) + 1),
                 .squares = squares.first(at(e.K) + 1),
                 .observed = {},
                 .residual = {}};
    if (!residual.empty()) {
      est.residual = residual;
      est.observed = {column[at(e.K)], static_cast<std::size_t>(rows)};
    }
    print_equation(ws, model, est, i);
    if (OCOM.ODONT) return;
    if (keeps_residuals()) {
      const std::span<double> predicted = room.of(room.predicted, i);
      for (std::size_t t = 0; t < residual.size(); ++t) {
        predicted[t] = est.observed[t] - residual[t];
      }
    }
  }
  if (whole_system()) temporary(temporary_place("LLF")) = outcome.log_likelihood;
  // 2. The system solved row by row, the variables, the estimate.
  if (SYSCOM.SIMULATE && OCOM.OPUT) {
    SystemData used = data;
    used.first_row = drops_first() ? 1 : 0;
    simulate_system(ws, model, used, fit.coef);
  }
  store_system(ws, model, fit, outcome, room);
  if (!OCOM.ODONT) save_system(ws, model, moments, fit, outcome.restrictions, all_means);
}

}  // namespace korvel
