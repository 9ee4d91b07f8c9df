// Operations that read stored series at other observations: LAG, SUM, DATA, SAMP, RECODE.

#include <algorithm>
#include <cmath>

#include "engine/output.h"
#include "expr/ecdf.h"
#include "expr/expr.h"
#include "expr/operators.h"
#include "expr/trans.h"
#include "expr/vector_functions.h"

namespace korvel {
namespace {

// These test their result for the missing code, not the element that they have not read.
Outcome found(Run& run, double value, double& result) {
  result = value;
  if (run.SKIPMISS && value == run.XMISS) run.missing = true;
  return Outcome::good;
}

double& state(const Run& run, const Step& s) { return run.formula->operand(s.slot); }

// The variable that a function of two arguments works on: the left operand of the comma before it.
int first_argument(const Step& s) { return s.two ? (&s - 1)->left : s.right; }

// An exhausted variable ends the run, unless it is the last observation's own business.
Outcome stop_at(Run& run, int place) {
  run.exhausted = place;
  return Outcome::stopped;
}

// Position 1..n drawn at random.
int draw_position(int n) {
  seed_random();
  const int j = static_cast<int>(FRAND(0.0) * n + 1.0);
  return std::min(j, n);
}

}  // namespace

Outcome need_variable() {
  fail(" ...ERROR..ABOVE FUNCTION REQUIRES PRE-DEFINED VARIABLE");
  return Outcome::failed;
}

Outcome lag_step(Run& run, const Step& s, double& result) {
  const int place = first_argument(s);
  int n = 1;
  if (s.two) {
    n = whole32(run.ARG2);
    if (place == 0) return need_variable();
  } else if (place == 0) {  // an expression: its value at the observation processed before
    const double before = state(run, s);
    state(run, s) = *s.R;
    return found(run, before, result);
  }
  const Source& source = run.source(place);
  if (source.base == nullptr) return need_variable();
  const std::int64_t j = std::int64_t{run.obs} - n;
  if (j < 1 || j > source.rows) {
    result = -0.0;
    return Outcome::good;
  }
  return found(run, source.base[j - 1], result);
}

Outcome sum_step(Run& run, const Step& s, double& result) {
  if (s.two) {
    const int n = whole32(run.ARG2);
    if (n > 0) {  // a block of n elements
      const int place = first_argument(s);
      if (place == 0 || run.source(place).base == nullptr) return need_variable();
      const Source& source = run.source(place);
      const std::int64_t end = std::int64_t{run.obs} * n;
      if (end > source.rows) return stop_at(run, place);
      double sum = 0.0;
      for (std::int64_t j = end - n; j < end; ++j) sum += source.base[j];
      return found(run, sum, result);
    }
  }
  const double term = s.two ? run.ARG1 : *s.R;
  if (run.SKIPMISS && term == run.XMISS) {  // no part of the sum, which goes on behind it
    run.missing = true;
    result = run.XMISS;
    return Outcome::good;
  }
  state(run, s) = state(run, s) + term;
  return found(run, state(run, s), result);
}

// Element `index` of a listed variable; below 0 a value of its empirical distribution function.
Outcome element_step(Run& run, int place, double index, double& result) {
  if (place == 0 || run.source(place).base == nullptr) return need_variable();
  const Source& source = run.source(place);
  const int n = whole32(index);
  if (n > source.rows) return stop_at(run, place);
  if (n > 0) return found(run, source.base[n - 1], result);
  if (n == 0) return found(run, source.COLUMNS, result);
  if (run.obs > source.rows) return stop_at(run, place);
  const int last = n == -2 ? run.obs : DATCOM.MEND;
  const double v = source.base[run.obs - 1];
  const std::int64_t count = count_at_most(run, place, v, std::min(last, source.rows));
  return found(run, static_cast<double>(count) / (last - DATCOM.MBEG + 1), result);
}

Outcome data_step(Run& run, const Step& s, double& result) {
  if (!s.two) return need_variable();
  return element_step(run, first_argument(s), run.ARG2, result);
}

Outcome samp_step(Run& run, const Step& s, double& result) {
  if (s.right != 0 && !s.two) {  // a draw with replacement
    const Source& source = run.source(s.right);
    if (source.base == nullptr || source.rows < 1) return need_variable();
    return found(run, source.base[draw_position(source.rows) - 1], result);
  }
  const bool whole_side = (&s)[1].code == OP_END && (&s)[1].flag == END_ASSIGN && run.target > 0 &&
                          run.source(run.target).base != nullptr && !s.two && run.storing;
  if (!whole_side) {
    fail(" ...ERROR..SAMP FUNCTION MAY NOT BE AN EQUATION");
    return Outcome::failed;
  }
  const Source& target = run.source(run.target);
  if (!run.samp_done) {
    run.samp_done = true;
    const std::int64_t n = whole32(*s.R);
    if (n > target.rows || n < -2147483647) {
      fail<"(' ...ERROR..SAMP OF', G15.7, ' FROM A LENGTH OF', I10)">(*s.R, target.rows);
      return Outcome::failed;
    }
    std::fill_n(target.base, target.rows, 0.0);
    for (std::int64_t k = 0; k < std::abs(n); ++k) {
      int j = draw_position(target.rows);
      while (n > 0 && target.base[j - 1] > 0.0) j = draw_position(target.rows);
      target.base[j - 1] += 1.0;
      if ((k & 0xfffff) == 0xfffff && stop_requested()) return Outcome::failed;
    }
  }
  // END stores what this hands on: the element as it is.
  result = run.obs <= target.rows ? target.base[run.obs - 1] : 0.0;
  return Outcome::good;
}

Outcome recode_step(Run& run, const Step& s, double& result) {
  if (!s.two) {
    const double x = *s.R;
    if (run.SKIPMISS && x == run.XMISS) run.missing = true;
    return found(run, whole32(x + 0.5), result);
  }
  const int place = (&s - 1)->right;
  if (place == 0 || run.source(place).whole == nullptr) return need_variable();
  const Source& table = run.source(place);
  if (table.COLUMNS != 3 || table.LENGTH % 3 != 0 || table.base != table.whole) {
    fail<"(' ...ERROR..', A, ' IS NOT A DATA VECTOR')">(NAME(run.ws, table.variable));
    return Outcome::failed;
  }
  const int rows = table.LENGTH / 3;
  const double x = run.ARG1;
  double r = x;
  for (int i = 0; i < rows; ++i) {
    const double lower = table.whole[i], upper = table.whole[rows + i];
    if (lower <= x && x <= upper) r = table.whole[2 * rows + i];
    if (OSCOM.ODMMP) {
      say<"(' RECODE', 2I8, 4G15.7)">(run.obs, i + 1, x, lower, upper, r);
    }
  }
  return found(run, r, result);
}

}  // namespace korvel
