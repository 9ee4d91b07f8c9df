// TEST: hypotheses on the coefficients of the last estimate, one at a time or in a block.

#include <algorithm>
#include <cstring>

#include "engine/commands.h"
#include "engine/input.h"
#include "engine/output.h"
#include "engine/run.h"
#include "expr/genr_work.h"
#include "expr/genrdf.h"
#include "expr/operators.h"
#include "regress/test_parts.h"

namespace korvel {
namespace {

// What the compiler asks for names.
struct NameContext {
  Workspace ws;
  std::span<const ListItem> list;
  std::span<const SavedEquation> equations;
  bool refused = false;  // a name was, and the user has been told
};

int coefficient_operand(void* context, std::string_view name, int n) {
  NameContext& names = *static_cast<NameContext*>(context);
  const int place = find_coefficient(names.ws, names.list, name, n, names.equations);
  if (place == 0) {
    names.refused = true;
    report_no_coefficient(names.ws, name, n);
  }
  return place;
}

void dump_hypothesis(const Hypothesis& h) {
  constexpr std::size_t ACROSS = 7;
  say<"(' TEST RESULT=', G15.7)">(h.value);
  for (std::size_t i = 0; i < h.gradient.size(); i += ACROSS) {
    Line row;
    row.text(i == 0 ? " GRADIENT" : "         ");
    for (std::size_t k = i; k < std::min(i + ACROSS, h.gradient.size()); ++k) {
      row.put<"(G15.7)">(h.gradient[k]);
    }
    OUTLINE();
  }
}

// True when a list reads none of the first K operands, which hold the coefficients.
bool reads_coefficients(std::span<const Quad> code, int K) {
  const auto coefficient = [&](int operand) { return operand >= 1 && operand <= K; };
  return std::ranges::any_of(
      code, [&](const Quad& q) { return coefficient(q.left) || coefficient(q.right); });
}

bool no_memory() {
  fail(" ...ERROR..INSUFFICIENT MEMORY FOR THIS CALCULATION");
  return false;
}

}  // namespace

int find_coefficient(Workspace ws, std::span<const ListItem> list, std::string_view name, int n,
                     std::span<const SavedEquation> equations) {
  if (!equations.empty() && n > 0) {
    if (n > std::ssize(equations)) return 0;
    const SavedEquation& e = equations[static_cast<std::size_t>(n - 1)];
    const auto first = static_cast<std::size_t>(e.first);
    const int place =
        find_coefficient(ws, list.subspan(first, static_cast<std::size_t>(e.K)), name, 0);
    return place == 0 ? 0 : e.first + place;
  }
  const int number = VARNUM(ws, name);
  bool columns = false;
  int met = 0;
  for (std::size_t i = 0; i < list.size(); ++i) {
    const ListItem& item = list[i];
    bool same = false;
    if (item.var == DATCOM.MCON) {
      same = name == "CONSTANT";
    } else if (item.var > 0) {
      same = number > 0 && owner_of(item.var).var == number;
      columns = columns || (same && item.var != number);
    } else {
      same = right_trimmed(item.name) == name;
    }
    if (!same) continue;
    // NAME:n is column n where columns are regressors, else the n-th time the name stands there.
    if (n == 0 || (columns ? item.var == number * DATCOM.MXCOL + n : ++met == n)) {
      return static_cast<int>(i) + 1;
    }
  }
  return 0;
}

void report_no_coefficient(Workspace ws, std::string_view name, int n) {
  if (n > 0) {
    fail<"(' ...ERROR..', A, ':', I0, ' IS NOT IN EQUATION')">(name, n);
  } else if (VARNUM(ws, name) != 0 || name == "CONSTANT") {
    fail<"(' ...ERROR..', A, ' IS NOT IN EQUATION')">(name);
  } else {
    fail<"(' ...ERROR..', A, ' DOES NOT EXIST')">(name);
  }
}

bool compile_hypothesis(Workspace ws, int IKOD, const CoefficientNames& names,
                        Hypothesis& hypothesis) {
  const int K = static_cast<int>(names.list.size());
  if (K > DATCOM.MCON) return no_memory();
  // 1. The code list; the coefficients are its first K operands.
  Scratch room(ws, formula_words() + DerivativeRoom::words());
  if (!room) return no_memory();
  const Formula formula = carve_formula(room.take(static_cast<std::size_t>(formula_words())));
  const DerivativeRoom derivative =
      DerivativeRoom::carve(room.take(static_cast<std::size_t>(DerivativeRoom::words())));
  NameContext context{ws, names.list, names.equations};
  GenrJob job;
  job.text = command_text();
  job.ISTART = SCNCOM.ISTART;
  job.IKOD = IKOD;
  job.coefficient = coefficient_operand;
  job.context = &context;
  job.listed = K;
  OCOM.OGENR = true;
  const bool compiled = GENR(ws, job, formula);
  OCOM.OGENR = false;
  if (!compiled) {
    const int code = static_cast<int>(temporary(temporary_place("ERR")));
    if (context.refused || code >= GENR_SPACE) {
      mark_failed();
    } else {
      fail(" ...ERROR..SYNTAX ERROR IN TEST COMMAND");
    }
    return false;
  }
  // 2. The value. Functions without a rule are refused by the first derivative, so that is asked
  // for in any case.
  const std::span<const Quad> code = formula.list_of_quads();
  std::ranges::copy(names.coef, formula.operands.begin());
  std::ranges::fill(hypothesis.gradient, 0.0);
  hypothesis.linear = true;
  hypothesis.fault = 0;
  const int KCON = GENCOM.KCON;
  for (int k = 1; k <= K; ++k) {
    const bool occurs =
        std::ranges::any_of(code, [&](const Quad& q) { return q.left == k || q.right == k; });
    if (!occurs && k > 1) continue;
    GENCOM.KCON = KCON;
    const int count = GENRDF(code, k, derivative, formula.operands);
    if (count == 0) return false;
    if (!occurs) continue;
    const auto list = derivative.code.first(static_cast<std::size_t>(count));
    const PointValue slope = run_point(list, formula.operands);
    hypothesis.gradient[static_cast<std::size_t>(k - 1)] = slope.value;
    if (hypothesis.fault == 0) hypothesis.fault = slope.fault;
    if (reads_coefficients(list, K)) hypothesis.linear = false;
  }
  const PointValue point = run_point(code, formula.operands);
  hypothesis.value = point.value;
  if (hypothesis.fault == 0) hypothesis.fault = point.fault;
  if (OSCOM.ODMMP) dump_hypothesis(hypothesis);
  if (hypothesis.fault != 0 && IKOD == K_TEST) {
    warn<"(' ...WARNING..ILLEGAL ', A, ' IN TEST')">(operator_row(hypothesis.fault).dump);
  }
  return true;
}

bool next_block_line(Workspace ws) {
  // An unknown word is passed over by the reader; the block would then mean something else.
  const int failures = RUNCOM.failures;
  INPUT(ws);
  if (RUNCOM.ended || stop_requested()) {
    OCOM.ODONT = true;
    return false;
  }
  if (OCOM.OEOF) {
    fail(" ...ERROR..END OF INPUT BEFORE THE END COMMAND OF THE BLOCK");
    return false;
  }
  const bool known = RUNCOM.failures == failures;
  if (known && (INPCOM.IKOD == K_TEST || INPCOM.IKOD == K_RESTRICT)) return true;
  if (known && INPCOM.IKOD == K_END) return false;
  if (known) {
    fail(" ...ERROR..COMMAND IS NOT A RESTRICT, TEST, OR END COMMAND");
  } else {
    mark_failed();
  }
  if (INPCOM.IKOD == K_STOP || INPCOM.IKOD == K_QUIT || INPCOM.IKOD == K_EXIT) {
    XXIT(0);
  } else if (INPCOM.IKOD != K_END) {
    skip_block(ws);
  }
  return false;
}

void skip_block(Workspace ws) {
  // At the keyboard the rest of the block has not been typed yet.
  if (command_stream().terminal()) {
    OCOM.ODONT = true;
    return say(" ...NOTE..THE LINES UP TO END ARE GIVEN UP");
  }
  do {
    INPUT(ws);
    if (INPCOM.IKOD == K_STOP || INPCOM.IKOD == K_QUIT || INPCOM.IKOD == K_EXIT) XXIT(0);
  } while (!RUNCOM.ended && !OCOM.OEOF && !stop_requested() && INPCOM.IKOD != K_END);
  OCOM.ODONT = true;
}

bool read_hypotheses(Workspace ws, int IKOD, const CoefficientNames& names, Restrictions& out) {
  const OpenBlock block;
  const std::size_t K = names.list.size();
  out.q = 0;
  out.R.clear();
  out.r.clear();
  out.faulty = false;
  while (next_block_line(ws)) {
    bool good = out.q < static_cast<int>(K);
    if (!good) fail(" ...ERROR..MORE EQUATIONS THAN PARAMETERS");
    const auto row = static_cast<std::size_t>(out.q) * K;
    out.R.resize(row + K);
    Hypothesis h;
    h.gradient = std::span(out.R).subspan(row, K);
    good = good && compile_hypothesis(ws, IKOD, names, h);
    if (good && IKOD == K_RESTRICT) {
      const bool empty = std::ranges::all_of(h.gradient, [](double g) { return g == 0.0; });
      good = h.linear && h.fault == 0 && !empty;
      if (!good) fail(" ...ERROR..ABOVE COMMAND IS INVALID FOR THIS PROBLEM");
    }
    if (!good) {
      skip_block(ws);
      return false;
    }
    if (h.fault != 0) out.faulty = true;
    out.r.push_back(h.value);
    ++out.q;
  }
  return !OCOM.ODONT;
}

void TEST(Workspace ws) {
  const Trace trace("TEST");
  const bool block = trimmed(command_tail()).empty();
  // 1. There must be an estimate.
  if (ADDCOM.KTEST == 0) {
    fail(" ...ERROR..THIS COMMAND MUST FOLLOW AN ESTIMATION COMMAND");
    if (block && !command_stream().terminal()) {
      const OpenBlock lines;
      skip_block(ws);
    }
    return;
  }
  const CoefficientNames names{std::span(SAVED.list).first(SAVED.coef.size()), SAVED.coef,
                               SAVED.equations};
  // 2. A block is one joint hypothesis.
  if (block) {
    static Restrictions hypotheses;
    if (!read_hypotheses(ws, K_TEST, names, hypotheses)) return;
    if (hypotheses.q == 0) return warn(" ...WARNING..NO TEST COMMANDS BEFORE END");
    if (hypotheses.faulty) return test_not_done();
    return TESTH(ws, hypotheses.r, hypotheses.R);
  }
  // 3. A single one.
  Scratch gradient(ws, SAVED.K());
  if (!gradient) {
    no_memory();
    return;
  }
  Hypothesis h;
  h.gradient = gradient.words();
  if (!compile_hypothesis(ws, K_TEST, names, h)) return;
  if (h.fault != 0) return test_not_done();
  TESTH(ws, {&h.value, 1}, h.gradient);
}

}  // namespace korvel
