// Fitted values of the last NLINEAR run outside its sample: the equations are kept as text and
// compiled again.

#include <algorithm>

#include "data/data.h"
#include "engine/commands.h"
#include "engine/output.h"
#include "expr/kernels/packed.h"
#include "nonlinear/nl_parts.h"
#include "regress/tests.h"

namespace korvel {
namespace {

// The equations of the last run.
struct KeptEquation {
  std::string text;
  int dependent = 0;    // variable number of its left side, 0 none
  double sigma2 = 0.0;  // variance of its residuals, 0: that of the estimate
};
struct KeptModel {
  std::vector<KeptEquation> equations;
  std::vector<std::string> names;  // their coefficients, in the order of SAVED
  int p = 0;                       // autoregressive order
  bool own = true;                 // ... of an equation's own residuals alone
};
KeptModel KEPT;
bool READY = false;

// The first row wanted of variable `var`; null after an error.
const double* rows_of(Workspace ws, int var, int first, int end) {
  const Place place = INFO(ws, var);
  if (OCOM.ODONT) return nullptr;
  if (place.IADD <= 0 || place.ITYPE < SERIES || place.ITYPE > MATRIX2) {
    fail<"(' ...ERROR..VARIABLE ', A, ' IS NOT VALID')">(NAME(ws, var));
    return nullptr;
  }
  if (end > place.rows()) {
    fail<"(' ...ERROR..SAMPLE RANGE EXCEEDS LENGTH OF ', A, 2I10)">(NAME(ws, var), place.rows(),
                                                                    end);
    return nullptr;
  }
  return elements(ws, var).data() + (first - 1);
}

bool load_columns(Workspace ws, NlEquation& eq, int first, int end) {
  eq.column.assign(static_cast<std::size_t>(eq.first_entry) - 1 + eq.entries.size(), nullptr);
  for (std::size_t i = 0; i < eq.entries.size(); ++i) {
    const int operand = eq.first_entry + static_cast<int>(i);
    const bool read = std::ranges::any_of(
        eq.code, [&](const Quad& q) { return q.left == operand || q.right == operand; });
    if (eq.entries[i] <= 0 || !read) continue;
    const Place place = INFO(ws, eq.entries[i]);
    if (place.LEN == 1 && place.ITYPE < STRING5) {
      eq.operands[static_cast<std::size_t>(operand) - 1] = elements(ws, eq.entries[i])[0];
      continue;
    }
    const double* const rows = rows_of(ws, eq.entries[i], first, end);
    if (rows == nullptr) return false;
    eq.column[static_cast<std::size_t>(operand) - 1] = rows;
  }
  return true;
}

}  // namespace

void keep_for_forecasts(const NlModel& m) {
  KEPT.equations.resize(m.texts.size());  // m.eq may hold more, of an earlier command
  for (std::size_t j = 0; j < m.texts.size(); ++j) {
    const int dependent = m.eq[j].dependent;
    const int order = static_cast<int>(j) + 1;
    KEPT.equations[j] = {
        .text = m.texts[j],
        .dependent = dependent >= 0 ? m.list[static_cast<std::size_t>(dependent)].var : 0,
        .sigma2 = m.neq > 1 ? m.S[packed(order, order)] : 0.0};
  }
  KEPT.names.assign(m.names.begin(), m.names.begin() + m.NCOEF);
  KEPT.p = m.p;
  KEPT.own = m.neq == 1 || !NLCOM.ACROSS;
  READY = m.residuals();
}

bool nonlinear_fits_data() { return READY; }

int nonlinear_coefficients() { return static_cast<int>(KEPT.names.size()); }

int nonlinear_equation(int var) {
  if (KEPT.equations.size() == 1) return 0;
  const auto found = std::ranges::find(KEPT.equations, var, &KeptEquation::dependent);
  return found == KEPT.equations.end() ? -1 : static_cast<int>(found - KEPT.equations.begin());
}

double nonlinear_variance(int equation) {
  return KEPT.equations[static_cast<std::size_t>(equation)].sigma2;
}

bool nonlinear_forecast(Workspace ws, int equation, int beg, int end, std::span<const double> coef,
                        std::span<double> yhat) {
  const Trace trace("NLIN1");
  if (!READY || SAVED.IKOD != K_NLINEAR || coef.size() < KEPT.names.size()) {
    fail(" ...ERROR..THIS COMMAND MUST FOLLOW AN ESTIMATION COMMAND");
    return false;
  }
  if (KEPT.p > 0 && !KEPT.own) {
    fail(" ...ERROR..FORECASTS OF ERRORS ACROSS EQUATIONS ARE NOT AVAILABLE");
    return false;
  }
  // 1. The formula, at the coefficients.
  static NlEquation eq;
  const int limit = static_cast<int>(KEPT.names.size());
  if (!compile_equation(ws, KEPT.equations[static_cast<std::size_t>(equation)].text, limit, false,
                        KEPT.names, eq))
    return false;
  std::copy_n(coef.begin(), limit, eq.operands.begin());
  // 2. Its values.
  if (!load_columns(ws, eq, beg, end)) return false;
  static std::vector<std::int32_t> observations;
  observations.clear();
  for (int t = beg; t <= end; ++t) observations.push_back(t);
  BlockFormula formula;
  formula.code = eq.code;
  formula.operands = eq.operands;
  formula.columns = eq.column;
  formula.observations = observations;
  formula.rows = end - beg + 1;
  formula.value = eq.value;
  Scratch room(ws, GradientBlocks::plan_words(eq.code.size(), 0));
  if (!room) return false;
  GradientBlocks blocks;
  blocks.plan(formula, room.words());
  Scratch work(ws, blocks.work_words());
  if (!work) return false;
  if (!blocks.evaluate(yhat, {}, 0, work.words())) {
    warn(" ...WARNING..ILLEGAL OPERATIONS IN THE FORMULA, THEIR VALUES ARE REPLACED BY ZERO");
  }
  return true;
}

}  // namespace korvel
