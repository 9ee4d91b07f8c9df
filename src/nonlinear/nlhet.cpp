// NLHET: regression with changing variance (HETERO). The command routine: the model list, the
// sample, room and columns, and the steps from the start values to the results.

#include "nonlinear/nlhet.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>

#include "data/data.h"
#include "engine/output.h"
#include "expr/kernels/packed.h"
#include "nonlinear/minimise_parts.h"
#include "nonlinear/nl_parts.h"
#include "platform/progress.h"
#include "regress/ols_parts.h"
#include "regress/tests.h"

namespace korvel {

HetModel HETMODEL;

namespace {

constexpr int T_ERR = temporary_place("ERR");
constexpr double ERR_MODEL = 79001;

constexpr std::string_view FORMS[] = {"ARCH", "DEPVAR", "VARLIN", "STDLIN", "MULT"};

// Names of coefficients that stand on no variable; they grow to the longest list of the run.
std::vector<std::string> NAMES;

// What the results stage reads of the options.
void settle_stage() {
  const NlCom& o = NLCOM;
  OLSCOM = OlsCom{};
  OlsCom& s = OLSCOM;
  s.CONSTANT = o.CONSTANT;
  s.RSTAT = o.RSTAT;
  s.LOGLOG = o.LOGLOG;
  s.LOGLIN = o.LOGLIN;
  s.LINLOG = o.LINLOG;
  s.LININVER = o.LININVER;
  s.LOGINVER = o.LOGINVER;
  s.DN = o.DN;
  s.MULSIGSQ = false;  // the covariance has its scale
  s.PREDICT = o.PREDICT;
  s.RESID = o.RESID;
  s.COEFFICE = o.COEF;
  s.COVARIAN = o.COV;
  s.TRATIO = o.TRATIO;
  s.STDERR = o.STDERR;
  s.KWT = o.WEIGHT.var > 0 ? o.WEIGHT.var : 0;
  s.weighted = s.KWT > 0;
  FCOM.NQ = 0;
}

// MODEL=, METHOD= and what they allow. False after an error.
bool settle_form(HetForm& form) {
  const NlCom& o = NLCOM;
  form = o.arch_given || o.garch_given ? HetForm::ARCH : HetForm::DEPVAR;
  if (!o.MODEL.text.empty()) {
    const auto* const found = std::ranges::find(FORMS, trimmed(o.MODEL.text));
    if (found == std::end(FORMS)) {
      fail(" ...ERROR..INVALID MODEL= OPTION");
      temporary(T_ERR) = ERR_MODEL;
      return false;
    }
    form = static_cast<HetForm>(found - std::begin(FORMS));
  }
  if (form != HetForm::ARCH && (o.ARCH > 0 || o.GARCH > 0 || o.ARCHM != NO_ARCHM)) {
    fail(" ...ERROR..ARCH ERRORS NOT ALLOWED");
    return false;
  }
  if (!std::isfinite(o.ARCHM)) {
    return bad_option_value("ARCHM");
  }
  if (!method_code(o.METHOD.text, 1)) {
    fail<"(' ...ERROR..METHOD=', A, '   NOT VALID FOR HET')">(o.METHOD.text);
    return false;
  }
  return true;
}

// Parts the listed variables into those of the mean and those of the variance, and names the
// coefficients. False after an error.
bool settle_list(Workspace ws, HetModel& m, int& largest) {
  HetRows& r = m.rows;
  largest = collect_variables(ws);
  if (largest < 0) return false;
  if (OLSCOM.lag_terms) {
    fail(" ...ERROR..INVALID LIST OF INDEPENDENT VARIABLES");
    return false;
  }
  m.loaded.clear();
  m.list.clear();
  const std::span<const ListItem> listed = model_list();
  const auto regressors = listed.first(static_cast<std::size_t>(OLSCOM.NF - 1));
  // 1. The mean equation. A group in parentheses belongs to the variance.
  for (const ListItem& item : regressors) {
    if (!item.group) m.loaded.push_back(item);
  }
  r.K = m.regressors = static_cast<int>(m.loaded.size());
  m.list = m.loaded;
  // 2. The variance equation.
  const bool grouped = OLSCOM.stepwise;
  OLSCOM.stepwise = false;
  const ListItem constant{.var = DATCOM.MCON, .name = {}};
  if (r.form == HetForm::DEPVAR) {
    if (grouped) {
      fail(" ...ERROR..EXOGENOUS VARIABLES NOT ALLOWED");
      return false;
    }
  } else if (grouped) {
    for (const ListItem& item : regressors) {
      if (item.group) m.loaded.push_back(item);
    }
    if (OLSCOM.CONSTANT && r.form != HetForm::ARCH) m.loaded.push_back(constant);
  } else if (r.form != HetForm::ARCH) {
    if (OCOM.OPUT) {
      say(" ...NOTE..THE VARIANCE EQUATION EXOGENOUS VARIABLES ");
      say(" ARE SET TO THE MEAN EQUATION EXOGENOUS VARIABLES");
    }
    m.loaded.insert(m.loaded.end(), m.list.begin(), m.list.end());
  }
  r.M = static_cast<int>(m.loaded.size()) - m.regressors;
  // 3. Names. Coefficients of the variance equation have no variable of their own: elasticities
  //    and the like are those of the mean.
  NAMES.clear();
  if (r.arch_m()) NAMES.emplace_back("GAMMA");
  if (r.form == HetForm::ARCH) NAMES.emplace_back("CONSTANT");
  if (r.form == HetForm::DEPVAR) NAMES.emplace_back("ALPHA");
  for (int k = 0; k < r.M; ++k) {
    NAMES.emplace_back(NAME(ws, m.loaded[static_cast<std::size_t>(m.regressors + k)].var));
  }
  for (int k = 1; k <= r.p; ++k) NAMES.push_back("ALPHA" + std::to_string(k));
  for (int k = 1; k <= r.q; ++k) NAMES.push_back("PHI" + std::to_string(k));
  for (const std::string& name : NAMES) m.list.push_back(ListItem{.name = name});
  const ListItem dependent = listed[static_cast<std::size_t>(OLSCOM.NF - 1)];
  m.list.push_back(dependent);
  m.loaded.push_back(dependent);
  if (OLSCOM.KWT > 0) m.loaded.push_back(ListItem{.var = OLSCOM.KWT, .name = {}});
  return true;
}

bool settle_sample(Workspace ws, const HetModel& m, int largest) {
  if (OSCOM.ODELL) DATCOM.MBEG += largest;
  CKSMPL(ws, m.loaded);
  if (OCOM.ODONT) return false;
  count_rows(ws);
  if (DATCOM.NOB <= m.P()) {
    fail<"(' ...ERROR..', I6, ' OBSERVATIONS IS NOT ENOUGH FOR ESTIMATION')">(
        std::max(DATCOM.NOB, 0));
    return false;
  }
  return true;
}

std::int64_t value_words(const HetRows& r) {
  return std::max(het_value_words(r), het_pass_words(r));
}

std::int64_t model_words(const HetModel& m, std::int64_t rows) {
  const HetRows& r = m.rows;
  const int P = m.P();
  const auto packed_P = static_cast<std::int64_t>(packed_words(P));
  const std::int64_t by_rows = HetRows::padded(r.K) + HetRows::padded(r.M) + 2 +
                               (OLSCOM.weighted ? 1 : 0) + LOADX_copies(m.loaded);
  const std::int64_t room = std::max({het_start_words(m), minimiser_words(P), het_cov_words(P)});
  return by_rows * rows + std::int64_t{5} * P + 2 + packed_P + value_words(r) + room;
}

// Carves the room, loads the columns, and lays the rows of X and Z out. False after an error.
bool load_model(Workspace ws, Scratch& scratch, HetModel& m) {
  HetRows& r = m.rows;
  const auto rows = static_cast<std::size_t>(r.rows), P = static_cast<std::size_t>(m.P());
  const std::span<double> X = scratch.take(rows * static_cast<std::size_t>(HetRows::padded(r.K)));
  const std::span<double> Z = scratch.take(rows * static_cast<std::size_t>(HetRows::padded(r.M)));
  m.e = scratch.take(rows);
  m.h = scratch.take(rows);
  std::span<double> weight;
  if (OLSCOM.weighted) weight = scratch.take(rows);
  const std::span<double> copies =
      scratch.take(static_cast<std::size_t>(LOADX_copies(m.loaded)) * rows);
  m.b = scratch.take(P);
  m.gradient = scratch.take(P);
  m.scale = scratch.take(P);
  m.means = scratch.take(P + 1);
  m.squares = scratch.take(P + 1);
  m.cov = scratch.take(packed_words(m.P()));
  m.work = scratch.take(static_cast<std::size_t>(value_words(r)));
  m.room = scratch.rest();
  m.column.assign(m.loaded.size(), nullptr);
  if (!LOADX(ws, m.loaded, copies, m.column)) return false;
  const auto finite = [&](std::size_t c) {
    return m.column[c] == nullptr ||
           std::all_of(m.column[c], m.column[c] + rows, [](double v) { return std::isfinite(v); });
  };
  for (std::size_t c = 0; c < m.column.size(); ++c) {
    if (!finite(c)) return refuse_values(ws, m.loaded[c].var);
  }
  const auto lay_out = [&](std::span<double> to, std::size_t first, int count) {
    const auto wide = static_cast<std::size_t>(HetRows::padded(count));
    std::ranges::fill(to, 0.0);
    for (std::size_t k = 0; k < static_cast<std::size_t>(count); ++k) {
      const double* const from = m.column[first + k];
      for (std::size_t t = 0; t < rows; ++t) to[t * wide + k] = from == nullptr ? 1.0 : from[t];
    }
  };
  lay_out(X, 0, r.K);
  lay_out(Z, static_cast<std::size_t>(m.regressors), r.M);
  r.column = m.column.data();
  r.X = X.data();
  r.Z = Z.data();
  r.y = m.column[static_cast<std::size_t>(m.regressors + r.M)];
  r.weight = weight.empty() ? nullptr : weight.data();
  std::ranges::fill(m.b, 0.0);
  if (!weight.empty()) std::copy_n(m.column.back(), rows, weight.begin());
  return true;
}

// Weights have mean one or, with NONORMAL or NOPWEIGHT, are replications. False after an error.
bool settle_weights(Workspace ws, HetModel& m, std::span<double> weight) {
  m.N = static_cast<double>(m.rows.rows);
  if (weight.empty()) return true;
  const double sum = usable_weights(ws, weight, OLSCOM.KWT);
  if (sum == 0.0) return false;
  if (NLCOM.NORMALIZ && NLCOM.PWEIGHT) {
    for (double& w : weight) w *= m.N / sum;
  } else {
    m.N = sum;
  }
  return true;
}

// START= and IN= over the values that are there. False after an error.
bool given_start(Workspace ws, HetModel& m) {
  if (!NLCOM.STARTING.text.empty()) {
    const std::span<const double> given = elements(ws, NLCOM.STARTING.var);
    if (given.size() != m.b.size()) {
      fail<"(' ...ERROR..', I0, ' STARTING VALUES FOR ', I0, ' COEFFICIENTS')">(
          static_cast<int>(given.size()), m.P());
      return false;
    }
    std::ranges::copy(given, m.b.begin());
  }
  if (NLCOM.IN != 0 && !read_parameters(NLCOM.IN, "HET", m.b)) return false;
  if (std::ranges::all_of(m.b, [](double v) { return std::isfinite(v); })) return true;
  fail(" ...ERROR..STARTING VALUES ARE NOT NUMBERS");
  return false;
}

// The log-likelihood at the start. False, with what to do told, when there is none.
bool check_start(HetModel& m, HetFunction& f) {
  f.quiet = true;
  const Objective::Value start = f.evaluate(m.b, f.analytic ? m.gradient : std::span<double>{});
  f.quiet = false;
  m.LLF = -start.f;
  if (start.good) return true;
  error_line(" THE STARTING VALUES GIVE NEGATIVE VARIANCE OR ");
  error_line(" OVERFLOWS ");
  fail(" RERUN WITH THE START= OPTION");
  return false;
}

// From the start to the maximum; `factors` are those that NLQN leaves. False when the run can't go
// on.
bool maximise(Workspace ws, HetModel& m, HetFunction& f, HessianFactors factors, Minimum& minimum) {
  const MinimiserReport report{.label = " LOG-LIKELIHOOD FUNCTION= ", .scale = -1.0, .heading = {}};
  if (NLCOM.METHODCODE == -1 || NLCOM.HYBRID) {
    f.quiet = true;  // most of the points that annealing tries have no value
    const Annealed annealed = ANNEAL(ws, f, m.b, m.room, report);
    f.quiet = false;
    minimum = annealed.minimum;
    if (OCOM.ODONT) return false;
  }
  if (NLCOM.METHODCODE == -1 || minimum.stopped) return true;
  HessianFactors(factors).identity();
  if (NLCOM.OPGSTART) {
    const bool good = FUNCHF(m, {}, m.cov) && HessianFactors(factors).factorise(m.cov);
    if (!good) {
      HessianFactors(factors).identity();
      if (OCOM.OPUT) say(" STARTING HESSIAN REJECTED-USING IDENTITY MATRIX INSTEAD");
    }
  }
  minimum = NLQN(f, m.b, m.gradient, factors, report, m.room);
  return !OCOM.ODONT;
}

// Estimation with the columns in place.
void estimate(Workspace ws, HetModel& m) {
  // 1. The start.
  if (!het_least_squares(ws, m)) return;
  if (OCOM.OPUT) print_het_header(m);
  if (!het_start(ws, m) || !given_start(ws, m)) return;
  HetFunction f(ws, m);
  f.analytic = !NLCOM.NUMERIC;
  if (!check_start(m, f)) return;
  // 2. The maximum. EVAL stays at the start, as ITER=0 does.
  const HessianFactors factors = kept_factors(m.P(), false);
  const bool annealed = NLCOM.METHODCODE == -1;
  const bool at_start = NLCOM.EVAL || (NLCOM.ITER == 0 && !annealed);
  const double ERR = temporary(T_ERR);
  Progress progress("ESTIMATING", search_evaluations(m.P()), OCOM.OPUT);
  f.progress = &progress;
  Minimum minimum;
  if (!NLCOM.EVAL && !maximise(ws, m, f, factors, minimum)) return;
  const auto stopped = [&] {
    if (!minimum.stopped && !stop_requested()) return false;
    progress.hide();
    leave_stopped(ws, m.b, [&](std::size_t i) {
      const ListItem& item = m.list[i];
      return item.var > 0 ? NAME(ws, item.var) : item.name;
    });
    return true;
  };
  if (stopped()) return;
  f.quiet = true;
  if (!at_start && minimum.ERR != ERR_LIMIT) {
    het_polish(m, f);
    // A search that rounding has ended close to the maximum is no failure.
    if (stopped()) return;
    if (minimum.ERR == ERR_SEARCH && at_maximum(m)) temporary(T_ERR) = ERR;
  }
  // 3. The covariance, tables, stored results.
  const HessianFactors left = at_start || annealed ? HessianFactors{} : factors;
  progress.hide();
  const HetCovariance kind = het_covariance(m, f, at_start, annealed, left);
  if (stopped()) return;
  progress.hide();
  f.progress = nullptr;
  m.LLF = -f.evaluate(m.b, {}).f;
  print_het_results(ws, m, kind);
  if (OCOM.ODONT) return;
  if (NLCOM.OUT != 0) write_parameters(NLCOM.OUT, m.b);
}

}  // namespace

// ---- FUNCHE, FUNCHF

HetFunction::HetFunction(Workspace ws, HetModel& model) : ws_(ws), m_(model) {}

Objective::Value HetFunction::evaluate(std::span<const double> b, std::span<double> gradient) {
  const HetValue value = het_value(m_.rows, b, m_.e, m_.h, gradient, m_.work);
  for (double& g : gradient) g = -g;
  if (progress != nullptr) progress->add(1);
  NLCOM.GOODFUN = value.fault == HetFault::none;
  if (NLCOM.GOODFUN) return {.f = -value.L, .good = std::isfinite(value.L)};
  bool& told = value.fault == HetFault::variance ? told_variance_ : told_overflow_;
  if (!quiet && !told) {
    told = true;
    KeptRows kept(ws_);
    for (std::int64_t t = 0; t <= value.row; ++t) kept.next();
    if (value.fault == HetFault::variance)
      warn<"(' ...WARNING..NEGATIVE VARIANCE CORRECTION AT ', ' OBS.=', I7)">(kept.obs);
    else
      warn<"(' ...WARNING..RESIDUAL OVERFLOW AT OBS.=', I7)">(kept.obs);
  }
  return {.f = HUGE_VAL, .good = false};
}

Objective::Value HetScaled::evaluate(std::span<const double> x, std::span<double> gradient) {
  for (std::size_t i = 0; i < x.size(); ++i) b_[i] = x[i] * scale_[i];
  const Value value = function_.evaluate(b_, gradient);
  for (std::size_t i = 0; i < gradient.size(); ++i) gradient[i] *= scale_[i];
  return value;
}

bool FUNCHF(HetModel& m, std::span<double> information, std::span<double> outer) {
  const HetValue value =
      het_pass(m.rows, m.b, {.information = information, .outer = outer}, m.work);
  return value.fault == HetFault::none;
}

void NLHET(Workspace ws) {
  const Trace trace("NLHET");
  HetModel& m = HETMODEL;
  clear_estimate();
  // 1. The model.
  m.rows = HetRows{};
  HetRows& r = m.rows;
  if (!settle_form(r.form)) return;
  if (r.form == HetForm::ARCH) {
    r.p = NLCOM.ARCH;
    r.q = NLCOM.GARCH;
    r.power = NLCOM.ARCHM;
  }
  settle_stage();
  int largest = 0;
  if (!settle_list(ws, m, largest)) return;
  // 2. The sample, room, columns.
  if (!settle_sample(ws, m, largest)) return;
  r.rows = DATCOM.NOB;
  Scratch scratch(ws, model_words(m, r.rows));
  if (!scratch || !load_model(ws, scratch, m)) return;
  const std::span<double> weight =
      r.weight == nullptr
          ? std::span<double>{}
          : std::span(const_cast<double*>(r.weight), static_cast<std::size_t>(r.rows));
  if (!settle_weights(ws, m, weight)) return;
  // 3. The estimate.
  estimate(ws, m);
}

}  // namespace korvel
