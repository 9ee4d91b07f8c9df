// What SYSTEM prints of the system as a whole: title, variables, rounds, Sigma and its tests.

#include <algorithm>
#include <cmath>

#include "data/results.h"
#include "engine/commands.h"
#include "engine/output.h"
#include "expr/kernels/packed.h"
#include "regress/systems.h"
#include "stats/probability.h"

namespace korvel {
namespace {

std::size_t at(int i) { return static_cast<std::size_t>(i); }

constexpr int NAMES_A_LINE = 10;

// A count with its heading, then the names.
template <class F>
void print_names(Workspace ws, std::string_view heading, const SystemModel& model, F&& wanted) {
  int count = 0;
  for (int c = 0; c + 1 < model.P(); ++c) count += wanted(c) ? 1 : 0;
  say<"(I5, A)">(count, heading);
  WordRows rows(NAMES_A_LINE);
  for (int c = 0; c + 1 < model.P(); ++c) {
    if (wanted(c)) rows.add(NAME(ws, model.column[at(c)].var));
  }
  rows.end();
}

bool holds(std::span<const int> places, int column) {
  return std::ranges::find(places, column) != places.end();
}

void print_exogenous(Workspace ws, const SystemModel& model) {
  print_names(ws, " EXOGENOUS VARIABLES", model, [&](int c) { return holds(model.instrument, c); });
  print_names(ws, " POSSIBLE ENDOGENOUS VARIABLES", model,
              [&](int c) { return !holds(model.instrument, c); });
  print_names(ws, " RIGHT-HAND SIDE VARIABLES IN SYSTEM", model,
              [&](int c) { return holds(model.regressor, c); });
}

void print_chi_square(std::string_view title, double value, int df) {
  say(title);
  say<"(G13.5, ' CHI-SQUARE WITH', I5, ' D.F.', ' P-VALUE=', F8.5)">(value, df, PCHI(value, df));
}

// Breusch and Pagan (1980), and the likelihood ratio: is Sigma diagonal?
void test_diagonal(const SystemModel& model, double N, std::span<const double> E,
                   std::span<double> work) {
  const int M = model.M;
  double LM = 0.0, logs = 0.0;
  for (int i = 1; i <= M; ++i) {
    logs += std::log(E[packed(i, i)]);
    for (int j = 1; j < i; ++j) {
      LM += E[packed(i, j)] * E[packed(i, j)] / (E[packed(i, i)] * E[packed(j, j)]);
    }
  }
  const LogDeterminant det = log_determinant(E, M, work);
  const int df = M * (M - 1) / 2;
  print_chi_square(" BREUSCH-PAGAN LM TEST FOR DIAGONAL COVARIANCE MATRIX", N * LM, df);
  if (det.IFAULT != 0) return;
  print_chi_square(" LIKELIHOOD RATIO TEST OF DIAGONAL COVARIANCE MATRIX",
                   std::max(N * (logs - det.value), 0.0), df);
}

// 1 - |E'E|/|Y'Y|: Berndt (1991).
void print_r_square(const SystemModel& model, const SystemMoments& moments, const SystemFit& fit,
                    int restrictions, std::span<double> work) {
  const int M = model.M;
  const std::span<double> Y = work.first(packed_words(M));
  const std::span<double> rest = work.subspan(packed_words(M));
  for (int i = 1; i <= M; ++i) {
    for (int j = 1; j <= i; ++j) {
      Y[packed(i, j)] = column_product(model, moments, model.dependent[at(i - 1)],
                                       model.dependent[at(j - 1)], !SYSCOM.RM);
    }
  }
  const LogDeterminant total = log_determinant(Y, M, rest);
  if (total.IFAULT != 0) {
    warn(" ...WARNING..IMPOSSIBLE TO COMPUTE SYSTEM R-SQUARE DUE TO SINGULAR Y TRANSPOSE Y MATRIX");
    return;
  }
  const LogDeterminant error = log_determinant(fit.E, M, rest);
  if (error.IFAULT != 0) return;
  const double log_share = error.value - total.value;
  const double test = std::max(-fit.N() * log_share, 0.0);
  const int slopes = model.K() - (model.constant ? M : 0);
  const int df = slopes - restrictions;
  say<"(' SYSTEM R-SQUARE =', F9.4)">(1.0 - std::exp(log_share));
  if (df < 1) return;
  say<"(' TEST OF THE OVERALL SIGNIFICANCE =', G13.5, ' CHI-SQUARE WITH', I5, ' D.F.', "
      "' P-VALUE=', F8.5)">(test, df, PCHI(test, df));
}

// Values behind a heading, so many a line; further lines are indented.
void print_values(Line row, std::span<const double> values) {
  const std::size_t a_line = OSCOM.OWIDE ? 8 : 5;
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (i > 0 && i % a_line == 0) {
      OUTLINE();
      row = Line();
      row.column(10);
    }
    row.put<"(G13.5)">(values[i]);
  }
  OUTLINE();
}

}  // namespace

std::string_view equation_name(const SystemModel& model, int i) {
  return NAME(workspace(), model.equation[at(i)].dependent.var);
}
std::string_view coefficient_name(const SystemModel& model, int k) {
  return NAME(workspace(), model.list[at(k)].var);
}
std::string_view instrument_name(const SystemModel& model, int l) {
  return NAME(workspace(), model.column[at(model.instrument[at(l)])].var);
}

void print_system_matrix(std::string_view title, std::span<const double> a, int order,
                         std::string_view (*name)(const SystemModel&, int), bool correlation) {
  const SystemModel& model = system_model();
  say(right_trimmed(title));
  const auto name_of = [&](int i) { return name(model, i); };
  const auto value = [&](int i, int j) { return a[packed(i, j)]; };
  if (correlation)
    print_correlations(order, name_of, value);
  else
    print_covariances(order, name_of, value);
}

void print_system_title(Workspace ws, const SystemModel& model) {
  if (INPCOM.IKOD == K_SYSTEM) {
    const std::string_view kind =
        model.instruments ? " THREE STAGE LEAST SQUARES--" : " MULTIVARIATE REGRESSION--";
    say<"(A, I3, ' EQUATIONS')">(kind, model.M);
  } else {
    const std::string_view kind = INPCOM.IKOD == K_2SLS
                                      ? "  TWO STAGE LEAST SQUARES - DEPENDENT VARIABLE = "
                                      : " INSTRUMENTAL VARIABLES REGRESSION - DEPENDENT VARIABLE =";
    say<"(A, 1X, A)">(right_trimmed(kind), equation_name(model, 0));
  }
  if (model.instruments) print_exogenous(ws, model);
}

void print_system_options(double rows) {
  const SysCom& o = SYSCOM;
  const bool system = INPCOM.IKOD == K_SYSTEM;
  if (system && OLSCOM.CONSTANT && !o.FULL) {
    say(" ...NOTE..INTERCEPTS ONLY PRINTED WITH FULL OPTION");
  }
  if (o.AUTO && o.DROP) say(" THE FIRST OBSERVATION WILL BE DROPPED");
  if (system || o.AUTO) {
    say<"(' MAX ITERATIONS =', I5, 5X, ' CONVERGENCE TOLERANCE =', G13.5)">(o.ITER, o.CONV);
  }
  say<"(I9, ' OBSERVATIONS')">(static_cast<std::int64_t>(rows));
  if (OLSCOM.DN) say(" DN OPTION IN EFFECT - DIVISOR IS N");
  if (o.IR && OLSCOM.RESTRICT && o.ITER > 0) {
    say(" IR OPTION IN EFFECT - ITERATIVE RESTRICTIONS");
  }
  if (o.FM) say(" FM OPTION - SIGMA MATRIX FORCED TO BE DIAGONAL");
}

void print_iteration(const SystemModel& model, const SystemFit& fit, int iteration) {
  constexpr int VALUES = 21;  // first column of the values
  const std::size_t a_line = OSCOM.OWIDE ? 8 : 4;
  for (int part = 0; part < (SYSCOM.AUTO ? 2 : 1); ++part) {
    Line row;
    if (part == 0)
      row.put<"(' ITERATION', I5, ' SSE')">(iteration);
    else
      row.put<"(16X, 'RHO')">();
    for (int i = 0; i < model.M; ++i) {
      if (i > 0 && at(i) % a_line == 0) {
        OUTLINE();
        row = Line();
        row.column(VALUES - 1);
      }
      row.put<"(G13.5)">(part == 0 ? fit.E[packed(i + 1, i + 1)] : fit.rho[at(i)]);
    }
    OUTLINE();
  }
  if (iteration == 0 || SYSCOM.PITER <= 0 || iteration % SYSCOM.PITER != 0) return;
  say<"(' ITERATION', I5, ' COEFFICIENTS')">(iteration);
  Line first;
  first.column(10);
  print_values(first, fit.coef);
}

void print_system_statistics(Workspace ws, const SystemModel& model, const SystemMoments& moments,
                             SystemFit& fit, const SystemOutcome& outcome) {
  const int M = model.M;
  Scratch room(ws, 3 * static_cast<std::int64_t>(packed_words(M)) + M);
  if (!room) return;
  say<"(' LOG OF DETERMINANT OF SIGMA=', G15.6)">(outcome.log_determinant);
  if (outcome.log_likelihood != UNSET) {
    say<"(' LOG OF LIKELIHOOD FUNCTION =', G15.6)">(outcome.log_likelihood);
  }
  if (SYSCOM.PSIGMA) {
    print_system_matrix(" SIGMA                  ", outcome.used, M, equation_name, false);
    print_system_matrix(" SIGMA INVERSE          ", fit.sigma_inverse, M, equation_name, false);
    const std::span<double> R = room.words().first(packed_words(M));
    for (int i = 1; i <= M; ++i) {
      for (int j = 1; j <= i; ++j) {
        R[packed(i, j)] = outcome.used[packed(i, j)] /
                          std::sqrt(outcome.used[packed(i, i)] * outcome.used[packed(j, j)]);
      }
    }
    print_system_matrix(" CORRELATION MATRIX     ", R, M, equation_name, true);
  }
  if (M > 1) test_diagonal(model, fit.N(), outcome.tested, room.words());
  print_r_square(model, moments, fit, outcome.restrictions, room.words());
}

}  // namespace korvel
