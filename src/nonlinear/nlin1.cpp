// NLIN1: a run of NLINEAR, from its lines to its results.

#include <algorithm>
#include <cmath>

#include "engine/commands.h"
#include "engine/output.h"
#include "expr/kernels/packed.h"
#include "nonlinear/nl_parts.h"
#include "nonlinear/nl_squares.h"

namespace korvel {

NlModel NLMODEL;

namespace {

constexpr int MOST_EQUATIONS = 64;

bool refuse(std::string_view text) {
  fail(text);
  return false;
}

// Form and sizes, as far as the options tell them. False after an error.
bool settle_model(NlModel& m) {
  m.neq = NLBLOCK.neq;
  m.NCOEF = NLCOM.NCOEF;
  m.form = NLCOM.LOGDENS               ? NlForm::LogDensity
           : NLCOM.DENSITY             ? NlForm::Density
           : NLCOM.MINFUNC             ? NlForm::Minimum
           : NLCOM.MAXFUNC             ? NlForm::Maximum
           : !m.instruments.empty()    ? NlForm::Moments
           : m.neq > 1 && !NLCOM.SOLVE ? NlForm::System
                                       : NlForm::Squares;
  m.weights = NlWeights::Projection;
  m.p = 0;
  if (NLCOM.AUTO) m.p = NLCOM.order_given ? NLCOM.ORDER : 1;
  if (!NLCOM.AUTO && NLCOM.order_given) {
    warn(" ...WARNING..ORDER OPTION HAS NO EFFECT WITHOUT AUTO");
  }
  if (m.neq > MOST_EQUATIONS) {
    fail<"(' ...ERROR..', I0, ' EQUATIONS ARE MORE THAN THE ', I0, ' THAT ARE ALLOWED')">(
        m.neq, MOST_EQUATIONS);
    return false;
  }
  if (m.NCOEF > DATCOM.MAXVAR / 2) {
    return refuse(" ...ERROR..DISASTER..NO ROOM FOR THIS MANY PARAMETERS, RAISE SIZE COMMAND");
  }
  if (!method_code(NLCOM.METHOD.text, 0)) {
    fail<"(' ...ERROR METHOD=', A, '   NOT VALID FOR NL')">(NLCOM.METHOD.text);
    return false;
  }
  return true;
}

// Words beside those of the data and of the evaluation.
std::int64_t fixed_words(const NlModel& m) {
  const auto triangle = [](int n) { return static_cast<std::int64_t>(packed_words(n)); };
  const int order = m.neq * m.q;
  return 3 * std::int64_t{m.K} + triangle(m.K) + 2 * triangle(m.neq) + triangle(order) + order;
}

void carve_fixed(NlModel& m, Scratch& room) {
  const auto K = static_cast<std::size_t>(m.K);
  const int order = m.neq * m.q;
  m.b = room.take(K);
  m.gradient = room.take(K);
  m.start = room.take(K);
  m.cov = room.take(packed_words(m.K));
  m.S = room.take(packed_words(m.neq));
  m.Sinverse = room.take(packed_words(m.neq));
  m.C = room.take(packed_words(order));
  m.m = room.take(static_cast<std::size_t>(order));
  std::ranges::fill(m.gradient, 0.0);
  std::ranges::fill(m.S, 0.0);
  std::ranges::fill(m.Sinverse, 0.0);
}

bool solves_one_row(const NlModel& m) {
  if (m.used() != 1) {
    error_line(" ...ERROR..SET SAMPLE COMMAND TO USE ONLY ONE ");
    return refuse(" OBSERVATION");
  }
  if (m.neq != m.NCOEF) {
    return refuse(" ...ERROR..SOLVE NEEDS AS MANY EQUATIONS AS COEFFICIENTS");
  }
  return true;
}

// Estimation behind the start values.
void estimate(Workspace ws, NlModel& m) {
  NlFunction f(m);
  const HessianFactors factors = kept_factors(m.K, NLCOM.SAME);
  NlOutcome outcome;
  if (!minimise_model(ws, m, f, factors, outcome)) return;
  NLPASS(m, m.b, !NLCOM.NUMERIC, true);
  if (m.residuals()) residual_moments(m);
  if (NLCOM.DUMP && NLCOM.METHODCODE >= 0 && !NLCOM.EVAL) print_factors(ws, m, factors);
  const NlCovariance cov = coefficient_covariance(ws, m, f, outcome, factors);
  if (OCOM.ODONT || (m.form == NlForm::System && !invert_sigma(m))) return;
  // The residuals of the solution stand in m.e again for what is printed and stored.
  NLPASS(m, m.b, false, true);
  print_results(ws, m, f, outcome, cov);
  set_results(ws, m, f, outcome, cov);
  store_nl_results(ws, m);
}

void run(Workspace ws, NlModel& m) {
  // 1. The equations, the sample.
  if (!expand_equations(ws, m) || !compile_equations(ws, m) || !settle_sample(ws, m)) return;
  if (NLCOM.SOLVE && !solves_one_row(m)) return;
  if (m.form == NlForm::Moments && m.neq * m.q < m.K) {
    return fail<
        "(' ...ERROR..', I0, ' MOMENTS ARE NOT ENOUGH FOR ', I0, ' COEFFICIENTS. ADD "
        "INSTRUMENTS')">(m.neq * m.q, m.K);
  }
  // 2. Room and data.
  const std::int64_t rows = data_words(m);
  Scratch room(ws, fixed_words(m) + rows + pass_words(m));
  if (!room) return;
  carve_fixed(m, room);
  if (!load_data(ws, m, room.take(static_cast<std::size_t>(rows)))) return;
  carve_pass(m, room.rest());
  const std::int64_t evaluation = evaluation_words(m), stream = stream_words(m);
  Scratch work(ws, evaluation + stream + stage_words(m));
  if (!work) return;
  m.pass = work.take(static_cast<std::size_t>(evaluation));
  m.stream = work.take(static_cast<std::size_t>(stream));
  m.work = work.rest();
  // 3. Start values, then the run.
  if (!settle_start(ws, m)) return;
  std::ranges::copy(m.b, m.start.begin());
  print_headline(ws, m);
  if (!NLCOM.SOLVE) return estimate(ws, m);
  solve_equations(ws, m);
  if (OCOM.ODONT) return;
  std::ranges::fill(m.cov, 0.0);
  store_nl_results(ws, m);
}

}  // namespace

void NLIN1(Workspace ws) {
  const Trace trace("NLIN1");
  NlModel& m = NLMODEL;
  clear_estimate();
  clear_faults();
  keep_instruments(ws, m);
  // The statements of the block set a working range of their own.
  const int MBEG = DATCOM.MBEG, MEND = DATCOM.MEND;
  if (!settle_model(m)) return skip_nl_block(ws);
  if (!read_nl_block(ws)) return;
  clear_estimate();
  DATCOM.MBEG = MBEG;
  DATCOM.MEND = MEND;
  run(ws, m);
}

}  // namespace korvel
