// GENC: the commands that hold an expression: GENR, GEN1, IF, IF1, SKIPIF, ENDIF, DERIVATIVE,
// INTEGRATE and MATRIX. Prepares the sample and the room, compiles, evaluates.

#include <algorithm>
#include <cstring>

#include "data/data.h"
#include "data/sample.h"
#include "engine/bodies.h"
#include "engine/commands.h"
#include "engine/input.h"
#include "engine/options.h"
#include "engine/output.h"
#include "expr/expr.h"
#include "expr/genr.h"
#include "expr/genr_kept.h"
#include "expr/matrix.h"
#include "expr/trans.h"

namespace korvel {
namespace {

constexpr int HEADER = 4;

// An item in front of the expression: a name, or a number.
struct Item {
  std::string_view name;
  double value = 0;
  bool good = false;
};

Item next_item(std::string_view text, int& at) {
  auto p = static_cast<std::size_t>(at);
  while (p < text.size() && (text[p] == ' ' || text[p] == ',')) ++p;
  std::size_t q = p;
  while (q < text.size() && text[q] != ' ' && text[q] != ',') ++q;
  const std::string_view word = text.substr(p, q - p);
  at = static_cast<int>(q);
  Item item;
  if (word.empty()) return item;
  if (NAMCHK(word[0]) == 1 || word[0] == '$') {
    item.name = word.substr(0, KEYLEN);
    item.good = true;
    return item;
  }
  const Number n = FSUMS(word);
  item.value = n.value;
  item.good = n.used == static_cast<int>(word.size());
  return item;
}

bool syntax_error() {
  fail(" ...ERROR..SYNTAX ERROR IN ABOVE COMMAND");
  return false;
}

// DERIVATIVE x statement, INTEGRATE x lower upper statement: what stands in front.
bool take_items(Workspace ws, GenrJob& job, TransJob& trans) {
  const bool integrate = job.IKOD == K_INTEGRAT;
  const Item variable = next_item(job.text, job.ISTART);
  if (!variable.good) return syntax_error();
  if (!integrate) {
    trans.variable = VARNUM(ws, variable.name);
    if (variable.name.empty() || trans.variable == 0) {
      fail<"(' ...ERROR..', A, ' DOES NOT EXIST')">(variable.name);
      return false;
    }
    return true;
  }
  if (variable.name.empty()) return syntax_error();
  job.integration = variable.name;
  for (Bound* bound : {&trans.lower, &trans.upper}) {
    const Item item = next_item(job.text, job.ISTART);
    if (!item.good) return syntax_error();
    *bound = {item.value, item.name};
  }
  if (DATCOM.NVARS >= DATCOM.MAXVAR) {  // the variable of integration takes the last entry
    error_line(" ...ERROR..DISASTER..GENR SPACE SHORTAGE, RAISE SIZE COMMAND");
    set_error_code(2004);
    mark_failed();
    return false;
  }
  return true;
}

// A new target: MEND elements behind the last variable, or MEND rows of as many columns as NAME:n
// asks for; the evaluator fills it. False when there is no room.
bool make_target(Workspace ws) {
  const int columns = std::max(GENCOM.LHSCOL, 1);
  std::int64_t elements = 0;
  const bool fits = checked_product(DATCOM.MEND, columns, elements);
  const std::int64_t end = ADDCOM.LASADD + elements + HEADER;
  if (!fits || end > ADDCOM.SCRTOP) {
    ADDCOM.NEED = end + (ADDCOM.MAXADD - ADDCOM.SCRTOP);
    NOCORE();
    return false;
  }
  const int A = ADDCOM.LASADD + 1;
  ws.KADD(GENCOM.NTRS) = A;
  ws.DATA(A) = 1.0;
  ws.DATA(A + 1) = columns > 1 ? MATRIX2 : SERIES;
  ws.DATA(A + 2) = static_cast<double>(elements);
  ws.DATA(A + 3) = columns;
  ADDCOM.LASADD = static_cast<std::int32_t>(end);
  DATCOM.NVARS = GENCOM.NTRS;
  return true;
}

// A target whose statement failed is not kept.
void drop_target(Workspace ws, int target) {
  ADDCOM.LASADD = ws.KADD(target) - 1;
  DATCOM.NVARS = target - 1;
  std::memset(ws.name_field(target), ' ', NAMELEN);
}

// The words that a stop at the end of the sample has left over.
void trim_target(Workspace ws, int target) {
  const int A = ws.KADD(target);
  ADDCOM.LASADD = A + HEADER - 1 + static_cast<int>(ws.DATA(A + 2));
}

}  // namespace

bool run_formula(Workspace ws, const GenrJob& job, const TransJob& trans) {
  // 1. Room for the code list and its operands, and the compiler.
  Scratch room(ws, formula_words());
  if (!room) return false;
  const Formula formula = carve_formula(room.words());
  OCOM.OGENR = true;
  const bool compiled = compile_statement(ws, job, formula);
  OCOM.OGENR = false;
  if (!compiled) return false;
  // 2. SKIPIF marks a vector of its own.
  if (job.IKOD == K_SKIPIF) {
    const int marks = DATCOM.LSKIP > 0 ? INFO(ws, VARNUM(ws, SKIPNAME)).LEN : 0;
    if (marks < DATCOM.MEND && !make_skip_vector(ws, DATCOM.MEND)) return false;
    OSCOM.OSKIP = true;
  }
  // 3. A new target, then the run.
  const bool fresh = OCOM.ONEWV;
  const int target = GENCOM.NTRS;
  if (fresh && !make_target(ws)) return false;
  const bool good = TRANS(ws, formula, trans);
  if (!fresh) return good;
  if (good) {
    trim_target(ws, target);
  } else {
    drop_target(ws, target);
  }
  return good;
}

void check_formula(Workspace ws) {
  Scratch room(ws, formula_words());
  if (!room) return;
  GenrJob job;
  job.text = command_text();
  job.ISTART = SCNCOM.ISTART;
  job.IKOD = INPCOM.IKOD;
  job.any_name = true;
  if (job.IKOD == K_DERIVATI || job.IKOD == K_INTEGRAT) {
    const int items = job.IKOD == K_DERIVATI ? 1 : 3;
    for (int k = 0; k < items; ++k) {
      if (!next_item(job.text, job.ISTART).good) return static_cast<void>(syntax_error());
    }
  }
  GENR(ws, job, carve_formula(room.words()));
}

void GENC(Workspace ws) {
  const Trace trace("GENC");
  // 1. The range of observations.
  clear_estimate();
  GENCOM.NTRS = 0;
  DATCOM.MBEG = DATCOM.IBEG;
  DATCOM.MEND = DATCOM.IEND;
  if (INPCOM.IKOD == K_GEN1 || INPCOM.IKOD == K_IF1) DATCOM.MBEG = DATCOM.MEND = 1;
  // 2. What stands in front of the expression.
  GenrJob job;
  job.text = command_text();
  job.ISTART = SCNCOM.ISTART;
  job.IKOD = INPCOM.IKOD;
  if (job.IKOD == K_MATRIX) return static_cast<void>(run_matrix(ws, job));
  TransJob trans;
  trans.IKOD = INPCOM.IKOD;
  if (job.IKOD == K_DERIVATI || job.IKOD == K_INTEGRAT) {
    if (!take_items(ws, job, trans)) return;
  }
  DATCOM.NOB = DATCOM.MEND - DATCOM.MBEG + 1;
  if (DATCOM.MEND < 1) return fail(" ...ERROR..SAMPLE RANGE HAS NOT YET BEEN DEFINED");
  // 3. Compile and run.
  run_formula(ws, job, trans);
  if (GENCOM.NTRS == ENDIF_TRUE) leave_loop(ws);
}

}  // namespace korvel
