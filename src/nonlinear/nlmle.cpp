// NLMLE: maximum likelihood of the regression families. The command routine; its kernels are the
// likelihood pass (nlmle_likelihood.cpp) and the minimisers (minimise.h).

#include <algorithm>
#include <cmath>
#include <memory>

#include "data/data.h"
#include "engine/commands.h"
#include "engine/output.h"
#include "expr/kernels/packed.h"
#include "nonlinear/minimise_parts.h"
#include "nonlinear/nl_parts.h"
#include "nonlinear/nlmle_parts.h"
#include "nonlinear/nonlinear.h"
#include "platform/progress.h"
#include "regress/ols_parts.h"

namespace korvel {
namespace {

constexpr int T_ERR = temporary_place("ERR");
constexpr int FEW_ITERATIONS = 100;  // ITER below it is a limit that the user means: no polish

// What the results stage reads of the options.
void settle_stage() {
  const NlCom& o = NLCOM;
  OLSCOM = OlsCom{};
  OlsCom& s = OLSCOM;
  s.MAX = o.MAX;
  s.CONSTANT = o.CONSTANT;
  s.DUMP = o.DUMP;
  s.LIST = o.LIST;
  s.RSTAT = o.RSTAT;
  s.PCOV = o.PCOV;
  s.PCOR = o.PCOR;
  s.ANOVA = o.ANOVA || o.MAX;
  s.LOGLOG = o.LOGLOG;
  s.LOGLIN = o.LOGLIN;
  s.LINLOG = o.LINLOG;
  s.LININVER = o.LININVER;
  s.LOGINVER = o.LOGINVER;
  s.DN = true;         // tests on these models are asymptotic
  s.MULSIGSQ = false;  // the covariance has its scale
  s.PREDICT = o.PREDICT;
  s.RESID = o.RESID;
  s.COEFFICE = o.COEF;
  s.COVARIAN = o.COV;
  s.TRATIO = o.TRATIO;
  s.STDERR = o.STDERR;
  s.KID = o.IDVAR.var > 0 ? o.IDVAR.var : 0;
  s.KWT = o.WEIGHT.var > 0 ? o.WEIGHT.var : 0;
  s.weighted = s.KWT > 0;
  FCOM.NQ = 0;
}

// The family, the method and the list. False after an error.
bool settle_model(Workspace ws, const MleFamily*& family, int& largest) {
  family = find_mle_family(NLCOM.TYPE.text);
  if (family == nullptr) {
    fail(" ...ERROR..TYPE= OPTION NOT ALLOWED");
    return false;
  }
  if (!method_code(NLCOM.METHOD.text, 1)) {
    fail<"(' ...ERROR METHOD=', A, '   NOT VALID FOR MLE')">(NLCOM.METHOD.text);
    return false;
  }
  settle_stage();
  largest = collect_variables(ws);
  if (largest < 0) return false;
  if (OLSCOM.stepwise) {  // variables in parentheses
    fail(" ...ERROR..EXOGENOUS VARIABLES NOT ALLOWED");
    return false;
  }
  if (OLSCOM.lag_terms) {
    fail(" ...ERROR..INVALID LIST OF INDEPENDENT VARIABLES");
    return false;
  }
  if (OLSCOM.KWT > 0) add_weight(OLSCOM.KWT);
  return true;
}

bool settle_sample(Workspace ws, int largest) {
  if (OSCOM.ODELL) DATCOM.MBEG += largest;
  CKSMPL(ws, model_list());
  if (OCOM.ODONT) return false;
  count_rows(ws);
  return true;
}

// Sizes of a model.
struct Sizes {
  const MleFamily& family;
  int K, M;
  std::int64_t rows;
  std::size_t loaded;  // columns of LOADX

  bool keeps_log() const {
    return family.range == MleRange::positive || family.count() || family.beta();
  }
  std::int64_t work() const {
    const auto triangle = static_cast<std::int64_t>(packed_words(M + 1));
    return std::max({mle_start_words(K, rows), minimiser_words(M), newton_words(M),
                     triangle + std::int64_t{4} * (M + 1) + std::int64_t{M} * M + newton_words(M)});
  }
  // LM tests evaluate a family with one coefficient more.
  std::int64_t likelihood() const {
    const MleFamily& largest = mle_family(family.both ? MleType::GGBOTH : MleType::EDGE);
    return std::max(MleLikelihood::words(family, K, rows),
                    NLCOM.LM ? MleLikelihood::words(largest, K, rows) : 0);
  }
  std::int64_t words() const {
    const std::int64_t columns =
        2 + (keeps_log() ? 1 : 0) + (family.beta() ? 1 : 0) + LOADX_copies(model_list());
    return static_cast<std::int64_t>(loaded) + std::int64_t{2} * K + std::int64_t{3} * M +
           static_cast<std::int64_t>(packed_words(M)) + std::int64_t{2} * (M + 1) + columns * rows +
           work() + likelihood();
  }
};

// Carves the room and loads the columns. False after an error.
bool load_model(Workspace ws, Scratch& scratch, const Sizes& sizes, MleModel& m) {
  const auto K = static_cast<std::size_t>(sizes.K);
  const auto M = static_cast<std::size_t>(sizes.M);
  const auto rows = static_cast<std::size_t>(sizes.rows);
  static_assert(sizeof(const double*) <= sizeof(double));
  auto* const pointers = reinterpret_cast<const double**>(scratch.take(sizes.loaded).data());
  std::uninitialized_fill_n(pointers, sizes.loaded, nullptr);
  const std::span<const double*> loaded(pointers, sizes.loaded);
  m.b = scratch.take(M);
  m.scaled = scratch.take(M);
  m.gradient = scratch.take(M);
  m.shift = scratch.take(K);
  m.scale = scratch.take(K);
  m.cov = scratch.take(packed_words(sizes.M));
  m.means = scratch.take(M + 1);
  m.squares = scratch.take(M + 1);
  const std::span<double> copies =
      scratch.take(static_cast<std::size_t>(LOADX_copies(model_list())) * rows);
  m.fitted = scratch.take(rows);
  m.residual = scratch.take(rows);
  if (sizes.keeps_log()) m.log_y = scratch.take(rows);
  if (sizes.family.beta()) m.log_rest = scratch.take(rows);
  m.work = scratch.take(static_cast<std::size_t>(sizes.work()));
  m.likelihood_work = scratch.rest();
  if (!LOADX(ws, model_list(), copies, loaded)) return false;
  m.family = &sizes.family;
  m.list = model_list().first(K + 1);
  m.rows = {.column = loaded.first(K),
            .shift = m.shift,
            .scale = m.scale,
            .y = loaded[K],
            .log_y = m.log_y.data(),
            .log_rest = m.log_rest.data(),
            .weight = OLSCOM.KWT > 0 ? loaded.back() : nullptr,
            .weight_factor = 1.0,
            .rows = sizes.rows};
  return true;
}

// Weights have mean one, or are replications. False after an error.
bool settle_weights(Workspace ws, MleModel& m) {
  MleRows& rows = m.rows;
  m.N = static_cast<double>(rows.rows);
  if (rows.weight == nullptr) return true;
  const std::span<const double> weight(rows.weight, static_cast<std::size_t>(rows.rows));
  const double sum = usable_weights(ws, weight, OLSCOM.KWT);
  if (sum == 0.0) return false;
  if (NLCOM.NORMALIZ && NLCOM.PWEIGHT)
    rows.weight_factor = m.N / sum;
  else
    m.N = sum;
  return true;
}

void print_header(const MleModel& m) {
  if (!OCOM.OPUT) return;
  const auto n = static_cast<int>(m.rows.rows);
  Line row;
  row.put<"(1X, A, ' REGRESSION ', I6, ' OBSERVATIONS')">(m.family->word, n);
  OUTLINE();
  if (m.rows.weight != nullptr) {
    say<"(' NUMBER OF REPLICATED OBSERVATIONS =', G13.5)">(m.N);
  }
  if (m.family->range != MleRange::positive) return;
  double sum = 0.0, logs = 0.0;
  for (std::size_t t = 0; t < m.log_y.size(); ++t) {
    sum += m.rows.weight_at(t) * m.rows.y[t];
    logs += m.rows.weight_at(t) * m.log_y[t];
  }
  say<"(' SUM OF DEPVAR=', G13.5, ' SUM OF LOG DEPVAR=', G13.5)">(sum, logs);
}

// START= or the coefficients of the run before. False after an error.
bool given_start(Workspace ws, MleModel& m) {
  std::span<const double> given;
  if (!NLCOM.STARTING.text.empty())
    given = elements(ws, NLCOM.STARTING.var);
  else if (NLCOM.SAME)
    given = last_coefficients();
  else
    return true;
  if (given.size() != m.b.size()) {
    fail<"(' ...ERROR..', I0, ' STARTING VALUES FOR ', I0, ' COEFFICIENTS')">(
        static_cast<int>(given.size()), m.M());
    return false;
  }
  if (!std::ranges::all_of(given, [](double v) { return std::isfinite(v); })) {
    fail(" ...ERROR..STARTING VALUES ARE NOT NUMBERS");
    return false;
  }
  std::ranges::copy(given, m.b.begin());
  return true;
}

// The factors from which the search begins: those of the run before; the outer product of the
// gradient with OPGSTART; else second derivatives at the start, so that the search does not depend
// on the units of the columns.
void settle_factors_at_start(MleModel& m, MleLikelihood& likelihood, HessianFactors factors) {
  if (NLCOM.SAME) return;
  const std::span<double> H = m.cov;
  if (!NLCOM.OPGSTART && numeric_hessian(likelihood, m.scaled, H, m.work) && factors.factorise(H)) {
    return;
  }
  if (likelihood.outer_product(m.scaled, H) && factors.factorise(H)) return;
  factors.identity();
  if (NLCOM.OPGSTART && OCOM.OPUT) {
    say(" STARTING HESSIAN REJECTED-USING IDENTITY MATRIX INSTEAD");
  }
}

// From b to the maximum. False when the user has stopped the run or it can't begin.
bool maximise(Workspace ws, MleModel& m, MleLikelihood& likelihood, Minimum& minimum) {
  const Objective::Value start = likelihood.evaluate(m.scaled, {});
  if (!start.good) {
    error_line(" ...ERROR..THE STARTING VALUES GIVE NO LIKELIHOOD ");
    fail(" RERUN WITH THE START= OPTION");
    return false;
  }
  likelihood.breaks_off = true;
  const MinimiserReport report{.label = " LOG-LIKELIHOOD FUNCTION= ", .scale = -1.0, .heading = {}};
  if (NLCOM.EVAL) {
    minimum.f = start.f;
    minimum.converged = true;
    if (OCOM.OPUT) say<"(' LOG-LIKELIHOOD FUNCTION= ', G15.7)">(-start.f);
    return true;
  }
  if (NLCOM.METHODCODE == -1 || NLCOM.HYBRID) {
    // Bounds and steps of the annealing are in the units of the data.
    const auto K = static_cast<std::size_t>(m.K());
    MleRows plain = m.rows;
    std::ranges::fill(m.gradient, 0.0);
    std::ranges::fill(m.cov, 1.0);
    plain.shift = m.gradient.first(K);
    plain.scale = m.cov.first(K);
    MleLikelihood as_listed(*m.family, plain, m.likelihood_work);
    minimum = ANNEAL(ws, as_listed, m.b, m.work, report).minimum;
    if (OCOM.ODONT) return false;
    mle_to_units(*m.family, m.rows, m.b, m.scaled);
  }
  if (NLCOM.METHODCODE != -1 && !minimum.stopped) {
    const HessianFactors factors = kept_factors(m.M(), NLCOM.SAME);
    settle_factors_at_start(m, likelihood, factors);
    minimum = NLQN(likelihood, m.scaled, m.gradient, factors, report, m.work);
    if (minimum.stopped) minimum.f = std::min(minimum.f, start.f);
  }
  const bool polish = !minimum.stopped && NLCOM.ITER >= FEW_ITERATIONS && NLCOM.METHODCODE != -1;
  if (polish) {
    const double f = newton_polish(likelihood, m.scaled, m.gradient, m.work);
    if (!stop_requested() || f < minimum.f) minimum.f = f;
  }
  minimum.stopped = minimum.stopped || stop_requested();
  return !OCOM.ODONT;
}

// What a further Newton step would add to the likelihood: 0 at a maximum.
double expected_gain(const MleModel& m) {
  double sum = 0.0;
  for (int i = 1; i <= m.M(); ++i) {
    for (int j = 1; j <= m.M(); ++j) {
      sum += m.gradient[static_cast<std::size_t>(i) - 1] * m.cov[packed(i, j)] *
             m.gradient[static_cast<std::size_t>(j) - 1];
    }
  }
  return 0.5 * sum;
}

}  // namespace

void NLMLE(Workspace ws) {
  const Trace trace("NLMLE");
  clear_estimate();
  // 1. The model and the sample.
  const MleFamily* family = nullptr;
  int largest = 0;
  if (!settle_model(ws, family, largest)) return;
  if (!settle_sample(ws, largest)) return;
  const int K = OLSCOM.NF - 1;
  const int M = mle_coefficients(*family, K);
  if (DATCOM.NOB < M) {
    return fail<"(' ...ERROR..FEWER OBSERVATIONS THAN VARIABLES:', I10)">(std::max(DATCOM.NOB, 0));
  }
  // 2. Room, columns, weights, the range of the dependent variable.
  const Sizes sizes{*family, K, M, DATCOM.NOB, model_list().size()};
  Scratch scratch(ws, sizes.words());
  if (!scratch) return;
  MleModel m;
  if (!load_model(ws, scratch, sizes, m) || !settle_weights(ws, m)) return;
  if (!settle_dependent(ws, m)) return;
  settle_moments(m);
  settle_units(m);
  print_header(m);
  // 3. Start values.
  if (!mle_start(ws, m) || !given_start(ws, m)) return;
  mle_to_units(*family, m.rows, m.b, m.scaled);
  tell_shapes(ws, m);
  // 4. The maximum.
  MleLikelihood likelihood(*family, m.rows, m.likelihood_work);
  if (NLCOM.NUMERIC) {
    likelihood.analytic = false;
    if (OCOM.OPUT) say(" ..ALGORITHM USES NUMERIC DERIVATIVES");
  }
  const double ERR = temporary(T_ERR);
  Minimum minimum;
  auto progress = std::make_unique<Progress>("ESTIMATING", search_evaluations(m.M()), OCOM.OPUT);
  likelihood.progress = progress.get();
  if (!maximise(ws, m, likelihood, minimum)) return;
  progress->hide();
  // 5. The covariance. A search that failed on the way may still have reached the maximum.
  const bool good = !minimum.stopped &&
                    (stability_at_bound(m, likelihood, minimum) || mle_covariance(m, likelihood));
  likelihood.breaks_off = false;
  likelihood.progress = nullptr;
  progress.reset();
  m.LLF = -minimum.f;
  if (minimum.stopped || stop_requested()) {
    mle_from_units(*family, m.rows, m.scaled, m.b);
    return leave_stopped(ws, m.b,
                         [&](std::size_t i) { return mle_name(ws, m, static_cast<int>(i)); });
  }
  if (minimum.ERR == ERR_SEARCH && good) {
    const bool reached = expected_gain(m) <= 1e-6 * (1.0 + std::fabs(m.LLF));
    temporary(T_ERR) = reached ? ERR : ERR_MLE_SEARCH;
  } else if (minimum.ERR == ERR_SEARCH) {
    temporary(T_ERR) = ERR_MLE_SEARCH;
  }
  mle_from_units(*family, m.rows, m.scaled, m.b);
  mle_covariance_from_units(*family, m.rows, m.cov);
  if (NLCOM.DUMP && good) {
    say(" INV OF SECOND DERIVS   ");
    print_mle_triangle(m.cov, M, 1.0);
  }
  // 6. Tables, stored results, tests.
  mle_results(ws, m);
}

}  // namespace korvel
