// Columns, work space and predictions of one FCAST.

#include <algorithm>
#include <cmath>
#include <vector>

#include "engine/output.h"
#include "expr/kernels/packed.h"
#include "nonlinear/nonlinear.h"
#include "regress/fcast_parts.h"
#include "regress/regress.h"
#include "regress/tests.h"

namespace korvel {
namespace {

// They grow to the largest model of the run and stay.
std::vector<const double*> COLUMN;
std::vector<int> LAG;      // observations that a column lies behind the dependent variable
std::vector<double> ZERO;  // NLINEAR: the columns are slopes, the values of the formula stand apart

bool uses_kernel(const ForecastModel& model) {
  return model.choices == 2 && model.kind != ForecastKind::Mle;
}

// Dependent variable of every row; NaN where it isn't known.
void load_dependent(Workspace ws, const ForecastModel& model, ForecastRows& rows) {
  const std::span<const double> y = elements(ws, model.dependent.var);
  KeptRows kept(ws);
  while (kept.next()) {
    const auto r = static_cast<std::size_t>(kept.row);
    rows.obs[r] = kept.obs;
    const int place = kept.obs - model.dependent.lag;
    const bool there = place >= 1 && place <= std::ssize(y);
    const double value = there ? y[static_cast<std::size_t>(place - 1)] : MACOM.XMISS;
    rows.y[r] = value == MACOM.XMISS ? MACOM.XNAN : value;
    if (model.kind == ForecastKind::Box && there && value != MACOM.XMISS && !(value > 0.0)) {
      say<"(' NON-POSITIVE DATA FOUND IN OBSERVATION', I7)">(kept.obs);
      rows.y[r] = MACOM.XNAN;
    }
  }
}

// The effect of each row's cross-section.
void load_effects(const ForecastModel& model, std::size_t n, std::span<double> shift) {
  const auto sections = static_cast<std::size_t>(model.NCROSS);
  for (std::size_t r = 0; r < n; ++r) {
    const std::size_t own = static_cast<std::size_t>(std::max(model.CSNUMBER - 1, 0));
    shift[r] = model.effects[model.CSNUMBER > 0 ? own : r * sections / n];
  }
}

LinkKind link_kind(ForecastKind kind) {
  switch (kind) {
    case ForecastKind::Box:
      return LinkKind::box;
    case ForecastKind::Probit:
      return LinkKind::probit;
    case ForecastKind::Logit:
      return LinkKind::logit;
    case ForecastKind::Tobit:
      return LinkKind::tobit;
    default:
      return LinkKind::identity;
  }
}

YhatModel kernel_model(const ForecastModel& model, const ForecastRange& range) {
  YhatModel m;
  const auto K = static_cast<std::size_t>(model.K());
  m.b = model.kind == ForecastKind::Nlinear ? std::span<const double>(ZERO) : model.coef.first(K);
  m.link = {.kind = link_kind(model.kind),
            .lambda = model.lambda,
            .low = model.low,
            .share = model.share,
            .limit = model.limit,
            .side = model.side,
            .h = model.kind == ForecastKind::Tobit ? model.coef[K] : 1.0};
  if (model.blup) {
    m.rho = model.rho;
    m.theta = model.theta;
    // Gaps of the estimate, which is of first order then.
    m.gaps = model.kind == ForecastKind::Auto && model.stored && SAVED.gaps &&
             model.rho.size() == 1 && model.theta.empty();
    m.gap_obs = SAVED.gap_obs;
    m.gap_steps = SAVED.gap_steps;
    if (model.own_errors) m.fitted_end = SAVED.MEND;
  }
  m.iterate = range.iterate;
  m.dynamic = range.dynamic;
  m.ESTEND = range.ESTEND;
  m.XMISS = MACOM.XMISS;
  if (range.dynamic) m.lag = LAG;
  return m;
}

}  // namespace

std::int64_t plan_forecast(Workspace ws, const ForecastModel& model, const ForecastRange& range,
                           ForecastPlan& plan) {
  const bool formula = model.kind == ForecastKind::Nlinear;
  ForecastRows& rows = plan.rows;
  rows.n = static_cast<std::size_t>(DATCOM.NOB);
  plan.columns = formula ? (plan.wants_se ? nonlinear_coefficients() : 0) : model.K();
  plan.coefficients = formula ? plan.columns : static_cast<int>(model.coef.size());
  const auto K = static_cast<std::size_t>(plan.columns);
  COLUMN.assign(K, nullptr);
  LAG.assign(K, 0);
  ZERO.assign(K, 0.0);
  rows.x = COLUMN;
  if (range.dynamic) {
    find_lags(ws, model, ADDCOM.KTEST != 0 ? SAVED.MBEG : 1, range.ESTEND, LAG);
    if (!model.blup && std::ranges::count(LAG, 0) == std::ssize(LAG)) {
      warn(" ...WARNING..NO REGRESSOR IS A LAG OF THE DEPENDENT VARIABLE, DYNAMIC HAS NO EFFECT");
    }
  }
  if (uses_kernel(model)) plan.kernel = kernel_model(model, range);
  const std::int64_t n = DATCOM.NOB;
  plan.copies = LOADX_copies(model.list) * n;
  plan.cov_words = plan.wants_se && model.cov_first >= 0
                       ? static_cast<std::int64_t>(packed_words(plan.coefficients))
                       : 0;
  plan.made = 0;
  if (formula) plan.made = DATCOM.MEND - DATCOM.MBEG + 1 + n * (1 + plan.columns);
  if (!model.effects.empty()) plan.made = n;
  if (model.choices > 2) plan.made = model.choices * n;
  plan.work_words = std::max<std::int64_t>(
      {YHAT_words(plan.columns, n, plan.kernel, plan.wants_se), 2 * n, 2 * std::ssize(model.coef)});
  return plan.copies + 5 * n + plan.cov_words + plan.made + plan.work_words;
}

bool load_forecast(Workspace ws, Scratch& scratch, const ForecastModel& model,
                   const ForecastRange& range, ForecastPlan& plan) {
  ForecastRows& rows = plan.rows;
  const std::span<double> copies = scratch.take(static_cast<std::size_t>(plan.copies));
  if (!LOADX(ws, model.list, copies, COLUMN)) return false;
  rows.obs = scratch.take(rows.n);
  rows.y = scratch.take(rows.n);
  rows.yhat = scratch.take(rows.n);
  rows.index = scratch.take(rows.n);
  rows.se = scratch.take(rows.n);
  if (!plan.wants_se) rows.se = {};
  load_dependent(ws, model, rows);
  while (rows.first < rows.n && rows.obs[rows.first] < range.BEG) ++rows.first;
  plan.C = scratch.take(static_cast<std::size_t>(plan.cov_words));
  if (plan.cov_words > 0) take_covariance(model, plan.coefficients, plan.C);
  const std::span<double> made = scratch.take(static_cast<std::size_t>(plan.made));
  if (model.choices > 2) plan.P = made;
  if (!model.effects.empty()) {
    load_effects(model, rows.n, made);
    plan.kernel.shift = made;
  }
  if (model.kind == ForecastKind::Nlinear) {
    const auto K = static_cast<std::size_t>(plan.columns);
    const std::span<double> value = made.first(rows.n), slopes = made.subspan(rows.n, rows.n * K);
    if (!formula_rows(ws, model, made.subspan(rows.n * (1 + K)), value, slopes)) return false;
    for (std::size_t k = 0; k < K; ++k) COLUMN[k] = slopes.data() + k * rows.n;
    plan.kernel.shift = value;
  }
  plan.work = scratch.rest();
  return true;
}

bool predict(const ForecastModel& model, ForecastPlan& plan) {
  ForecastRows& rows = plan.rows;
  if (model.choices > 2) {
    predict_choices(model, rows, plan.P);
    return true;
  }
  if (model.kind == ForecastKind::Mle) {
    predict_family(model, rows, plan.C, plan.work);
    return true;
  }
  YhatModel& m = plan.kernel;
  YhatVariance variance{.C = plan.C};
  const bool disturbed = m.link.kind == LinkKind::identity || m.link.kind == LinkKind::box;
  if (disturbed && !FcastOption::chosen<"MEANPRED">()) variance.sigma2 = model.sigma2;
  if (FcastOption::chosen<"AFCSE">()) variance.rho_rows = SAVED.N;
  if (model.kind == ForecastKind::Pool && model.CSNUMBER == 0) {
    m.section = DATCOM.NOB / model.NCROSS;
  }
  if (model.own_errors) {
    m.fitted_start = SAVED.first_rows && model.theta.empty() && rows.obs[0] == SAVED.MBEG;
    m.first_u = SAVED.MBEG;
    m.before = SAVED.before;
  }
  const YhatResult done =
      YHAT(rows.x, rows.obs, rows.y, m, variance, rows.yhat, rows.index, rows.se, plan.work);
  if (done.IFAULT == 1) {
    fail<"(' ...ERROR..PREDICTED VALUE UNDEFINED FOR OBS. NO.', I7)">(
        static_cast<std::int64_t>(rows.obs[static_cast<std::size_t>(done.row)]));
  }
  plan.whole = static_cast<std::size_t>(done.whole);
  for (double& v : rows.se) v = std::sqrt(v);
  return done.IFAULT == 0;
}

}  // namespace korvel
