// GME: the command routine of maximum entropy. Options are in NLCOM; the list is the dependent
// variable and its regressors.

#include "nonlinear/gme.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include "data/data.h"
#include "engine/output.h"
#include "expr/kernels/packed.h"
#include "nonlinear/minimise_parts.h"
#include "nonlinear/nonlinear.h"
#include "nonlinear/row_qr.h"
#include "regress/ols_parts.h"

namespace korvel {
namespace {

// What the results stage and the loading of columns read.
void set_stage() {
  const NlCom& o = NLCOM;
  OLSCOM = OlsCom{};
  OLSCOM.MAX = o.MAX;
  OLSCOM.CONSTANT = o.CONSTANT;
  OLSCOM.DN = o.DN;
  OLSCOM.LIST = o.LIST;
  OLSCOM.RSTAT = o.RSTAT;
  OLSCOM.PCOV = o.PCOV;
  OLSCOM.PCOR = o.PCOR;
  OLSCOM.LOGLOG = o.LOGLOG;
  OLSCOM.LOGLIN = o.LOGLIN;
  OLSCOM.LINLOG = o.LINLOG;
  OLSCOM.LININVER = o.LININVER;
  OLSCOM.LOGINVER = o.LOGINVER;
  OLSCOM.KID = std::max(0, o.IDVAR.var);
  OLSCOM.PREDICT = o.PREDICT;
  OLSCOM.RESID = o.RESID;
  OLSCOM.COEFFICE = o.COEF;
  OLSCOM.COVARIAN = o.COV;
  OLSCOM.TRATIO = o.TRATIO;
  OLSCOM.STDERR = o.STDERR;
}

// The model and the sample. False after an error.
bool take_sample(Workspace ws) {
  const int largest = collect_variables(ws);
  if (largest < 0) return false;
  if (OLSCOM.stepwise || OLSCOM.lag_terms) {
    return incompatible_options();
  }
  if (OSCOM.ODELL) DATCOM.MBEG += largest;
  CKSMPL(ws, model_list());
  if (OCOM.ODONT) return false;
  count_rows(ws);
  if (DATCOM.NOB < 1) {
    fail<"(' ...ERROR..', I6, ' OBSERVATIONS IS NOT ENOUGH FOR ESTIMATION')">(DATCOM.NOB);
    return false;
  }
  return true;
}

// A matrix of points or weights with a row for each of `count` distributions. One row, or a vector,
// serves all of them. N x J matrices of errors have a row for each observation in use.
struct Matrix {
  std::span<const double> values;
  int rows = 1, size = 0;
};
bool take_matrix(Workspace ws, const NameOption& option, int count, Matrix& matrix) {
  if (option.var <= 0) {
    fail<"(' ...ERROR..VARIABLE ', A, ' IS NOT VALID')">(option.text);
    return false;
  }
  const Place place = INFO(ws, option.var);
  if (OCOM.ODONT) return false;
  matrix.values = elements(ws, option.var);
  const bool column = place.columns() <= 1;
  matrix.rows = column ? 1 : place.rows();
  matrix.size = column ? place.LEN : place.N2;
  const bool numbers = place.ITYPE == SERIES || place.ITYPE == MATRIX2;
  return numbers && (matrix.rows == 1 || matrix.rows == count) && matrix.size >= 2 &&
         std::ranges::all_of(matrix.values, [](double v) { return std::isfinite(v); });
}

bool wrong(std::string_view text) {
  if (!OCOM.ODONT) fail(text);
  return false;
}

// False after an error, which names the option whose size is wrong.
bool take_supports(Workspace ws, GmeModel& m) {
  const NlCom& o = NLCOM;
  if (o.ZENTROPY.text.empty() || o.VENTROPY.text.empty()) {
    return wrong(" ...ERROR..GME NEEDS THE SUPPORT POINTS ZENTROPY= AND VENTROPY=");
  }
  Matrix Z, V, q, u;
  if (!take_matrix(ws, o.ZENTROPY, m.K, Z)) return wrong(" ...ERROR..WRONG LENGTH ZENTROPY");
  if (!take_matrix(ws, o.VENTROPY, m.T, V)) return wrong(" ...ERROR..WRONG LENGTH VENTROPY");
  if (!o.QPRIOR.text.empty()) {
    if (!take_matrix(ws, o.QPRIOR, m.K, q)) return wrong(" ...ERROR..WRONG LENGTH QPRIOR");
    if (q.size != Z.size) return wrong(" ...ERROR..QPRIOR DIM DOES NOT MATCH ZENTROPY");
  }
  if (!o.UPRIOR.text.empty()) {
    if (!take_matrix(ws, o.UPRIOR, m.T, u)) return wrong(" ...ERROR..WRONG LENGTH UPRIOR");
    if (u.size != V.size) return wrong(" ...ERROR..UPRIOR DIM DOES NOT MATCH VENTROPY");
  }
  m.Z = {
      .points = Z.values, .priors = q.values, .size = Z.size, .rows = Z.rows, .prior_rows = q.rows};
  m.V = {
      .points = V.values, .priors = u.values, .size = V.size, .rows = V.rows, .prior_rows = u.rows};
  m.cross = !q.values.empty() || !u.values.empty();
  const auto weights = [](std::span<const double> values, std::string_view option) {
    if (std::ranges::all_of(values, [](double v) { return v > 0.0; })) return true;
    fail<"(' ...ERROR..', A, ' HOLDS WEIGHTS THAT ARE NOT POSITIVE')">(option);
    return false;
  };
  return weights(q.values, "QPRIOR") && weights(u.values, "UPRIOR");
}

std::int64_t room_words(const GmeModel& m) {
  const std::int64_t T = m.T, K = m.K;
  const std::int64_t kept = 4 * T + 3 * K + K * m.Z.size + K + 1 + T;
  const std::int64_t data = LOADX_copies(model_list()) * T;
  const std::int64_t search = minimiser_words(m.T) + HessianFactors::words(m.T);
  const std::int64_t later = std::max(gme_newton_words(m.T, m.K), gme_out_words(m.T, m.K));
  return kept + data + std::max(search, later);
}

// Shares the room; what is left of it serves the search and then the results.
bool load_model(Workspace ws, GmeModel& m, Scratch& room) {
  const auto T = static_cast<std::size_t>(m.T), K = static_cast<std::size_t>(m.K);
  static_assert(sizeof(const double*) <= sizeof(double));
  auto* const pointers = reinterpret_cast<const double**>(room.take(K + 1).data());
  std::uninitialized_fill_n(pointers, K + 1, nullptr);
  m.column = {pointers, K + 1};
  m.lambda = room.take(T);
  m.gradient = room.take(T);
  m.e = room.take(T);
  m.spread = room.take(T);
  m.b = room.take(K);
  m.variance = room.take(K);
  m.entropy = room.take(K);
  m.p = room.take(K * static_cast<std::size_t>(m.Z.size));
  const std::span<double> ones = room.take(T);
  const std::span<double> copies =
      room.take(static_cast<std::size_t>(LOADX_copies(model_list())) * T);
  if (!LOADX(ws, model_list(), copies, m.column)) return false;
  std::ranges::fill(ones, 1.0);
  for (std::size_t c = 0; c <= K; ++c) {
    const double*& column = m.column[c];
    if (column == nullptr) column = ones.data();
    if (!std::all_of(column, column + T, [](double v) { return std::isfinite(v); })) {
      return refuse_values(ws, model_list()[c].var);
    }
  }
  std::ranges::fill(m.lambda, 0.0);
  return true;
}

void print_header(Workspace ws, const GmeModel& m) {
  say(m.heading());
  say<"(I9, ' OBSERVATIONS', 5X, 'DEPENDENT VARIABLE= ', A)">(m.T,
                                                              NAME(ws, model_list().back().var));
  say<"(' ...NOTE..SAMPLE RANGE SET TO:', I7, ',', I7)">(DATCOM.MBEG, DATCOM.MEND);
  say<"(I9, ' SUPPORT POINTS OF A COEFFICIENT', I9, ' OF AN ERROR')">(m.Z.size, m.V.size);
}

// The minimiser that METHOD= names, then Newton steps. False when there is nothing to print.
bool solve(Workspace ws, GmeModel& m, std::span<double> work) {
  GmeDual dual(m);
  dual.analytic = !NLCOM.NUMERIC;
  const MinimiserReport report{.heading = m.heading()};
  const auto words = static_cast<std::size_t>(minimiser_words(m.T));
  const std::span<double> room = work.first(words);
  HessianFactors factors{
      .LD = work.subspan(words, static_cast<std::size_t>(HessianFactors::words(m.T))), .n = m.T};
  factors.identity();
  Minimum minimum;
  const bool annealed = NLCOM.METHODCODE < 0 || NLCOM.HYBRID;
  if (annealed) minimum = ANNEAL(ws, dual, m.lambda, room, report).minimum;
  if (OCOM.ODONT) return false;
  if (!minimum.stopped && NLCOM.METHODCODE == 0) {
    minimum = NLFMIN(dual, m.lambda, m.gradient, factors, report, room, true);
  } else if (!minimum.stopped && NLCOM.METHODCODE > 0) {
    minimum = NLQN(dual, m.lambda, m.gradient, factors, report, room);
  }
  if (minimum.stopped) {
    say<"(' ...NOTE..STOPPED AT ITERATION', I4)">(minimum.iterations);
    return false;
  }
  // Fewer iterations than the user allows are not polished away.
  constexpr int FULL_ITER = 100;
  bool reached = minimum.converged;
  if (NLCOM.ITER >= FULL_ITER) {
    dual.analytic = true;
    reached = gme_newton(m, dual, work);
  } else {
    dual.evaluate(m.lambda, m.gradient);
  }
  if (!reached) {
    warn(" ...WARNING..MAXIMUM NUMBER OF ITERATIONS EXCEEDED");
    warn(" THE DATA MAY LIE BEYOND WHAT THE SUPPORT POINTS ALLOW");
    temporary(temporary_place("ERR")) = ERR_LIMIT;
  }
  return true;
}

// Weights that have run into their limit give no estimate.
bool weights_positive(const GmeModel& m) {
  for (std::size_t i = 0; i < m.p.size(); ++i) {
    if (m.p[i] > 0.0) continue;
    fail<"(' GME STOPPED BECAUSE P(', I0, ') NOT POSITIVE:', G13.5)">(static_cast<int>(i) + 1,
                                                                      m.p[i]);
    return false;
  }
  return true;
}

}  // namespace

void GME(Workspace ws) {
  const Trace trace("GME");
  clear_estimate();
  // 1. Options.
  if (!method_code(NLCOM.METHOD.text, 0)) {
    return fail<"(' ...ERROR METHOD=', A, '   NOT VALID FOR NL')">(NLCOM.METHOD.text);
  }
  set_stage();
  // 2. The model, the sample, the support points.
  GmeModel m;
  if (!take_sample(ws)) return;
  m.T = DATCOM.NOB;
  m.K = OLSCOM.NF - 1;
  if (!take_supports(ws, m)) return;
  Scratch room(ws, room_words(m));
  if (!room || !load_model(ws, m, room)) return;
  if (OCOM.OPUT) print_header(ws, m);
  // 3. The minimum of the dual function.
  if (!solve(ws, m, room.rest()) || !weights_positive(m)) return;
  // 4. Results.
  gme_results(ws, m, room.rest());
}

}  // namespace korvel
