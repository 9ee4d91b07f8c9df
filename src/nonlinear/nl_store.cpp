// Temporaries, the saved estimate and the variables that keep results of NLINEAR.

#include <algorithm>
#include <cmath>

#include "engine/commands.h"
#include "engine/output.h"
#include "expr/kernels/packed.h"
#include "nonlinear/nl_parts.h"
#include "regress/ols_parts.h"
#include "regress/tests.h"

namespace korvel {
namespace {

constexpr ResultProfile NL_PROFILE{.word = "NL"};

bool wanted(const NameOption& option) { return !option.text.empty() && !OCOM.ODONT; }

// A series or, with several columns, a matrix of MEND rows: value(row, column) at the rows in use,
// the missing code elsewhere.
template <class F>
void store_rows(Workspace ws, const NlModel& m, const NameOption& option, int columns, F&& value) {
  if (!wanted(option)) return;
  const std::int64_t length = DATCOM.MEND;
  std::int64_t words = 0;
  if (!checked_product(length, columns, words)) words = std::int64_t{1} << 40;
  const int var = make_result(ws, option, columns > 1 ? MATRIX2 : SERIES, words, columns);
  if (var == 0) return;
  const std::span<double> to = elements(ws, var);
  const auto rows = to.size() / static_cast<std::size_t>(columns);
  for (int c = 0; c < columns; ++c) {
    const std::span<double> column = to.subspan(static_cast<std::size_t>(c) * rows, rows);
    std::fill_n(column.begin(), std::min<std::int64_t>(length, std::ssize(column)), MACOM.XMISS);
    for (std::int64_t t = 0; t < m.used(); ++t) {
      const auto obs = static_cast<std::size_t>(m.observations[static_cast<std::size_t>(m.p + t)]);
      column[obs - 1] = value(t, c);
    }
  }
}

void clear_temporaries() {
  for (int p = temporary_place("R2"); p <= temporary_place("ZANF"); ++p) temporary(p) = UNSET;
  temporary(temporary_place("RHO")) = UNSET;
  temporary(temporary_place("JB")) = UNSET;
}

double residual(const NlModel& m, std::int64_t t, int j) {
  return m.e[static_cast<std::size_t>(j)][t];
}
double observed(const NlModel& m, std::int64_t t, int j) {
  const double* const y = m.eq[static_cast<std::size_t>(j)].y;
  return y == nullptr ? 0.0 : y[m.p + t];
}
// The value of the formula, or the left side less its residual.
double predicted(const NlModel& m, std::int64_t t, int j) {
  return m.residuals() ? observed(m, t, j) - residual(m, t, j) : residual(m, t, j);
}

double spread(const NlModel& m, double sigma2, int j) {
  return std::sqrt(m.neq == 1 ? sigma2 : m.S[packed(j + 1, j + 1)]);
}

// Residual statistics and the listing, one equation after another.
void list_residuals(Workspace ws, const NlModel& m, double sigma2, std::span<const ListItem> list,
                    std::span<const double> zeros) {
  for (int j = 0; j < m.neq; ++j) {
    const auto n = static_cast<std::size_t>(m.used());
    Scratch room(ws, m.used());
    if (!room) return;
    for (std::int64_t t = 0; t < m.used(); ++t) {
      room.words()[static_cast<std::size_t>(t)] = observed(m, t, j);
    }
    if (m.neq > 1) say<"(' EQUATION', I4)">(j + 1);
    static std::vector<ListItem> names;
    names.assign(list.begin(), list.end());
    const int dependent = m.eq[static_cast<std::size_t>(j)].dependent;
    names.back() =
        dependent >= 0 ? m.list[static_cast<std::size_t>(dependent)] : ListItem{.name = "RESIDUAL"};
    FCOM.SEPLOT = spread(m, sigma2, j);
    OLSRES(ws, {.profile = &NL_PROFILE,
                .list = names,
                .coef = m.b,
                .cov = m.cov,
                .means = zeros,
                .squares = zeros,
                .observed = room.words(),
                .residual = {m.e[static_cast<std::size_t>(j)], n},
                .multiplicity = 1,
                .blocks = 1});
  }
}

}  // namespace

void set_results(Workspace ws, NlModel& m, const NlFunction& f, const NlOutcome& outcome,
                 const NlCovariance& cov) {
  static std::vector<ListItem> list;
  static std::vector<double> zeros;
  clear_temporaries();
  const bool likelihood = f.label != " FUNCTION VALUE= ";
  if (likelihood) temporary(temporary_place("LLF")) = f.printed(outcome.f);
  temporary(temporary_place("N")) = m.N;
  temporary(temporary_place("K")) = m.K;
  const double df = NLCOM.DN ? m.N : m.N * (m.residuals() ? m.neq : 1) - m.K;
  temporary(temporary_place("DF")) = df;
  if (m.residuals()) {
    temporary(temporary_place("SSE")) = m.SSE;
    temporary(temporary_place("SIG2")) = cov.sigma2;
  }
  FCOM.ZZ = m.N;
  FCOM.DF = df;
  FCOM.SSE = m.residuals() ? m.SSE : 0.0;
  FCOM.XMAXL = likelihood ? f.printed(outcome.f) : 0.0;
  FCOM.NQ = 0;
  list.clear();
  for (const std::string& name : m.names) list.push_back(ListItem{.name = name});
  const int dependent = m.eq[0].dependent;
  list.push_back(dependent >= 0 ? m.list[static_cast<std::size_t>(dependent)]
                                : ListItem{.name = "FUNCTION"});
  zeros.assign(list.size(), 0.0);
  OLSCOM.RSTAT = NLCOM.RSTAT;
  OLSCOM.LIST = NLCOM.LIST;
  OLSCOM.KID = NLCOM.IDVAR.var;
  if (NLCOM.RSTAT && m.residuals() && OCOM.OPUT && !outcome.stopped) {
    list_residuals(ws, m, cov.sigma2, list, zeros);
  }
  save_estimate(ws, {.profile = &NL_PROFILE,
                     .list = list,
                     .coef = m.b,
                     .cov = m.cov,
                     .means = zeros,
                     .squares = {},
                     .observed = {},
                     .residual = {},
                     .multiplicity = 1,
                     .blocks = 1});
  const bool own = m.neq == 1 || !NLCOM.ACROSS;
  for (int i = 0; own && i < m.p; ++i) {
    const int each = m.neq > 1 && NLCOM.DRHO ? m.neq : 1;
    SAVED.rho.push_back(m.b[static_cast<std::size_t>(m.NCOEF + i * each)]);
  }
  SAVED.first_rows = m.p == 0;
  keep_for_forecasts(m);
}

void store_nl_results(Workspace ws, NlModel& m) {
  const auto K = static_cast<std::size_t>(m.K);
  const double sigma2 = m.residuals() ? temporary(temporary_place("SIG2")) : 1.0;
  // 1. By rows. A result may take the place of a variable of the equations, so what is computed
  // from those comes first: derivatives at the solution, predicted values.
  const bool matrices = wanted(NLCOM.ZMATRIX) || wanted(NLCOM.GMATRIX);
  if (matrices) NLPASS(m, m.b, true, true);
  const auto place = [&](std::int64_t t, int j) {
    return static_cast<std::size_t>(j * m.used() + t);
  };
  for (int j = 0; wanted(NLCOM.PREDICT) && j < m.neq; ++j) {
    for (std::int64_t t = 0; t < m.used(); ++t) m.mixed[place(t, j)] = predicted(m, t, j);
  }
  store_rows(ws, m, NLCOM.PREDICT, m.neq,
             [&](std::int64_t t, int j) { return m.mixed[place(t, j)]; });
  if (m.residuals()) {
    store_rows(ws, m, NLCOM.RESID, m.neq, [&](std::int64_t t, int j) { return residual(m, t, j); });
    store_rows(ws, m, NLCOM.STDRESID, m.neq, [&](std::int64_t t, int j) {
      const double s = spread(m, sigma2, j);
      return s > 0.0 ? residual(m, t, j) / s : 0.0;
    });
  }
  const auto derivative = [&](std::int64_t t, int c) {
    const double* const D = m.D[static_cast<std::size_t>(c)];
    return D == nullptr ? 0.0 : D[t];
  };
  const int columns = m.K * m.neq;  // those of the first equation, then of the second ...
  store_rows(ws, m, NLCOM.ZMATRIX, columns, derivative);
  store_rows(ws, m, NLCOM.GMATRIX, columns, [&](std::int64_t t, int c) {
    return (m.residuals() ? residual(m, t, c / m.K) : 1.0) * derivative(t, c);
  });
  // 2. By coefficients.
  ADDCOM.KCOEF =
      store_vector(ws, NLCOM.COEF, K, [&](int i) { return m.b[static_cast<std::size_t>(i)]; });
  store_vector(ws, NLCOM.STDERR, K, [&](int i) { return standard_error_of(m, i); });
  store_vector(ws, NLCOM.TRATIO, K, [&](int i) {
    return t_ratio(m.b[static_cast<std::size_t>(i)], standard_error_of(m, i));
  });
  ADDCOM.KCOV = store_symmetric(ws, NLCOM.COV, m.cov, m.K);
  if (wanted(NLCOM.COR)) {
    Scratch room(ws, static_cast<std::int64_t>(packed_words(m.K)));
    if (!room) return;
    for (int i = 1; i <= m.K; ++i) {
      for (int j = 1; j <= i; ++j) {
        const double product = standard_error_of(m, i - 1) * standard_error_of(m, j - 1);
        room.words()[packed(i, j)] = product > 0.0 ? m.cov[packed(i, j)] / product : 0.0;
      }
    }
    store_symmetric(ws, NLCOM.COR, room.words(), m.K);
  }
  // 3. Of the residuals and moments.
  if (m.residuals() && !given_sigma(ws, m)) store_symmetric(ws, NLCOM.SIGMA, m.S, m.neq);
  if (m.form == NlForm::Moments) {
    store_vector(ws, NLCOM.GMMOUT, m.m.size(),
                 [&](int i) { return m.m[static_cast<std::size_t>(i)]; });
  }
  if (NLCOM.OUT != 0) write_parameters(NLCOM.OUT, m.b);
}

}  // namespace korvel
