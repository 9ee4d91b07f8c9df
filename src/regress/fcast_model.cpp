// The model of a forecast: from the last estimate, or from a list and COEF=.

#include <algorithm>
#include <cmath>
#include <vector>

#include "engine/commands.h"
#include "engine/output.h"
#include "expr/kernels/packed.h"
#include "nonlinear/nonlinear.h"
#include "regress/fcast_parts.h"
#include "regress/regress.h"
#include "regress/tests.h"

namespace korvel {
namespace {

// Words of MODEL=, and the estimators that they stand for.
struct ModelWord {
  std::string_view word;
  ForecastKind kind;
};
constexpr ModelWord MODELWORDS[] = {
    {"OLS", ForecastKind::Linear},      {"AUTO", ForecastKind::Auto},
    {"BOX", ForecastKind::Box},         {"PROBIT", ForecastKind::Probit},
    {"LOGIT", ForecastKind::Logit},     {"TOBIT", ForecastKind::Tobit},
    {"GLS", ForecastKind::Linear},      {"2SLS", ForecastKind::Linear},
    {"NLINEAR", ForecastKind::Nlinear}, {"DLAG", ForecastKind::Linear},
    {"POOL", ForecastKind::Pool},       {"MLE", ForecastKind::Mle},
    {"HET", ForecastKind::Het}};

ForecastKind kind_of(int IKOD) {
  switch (IKOD) {
    case K_AUTO:
      return ForecastKind::Auto;
    case K_BOX:
      return ForecastKind::Box;
    case K_PROBIT:
      return ForecastKind::Probit;
    case K_LOGIT:
      return ForecastKind::Logit;
    case K_TOBIT:
      return ForecastKind::Tobit;
    case K_NLINEAR:
      return ForecastKind::Nlinear;
    case K_POOL:
      return ForecastKind::Pool;
    case K_MLE:
      return ForecastKind::Mle;
    case K_HETERO:
      return ForecastKind::Het;
    default:
      return ForecastKind::Linear;
  }
}

// The kind that MODEL= names, else that of the last estimate. False after an error.
bool settle_kind(ForecastModel& model) {
  const std::string_view word = FcastOption::named<"MODEL">().text;
  model.plain = SAVED.IKOD == K_OLSQ;
  if (word.empty()) {
    model.kind = kind_of(SAVED.IKOD);
    return true;
  }
  for (const ModelWord& m : MODELWORDS) {
    // HETERO and NL are the commands' own words.
    if (m.word != word.substr(0, KEYLEN) && !(m.word == "HET" && word == "HETERO") &&
        !(m.word == "NLINEAR" && word == "NL")) {
      continue;
    }
    model.kind = m.kind;
    model.plain = m.word == "OLS" || (m.kind == kind_of(SAVED.IKOD) && model.plain);
    return true;
  }
  return bad_option_value("MODEL");
}

// Storage of the model. Grows to the largest one of the run and stays.
std::vector<ListItem> LIST;
std::vector<double> COEF, RHO, THETA;

ListItem constant() { return {.var = DATCOM.MCON, .name = {}}; }

// The listed variables behind the first, with the columns of listed matrices in place of the
// matrix, and the constant. False after an error.
bool take_list(Workspace ws, ForecastModel& model) {
  LIST.clear();
  model.dependent = SCNCOM.list()[0];
  for (ListItem item : SCNCOM.list().subspan(1)) {
    item.group = false;
    if (item.var == model.dependent.var && item.lag == model.dependent.lag) {
      fail<"(' ...ERROR..VARIABLE ', A, ' IS ON BOTH SIDES OF EQUATION')">(NAME(ws, item.var));
      return false;
    }
    const Place place = item.var > 0 ? INFO(ws, item.var) : Place{};
    const bool matrix = item.var > 0 && item.var <= DATCOM.MAXVAR && place.ITYPE == MATRIX2;
    const int columns = matrix ? std::max(place.columns(), 1) : 1;
    const int var = item.var;
    for (int j = 1; j <= columns; ++j) {
      if (columns > 1) item.var = var * DATCOM.MXCOL + j;
      LIST.push_back(item);
    }
  }
  if (FcastOption::chosen<"CONSTANT">()) LIST.push_back(constant());
  return true;
}

bool same_item(const ListItem& a, const ListItem& b) { return a.var == b.var && a.lag == b.lag; }

// Where the coefficients of a stored estimate begin and how many regressors they have.
struct Part {
  int first = 0, K = 0;
  double sigma2 = 0.0;
  double rho = 0.0;
};
Part whole_estimate() {
  Part part{0, SAVED.K(), SAVED.sigma2, SAVED.rho.empty() ? 0.0 : SAVED.rho[0]};
  if (SAVED.choices > 2) part.K /= SAVED.choices - 1;
  if (SAVED.IKOD == K_TOBIT) --part.K;
  if (SAVED.index_coefs > 0) part.K = SAVED.index_coefs;
  return part;
}

bool no_equation(Workspace ws, int var) {
  fail<"(' ...ERROR..', A, ' IS NOT THE DEPENDENT VARIABLE OF AN EQUATION')">(NAME(ws, var));
  return false;
}

// The equation of a system whose dependent variable is `var`, 0 the last one. False after an error.
bool find_equation(Workspace ws, int var, Part& part, ListItem& dependent) {
  const SavedEquation* found = nullptr;
  for (const SavedEquation& eq : SAVED.equations) {
    if (var == 0 || eq.dependent.var == var) found = &eq;
    if (found != nullptr && var != 0) break;
  }
  if (found == nullptr) return no_equation(ws, var);
  part = {found->first, found->K, found->sigma2 > 0.0 ? found->sigma2 : SAVED.sigma2, found->rho};
  dependent = found->dependent;
  return true;
}

// The list: that of the estimate, or the typed one. False after an error.
bool settle_list(Workspace ws, ForecastModel& model, bool with_coef) {
  const bool there = ADDCOM.KTEST != 0;
  Part part = whole_estimate();
  ListItem dependent = there ? SAVED.list.back() : ListItem{};
  const bool named_only = SCNCOM.NF == 1 && !with_coef;
  if (there && !SAVED.equations.empty() && (SCNCOM.NF == 0 || named_only)) {
    const int var = SCNCOM.NF == 0 ? 0 : SCNCOM.list()[0].var;
    if (!find_equation(ws, var, part, dependent)) return false;
  }
  const auto stored_list = [&] {
    return std::span<const ListItem>(SAVED.list)
        .subspan(static_cast<std::size_t>(part.first), static_cast<std::size_t>(part.K));
  };
  const auto is_stored = [&] {
    model.stored = true;
    model.cov_first = part.first;
    model.sigma2 = part.sigma2;
    model.estimated_rho = model.kind == ForecastKind::Linear && !SAVED.rho.empty();
    if (model.estimated_rho) RHO.assign(1, part.rho);
  };
  RHO.clear();
  if (SCNCOM.NF == 0 || named_only || model.kind == ForecastKind::Nlinear) {
    if (SCNCOM.NF >= 1) dependent = SCNCOM.list()[0];
    LIST.clear();
    model.dependent = dependent;
    is_stored();
    if (model.kind == ForecastKind::Nlinear) {
      if (SCNCOM.NF >= 1) model.equation = nonlinear_equation(dependent.var);
      if (model.equation < 0) return no_equation(ws, dependent.var);
      const double sigma2 = nonlinear_variance(model.equation);
      if (sigma2 > 0.0) model.sigma2 = sigma2;
    } else {
      LIST.assign(stored_list().begin(), stored_list().end());
    }
  } else {
    if (!take_list(ws, model)) return false;
    const bool same = there && SAVED.equations.empty() &&
                      same_item(model.dependent, SAVED.list.back()) &&
                      std::ranges::equal(LIST, stored_list(), same_item);
    if (same) is_stored();
    if (model.kind == ForecastKind::Mle && static_cast<int>(LIST.size()) != part.K) {
      fail(" ...ERROR..INVALID LIST OF INDEPENDENT VARIABLES");
      return false;
    }
    // The same number of coefficients of the last estimate, for other variables.
    if (!with_coef && !same) {
      if (static_cast<int>(LIST.size()) < part.K) {
        fail(" ...ERROR..INVALID LIST OF INDEPENDENT VARIABLES");
        return false;
      }
      model.cov_first = part.first;
      model.sigma2 = part.sigma2;
    }
  }
  model.list = LIST;
  model.name = NAME(ws, model.dependent.var);
  return true;
}

bool too_short(std::size_t there) {
  fail<"(' ...ERROR..COEF VECTOR ONLY CONTAINS', I6, ' VALUES')">(static_cast<int>(there));
  return false;
}

// The coefficients: of COEF=, or of the estimate. False after an error.
bool settle_coefficients(Workspace ws, ForecastModel& model) {
  const NameOption& option = FcastOption::named<"COEFFICI">();
  auto wanted = static_cast<std::size_t>(model.K());
  if (model.kind == ForecastKind::Tobit) ++wanted;
  const bool whole = model.kind == ForecastKind::Mle || model.kind == ForecastKind::Nlinear;
  if (whole) wanted = SAVED.coef.size();
  if (model.choices > 2) wanted *= static_cast<std::size_t>(model.choices - 1);
  if (model.kind == ForecastKind::Pool && FcastOption::chosen<"FIXED">() && model.effects.empty()) {
    wanted += static_cast<std::size_t>(model.NCROSS);
  }
  auto from = std::span<const double>(SAVED.coef);
  if (!option.text.empty()) {
    if (option.var <= 0) {
      fail<"(' ...ERROR..VARIABLE ', A, ' IS NOT VALID')">(option.text);
      return false;
    }
    from = elements(ws, option.var);
  } else {
    from = from.subspan(static_cast<std::size_t>(std::max(model.cov_first, 0)));
  }
  if (from.size() < wanted) return too_short(from.size());
  if (!option.text.empty() && from.size() > wanted) {
    warn<"(' ...WARNING..COEF VECTOR CONTAINS', I6, ' VALUES, THE FIRST', I6, ' ARE USED')">(
        static_cast<int>(from.size()), static_cast<int>(wanted));
  }
  COEF.assign(from.begin(), from.begin() + static_cast<std::ptrdiff_t>(wanted));
  model.coef = COEF;
  if (model.kind == ForecastKind::Tobit && !(COEF.back() > 0.0)) {
    fail<"(' ...ERROR..COEFFICIENT ON ND MUST BE POSITIVE:', G13.5)">(COEF.back());
    return false;
  }
  return true;
}

// RHO of NLINEAR: of the coefficients behind those of the equations the ones of the equation, or
// those that all equations share.
void formula_errors(const ForecastModel& model) {
  if (RHO.empty()) return;
  const auto first = static_cast<std::size_t>(nonlinear_coefficients());
  const std::size_t apart = (model.coef.size() - first) / RHO.size();
  const std::size_t own = apart > 1 ? static_cast<std::size_t>(model.equation) : 0;
  for (std::size_t i = 0; i < RHO.size(); ++i) RHO[i] = model.coef[first + i * apart + own];
}

// Autocorrelated errors: AUTO has them, BLUP gives them to other models. False after an error.
bool settle_errors(ForecastModel& model) {
  const bool linear = model.kind == ForecastKind::Linear || model.kind == ForecastKind::Auto ||
                      model.kind == ForecastKind::Pool || model.kind == ForecastKind::Nlinear;
  const bool asked = FcastOption::chosen<"BLUP">() || FcastOption::chosen<"IBLUP">();
  const bool is_auto = model.kind == ForecastKind::Auto || model.estimated_rho;
  const bool refused = FcastOption::given<"BLUP">() && !FcastOption::chosen<"BLUP">();
  if (asked && !linear) {
    return incompatible_options();
  }
  model.blup = asked || (is_auto && !refused);
  THETA.clear();
  const bool formula = model.kind == ForecastKind::Nlinear;
  if (formula) model.blup = !SAVED.rho.empty() && !refused;
  const bool own =
      model.estimated_rho || (is_auto && ADDCOM.KTEST != 0 && SAVED.IKOD == K_AUTO) || formula;
  if (own && !model.estimated_rho) {
    RHO = SAVED.rho;
    THETA = SAVED.theta;
    if (formula) formula_errors(model);
  } else if (is_auto && !own) {
    RHO = {FCOM.RHO};
    if (FCOM.RHO2 != 0.0) RHO.push_back(FCOM.RHO2);
    if (FCOM.RHO == 0.0 && FCOM.RHO2 == 0.0 && !FcastOption::given<"RHO">() &&
        !FcastOption::given<"SRHO">()) {
      warn(" ...WARNING..MODEL=AUTO WITHOUT RHO=, IT IS TAKEN AS 0");
    }
  }
  if (FcastOption::given<"RHO">()) {
    if (RHO.empty()) RHO.push_back(0.0);
    RHO[0] = FcastOption::real<"RHO">();
  }
  if (FcastOption::given<"SRHO">()) {
    if (RHO.size() < 2) RHO.resize(2);
    RHO[1] = FcastOption::real<"SRHO">();
  }
  if (FcastOption::given<"ORDER">()) {
    const int order = FcastOption::integer<"ORDER">();
    if (order < 1 || order > std::ssize(RHO)) {
      fail(" ...ERROR..THE ORDER= OPTION IS NOT AVAILABLE");
      return false;
    }
    RHO.resize(static_cast<std::size_t>(order));
  }
  if (asked && RHO.empty() && THETA.empty()) {
    fail(" ...ERROR..THE BLUP OPTION NEEDS RHO=");
    return false;
  }
  if (!asked && !is_auto && !formula && !RHO.empty()) {
    warn(" ...WARNING..RHO= HAS NO EFFECT WITHOUT MODEL=AUTO OR BLUP");
  }
  model.rho = RHO;
  model.theta = THETA;
  const bool same_rho = !FcastOption::given<"RHO">() && !FcastOption::given<"SRHO">() &&
                        !FcastOption::given<"ORDER">();
  model.own_errors = own && is_auto && model.stored && model.blup && same_rho;
  return true;
}

// A number of cross-sections, which of them, and their effects. False after an error.
bool settle_pool(Workspace ws, ForecastModel& model) {
  if (!FcastOption::given<"NCROSS">()) {
    fail(" ...ERROR..NCROSS= OPTION REQUIRED FOR POOL");
    return false;
  }
  model.NCROSS = FcastOption::integer<"NCROSS">();
  model.CSNUMBER = FcastOption::integer<"CSNUMBER">();
  const auto wrong = [](std::string_view option) { return bad_option_value(option); };
  if (model.NCROSS < 1) return wrong("NCROSS");
  if (model.CSNUMBER < 0 || model.CSNUMBER > model.NCROSS) return wrong("CSNUMBER");
  if (FcastOption::given<"POOLSE">() && !(FcastOption::real<"POOLSE">() > 0.0))
    return wrong("POOLSE");
  if (FcastOption::given<"POOLSE">())
    model.sigma2 = FcastOption::real<"POOLSE">() * FcastOption::real<"POOLSE">();
  const NameOption& effects = FcastOption::named<"CSFIX">();
  if (effects.text.empty()) return true;
  if (effects.var <= 0) {
    fail<"(' ...ERROR..VARIABLE ', A, ' IS NOT VALID')">(effects.text);
    return false;
  }
  model.effects = elements(ws, effects.var);
  if (std::ssize(model.effects) < model.NCROSS) return too_short(model.effects.size());
  return true;
}

void print_values(std::string_view heading, std::span<const double> values) {
  if (values.empty()) return;
  Line title;
  title.text(heading);
  OUTLINE();
  const std::size_t a_line = OSCOM.OWIDE ? 8 : 5;
  for (std::size_t i = 0; i < values.size(); i += a_line) {
    Line row;
    row.put<"(1X)">();
    for (std::size_t k = i; k < std::min(values.size(), i + a_line); ++k)
      row.put<"(G13.5)">(values[k]);
    OUTLINE();
  }
}

void print_pool(const ForecastModel& model) {
  if (FcastOption::given<"POOLSE">()) {
    Line first, second;
    first.put<"(' POOL STANDARD ERROR=', G13.5)">(FcastOption::real<"POOLSE">());
    second.put<"('  POOL VARIANCE=', G13.5)">(model.sigma2);
    OUTLINE();
  }
  if (model.CSNUMBER == 0) return;
  if (!model.effects.empty()) {
    say<"(' FIXED EFFECT=', G13.5)">(model.effects[static_cast<std::size_t>(model.CSNUMBER - 1)]);
  }
  Line first, second;
  first.put<"(' PREDICTION FOR CROSS-SECTION NUMBER', I6)">(model.CSNUMBER);
  second.put<"(' TOTAL NUMBER OF CROSS-SECTIONS', I6)">(model.NCROSS);
  OUTLINE();
}

}  // namespace

bool settle_model(Workspace ws, ForecastModel& model) {
  // 1. What there is to forecast from.
  const bool there = ADDCOM.KTEST != 0;
  const bool with_coef = !FcastOption::named<"COEFFICI">().text.empty();
  if (!settle_kind(model)) return false;
  if (FcastOption::given<"ORDER">() && model.kind != ForecastKind::Auto) {
    fail(" ...ERROR..THE ORDER= OPTION IS NOT AVAILABLE");
    return false;
  }
  if (!there && !with_coef) {
    fail(" ...ERROR..COEF=  WAS NOT SPECIFIED");
    return false;
  }
  if (!there && SCNCOM.NF == 0) {
    fail(" ...ERROR..NO VARIABLES WERE SPECIFIED");
    return false;
  }
  const bool formula = model.kind == ForecastKind::Nlinear;
  const bool own = there && kind_of(SAVED.IKOD) == model.kind;
  const bool needs_estimate = formula || model.kind == ForecastKind::Mle;
  if ((there && SCNCOM.NF == 0 && SAVED.made_columns) || (needs_estimate && !own) ||
      (own && SAVED.variance_in_mean) || (formula && !nonlinear_fits_data())) {
    fail(" ...ERROR..FORECASTS ARE NOT AVAILABLE FOR THIS MODEL");
    return false;
  }
  // 2. Numbers that some kinds need beyond the coefficients.
  model.family = SAVED.family;
  model.second_index = SAVED.second_index;
  if (own && (model.kind == ForecastKind::Probit || model.kind == ForecastKind::Logit)) {
    model.low = SAVED.low;
    model.share = SAVED.share;
    model.choices = SAVED.choices;
    if (model.choices > 2) model.kind = ForecastKind::Choices;
  }
  if (model.kind == ForecastKind::Tobit) {
    model.limit =
        FcastOption::given<"LIMIT">() || !own ? FcastOption::real<"LIMIT">() : SAVED.limit;
    const bool upper =
        FcastOption::given<"UPPER">() || !own ? FcastOption::chosen<"UPPER">() : SAVED.upper;
    model.side = upper ? -1.0 : 1.0;
  }
  if (model.kind == ForecastKind::Box) model.lambda = FcastOption::real<"LAMBDA">();
  if (model.kind == ForecastKind::Box && !FcastOption::given<"LAMBDA">()) {
    fail(" ...ERROR..MODEL=BOX NEEDS LAMBDA=");
    return false;
  }
  // 3. List, coefficients, errors.
  if (!settle_list(ws, model, with_coef)) return false;
  if (model.kind == ForecastKind::Pool && !settle_pool(ws, model)) return false;
  if (!settle_coefficients(ws, model)) return false;
  if (model.kind == ForecastKind::Pool && FcastOption::chosen<"FIXED">() && model.effects.empty()) {
    model.effects = model.coef.subspan(static_cast<std::size_t>(model.K()));
  }
  return settle_errors(model);
}

void print_model(const ForecastModel& model, std::size_t rows) {
  say<"(' DEPENDENT VARIABLE = ', A8, I10, ' OBSERVATIONS')">(model.name,
                                                              static_cast<std::int64_t>(rows));
  print_values(" REGRESSION COEFFICIENTS", model.coef);
  if (model.kind == ForecastKind::Box) print_values(" BOX-COX LAMBDAS", {&model.lambda, 1});
  if (model.kind == ForecastKind::Pool) print_pool(model);
  if (!model.blup) return;
  const bool user = FcastOption::given<"RHO">() || FcastOption::given<"SRHO">();
  if (FcastOption::given<"RHO">())
    say<"(' USER SPECIFIED RHO=', G13.5)">(FcastOption::real<"RHO">());
  if (FcastOption::given<"SRHO">())
    say<"(' USER SPECIFIED SRHO=', G13.5)">(FcastOption::real<"SRHO">());
  if (!user) print_values(" AUTOCORRELATION RHO", model.rho);
  print_values(" MOVING-AVERAGE COEFFICIENTS", model.theta);
}

void take_covariance(const ForecastModel& model, int n, std::span<double> to) {
  const int first = model.cov_first;
  for (int i = 1; i <= n; ++i) {
    for (int j = 1; j <= i; ++j) to[packed(i, j)] = SAVED.cov[packed(first + i, first + j)];
  }
}

void find_lags(Workspace ws, const ForecastModel& model, int from, int to, std::span<int> lag) {
  constexpr int LEAST_ROWS = 3;  // fewer could be alike by chance
  const std::span<const double> y = elements(ws, model.dependent.var);
  const auto dependent = [&](int t) {  // the dependent variable of observation t
    const int place = t - model.dependent.lag;
    return place >= 1 && place <= std::ssize(y) ? y[static_cast<std::size_t>(place - 1)]
                                                : MACOM.XMISS;
  };
  for (std::size_t k = 0; k < lag.size(); ++k) {
    const ListItem& item = model.list[k];
    lag[k] = 0;
    if (item.var == DATCOM.MCON || item.var <= 0) continue;
    if (item.var == model.dependent.var) {
      lag[k] = item.lag - model.dependent.lag;
      continue;
    }
    const std::span<const double> x = elements(ws, item.var);
    const auto value = [&](int t) {
      const int place = t - item.lag;
      return place >= 1 && place <= std::ssize(x) ? x[static_cast<std::size_t>(place - 1)]
                                                  : MACOM.XNAN;
    };
    for (int L = 1; L < to && lag[k] == 0; ++L) {
      const int start = std::max(from, L + 1 + std::max(model.dependent.lag, 0));
      if (to - start + 1 < LEAST_ROWS) break;
      bool varies = false, same = true;
      for (int t = to; t >= start && same; --t) {
        same = value(t) == dependent(t - L);
        varies = varies || value(t) != value(to);
      }
      if (same && varies) lag[k] = L;
    }
    if (lag[k] > 0 && OCOM.OPUT) {
      say<"(' ...NOTE..', A, ' IS TAKEN AS ', A, ' LAGGED', I5)">(NAME(ws, item.var), model.name,
                                                                  lag[k]);
    }
  }
}

}  // namespace korvel
