// MATRIX: the loop over the code list, the operands, what is said about shapes that do not fit.

#include "expr/matrix.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>

#include "engine/output.h"
#include "expr/expr.h"
#include "expr/genr_kept.h"
#include "expr/kernels/gemm.h"
#include "expr/kernels/packed.h"
#include "expr/trans_lanes.h"

namespace korvel {
namespace {

constexpr int HEADER = 4;

bool is_temporary(int number) { return number > DATCOM.MCON && number <= last_temporary(); }
bool is_constant(int number) { return number >= first_constant() && number <= operand_limit(); }

Operand& temporary_operand(MatrixRun& run, int number) {
  return run.temporaries[static_cast<std::size_t>(number - DATCOM.MCON) - 1];
}

bool fetch_variable(MatrixRun& run, int number, Operand& x) {
  const auto [I, J] = owner_of(number);
  const Place p = INFO(run.ws, I);
  if (p.ITYPE < SERIES || p.ITYPE > TRIANGLE || p.LEN < 1 || p.N2 < 1) {
    fail<"(' ...ERROR..', A, ' IS NOT A SERIES OR MATRIX')">(NAME(run.ws, I));
    return false;
  }
  x.data = &run.ws.DATA(p.IADD + std::int64_t{HEADER});
  if (p.ITYPE == SYMMETRIC || p.ITYPE == TRIANGLE) {
    x.kind = p.ITYPE;
    x.rows = x.columns = p.N2;
  } else {
    x.rows = p.LEN / p.N2;
    x.columns = p.N2;
  }
  if (J == 0) return true;
  // One column; of a series, one element.
  if (p.ITYPE <= MATRIX2) {
    const Place column = INFO(run.ws, number);
    if (OCOM.ODONT) return false;
    x.data = &run.ws.DATA(column.IADD + std::int64_t{HEADER});
    x.rows = column.LEN;
  } else {
    if (J > x.columns) {
      fail<"(' ...ERROR..ROW OR COLUMN', I6, ' EXCEEDS VARIABLE SIZE')">(J);
      return false;
    }
    if (!expand(run, x)) return false;
    x.data += (J - 1) * x.rows;
    x.own = false;
  }
  x.columns = 1;
  return true;
}

// The operand of a quadruple.
bool fetch(MatrixRun& run, int number, Operand& x) {
  if (is_temporary(number)) {
    x = temporary_operand(run, number);
    return true;
  }
  x = {};
  if (!is_constant(number)) return fetch_variable(run, number, x);
  x.data = &run.formula.operand(number);
  x.rows = x.columns = 1;
  return true;
}

// Functions that a comma may stand in.
bool takes_pair(int code) {
  switch (code) {
    case OP_EQUAL:
    case OP_UNI:
    case OP_NOR:
    case OP_SIN:
    case OP_MIN:
    case OP_MAX:
    case OP_MOD:
    case OP_IDEN:
    case OP_DIAG:
    case OP_VEC:
      return true;
    default:
      return false;
  }
}

bool one_operand_step(MatrixRun& run, const Operand& x, Operand& to) {
  switch (run.code) {
    case OP_UNI:
    case OP_NOR:
      return draw_step(run, x, to);
    case OP_INV:
      return inverse_step(run, x, to);
    case OP_IDEN:
      return identity_step(run, x, to);
    case OP_EIGVAL:
    case OP_EIGVEC:
      return eigen_step(run, x, to);
    case OP_DET:
      return determinant_step(run, x, to);
    case OP_DIAG:
      return diagonal_step(run, x, to);
    case OP_TRACE:
      return trace_step(run, x, to);
    case OP_RANK:
      return rank_step(run, x, to);
    case OP_CHOL:
    case OP_FACT:
      return cholesky_step(run, x, to);
    case OP_GINV:
      return generalised_inverse_step(run, x, to);
    case OP_VEC:
      return vec_step(run, x, to);
    case OP_SYM:
    case OP_TRI:
      return pack_step(run, x, to);
    default:
      return not_available();
  }
}

bool two_operand_step(MatrixRun& run, const Operand& left, const Operand& right, Operand& to) {
  switch (run.code) {
    case OP_MULT:
      return multiply_step(run, left, right, to);
    case OP_TRAN:
      return transpose_step(run, left, to);
    case OP_KRON:
      return kronecker_step(run, left, right, to);
    case OP_CONC:
      return join_step(run, left, right, to);
    case OP_SEMI:
      return stack_step(run, left, right, to);
    case OP_EQUAL:
      return subscript_step(run, left, right, to);
    default:
      return not_available();
  }
}

void report_illegal(const MatrixRun& run) {
  const auto report = [&](std::string_view op) {
    warn<"(' ...WARNING..ILLEGAL ', A, ', VALUE REPLACED BY ', F7.0)">(op, run.XMISS);
  };
  if ((run.illegal & ILLEGAL_DIVISION) != 0) report("DIV");
  if ((run.illegal & ILLEGAL_STEP) != 0) report(operator_row(run.code).dump);
}

// One quadruple.
bool step(MatrixRun& run, const Quad& quad) {
  run.code = quad.code;
  run.illegal = 0;
  Operand left, right;
  if (quad.left > 0 && !fetch(run, quad.left, left)) return false;
  // The right operand of a transpose is a dummy.
  if (quad.code == OP_TRAN) {
    right.rows = right.columns = 1;
  } else if (!fetch(run, quad.right, right)) {
    return false;
  }
  Operand& to = temporary_operand(run, quad.result);
  if (quad.code == OP_EQUAL && quad.left == 0) {  // a lone operand
    to = right;
    return true;
  }
  if (quad.code == OP_COMMA) {
    if (left.pair || right.pair) {
      fail(" ...ERROR..ONLY ONE COMMA IS PERMITTED");
      return false;
    }
    run.args[0] = left;
    run.args[1] = right;
    to = left;
    to.pair = true;
    return true;
  }
  if (left.pair || (right.pair && !takes_pair(quad.code))) {
    const bool known = is_elementwise(quad.code) || quad.code > OP_NOT;
    if (!known) return not_available();
    return right.pair ? invalid_shape(run, run.args[0], run.args[1])
                      : invalid_shape(run, left, right);
  }
  bool good;
  if (is_elementwise(quad.code)) {
    good = right.pair ? element_step(run, run.args[0], run.args[1], to)
                      : element_step(run, left, right, to);
  } else {
    good =
        quad.left > 0 ? two_operand_step(run, left, right, to) : one_operand_step(run, right, to);
  }
  if (run.illegal != 0) report_illegal(run);
  return good;
}

// What the statement draws is given back when it fails.
struct DrawnNumbers {
  RanCom before = RANCOM;
  bool started = OSCOM.ORANST;
  void give_back() const {
    RANCOM = before;
    OSCOM.ORANST = started;
  }
};

// Walks the quadruples; the result of the last one goes to the end of the statement.
bool MATRIX(MatrixRun& run) {
  const Trace trace("MATRIX");
  const std::span<Quad> quads = run.formula.list_of_quads();
  const DrawnNumbers drawn;
  bool good = true;
  for (std::size_t q = 0; good && q + 1 < quads.size(); ++q) {
    run.last = q + 2 == quads.size();
    good = step(run, quads[q]);
  }
  if (good) {
    const Operand& value = temporary_operand(run, quads[quads.size() - 2].result);
    run.code = OP_EQUAL;
    good = value.pair ? invalid_shape(run, run.args[0], run.args[1]) : end_matrix(run, value);
  }
  if (!good) drawn.give_back();
  return good;
}

}  // namespace

// ---- The words of a statement
// --------------------------------------------------------------------

MatrixRun::MatrixRun(Workspace area, const Formula& list)
    : ws(area),
      formula(list),
      SKIPMISS(OSCOM.OSMISS),
      XMISS(MACOM.XMISS),
      old_top_(ADDCOM.SCRTOP),
      old_last_(ADDCOM.LASADD) {}

MatrixRun::~MatrixRun() {
  ADDCOM.SCRTOP = old_top_;
  drop_target();
}

double* MatrixRun::take(std::int64_t n) const {
  if (n < 0 || n > std::int64_t{ADDCOM.SCRTOP} - ADDCOM.LASADD) {
    ADDCOM.NEED = n < 0 ? std::int64_t{1} << 31
                        : n + ADDCOM.LASADD + (ADDCOM.MAXADD - std::int64_t{ADDCOM.SCRTOP});
    NOCORE();
    return nullptr;
  }
  ADDCOM.SCRTOP -= static_cast<std::int32_t>(n);
  return &ws.DATA(ADDCOM.SCRTOP + std::int64_t{1});
}

double* MatrixRun::result_words(std::int64_t n) {
  const bool fresh = OCOM.ONEWV && !OCOM.OCALC && GENCOM.LHSROW == 0 && GENCOM.LHSCOL == 0;
  if (!last || !fresh || DATCOM.NDL > 0) return take(n);  // a hole in the area may do
  if (n + HEADER > std::int64_t{ADDCOM.SCRTOP} - ADDCOM.LASADD) return take(n);
  at_target_ = &ws.DATA(ADDCOM.LASADD + std::int64_t{1} + HEADER);
  ADDCOM.LASADD += static_cast<std::int32_t>(n + HEADER);
  return at_target_;
}

Result MatrixRun::result(std::int64_t rows, std::int64_t columns) {
  return {result_words(product_of(rows, columns)), rows, columns};
}

Result MatrixRun::packed_result(std::int64_t order) {
  return {result_words(order * (order + 1) / 2), order, order};
}

void MatrixRun::drop_target() {
  if (at_target_ == nullptr) return;
  ADDCOM.LASADD = old_last_;
  at_target_ = nullptr;
}

std::int64_t product_of(std::int64_t a, std::int64_t b) {
  std::int64_t n = 0;
  return __builtin_mul_overflow(a, b, &n) ? std::numeric_limits<std::int64_t>::max() / 64 : n;
}

// ---- Operands
// ------------------------------------------------------------------------------------

bool invalid_shape(const MatrixRun& run, const Operand& left, const Operand& right) {
  error_line<"(' ...ERROR..INVALID ', A, ' FUNCTION')">(operator_row(run.code).dump);
  say<"(' ...MATRIX DIMENSIONS: ', I0, ' BY ', I0, '     OR     ', I0, ' BY ', I0)">(
      left.rows, left.columns, right.rows, right.columns);
  mark_failed();
  return false;
}

bool not_available() {
  fail(" ...ERROR..FUNCTION NOT YET AVAILABLE");
  return false;
}

bool whole_argument(const Operand& x, double from, double to, std::int64_t& value) {
  if (!x.scalar()) return false;
  const double v = std::trunc(x.data[0]);
  if (!(v >= from && v <= to)) return false;
  value = static_cast<std::int64_t>(v);
  return true;
}

bool expand(MatrixRun& run, Operand& x) {
  if (!x.packed()) return true;
  double* full = run.take(product_of(x.rows, x.columns));
  if (full == nullptr) return false;
  const int order = static_cast<int>(x.rows);
  for (int i = 1; i <= order; ++i) {
    for (int j = 1; j <= i; ++j) {
      const double v = x.data[packed(i, j)];
      full[(i - 1) + (j - 1) * x.rows] = v;
      if (j < i) full[(j - 1) + (i - 1) * x.rows] = x.kind == SYMMETRIC ? v : 0.0;
    }
  }
  x = {.data = full, .rows = x.rows, .columns = x.columns, .own = true};
  return true;
}

void copy_elements(const Operand& x, double* to) {
  if (x.transposed) {
    transpose(x.data, x.columns, x.rows, to);
  } else {
    std::memmove(to, x.data, static_cast<std::size_t>(x.words()) * sizeof(double));
  }
}

bool straighten(MatrixRun& run, Operand& x) {
  if (!expand(run, x)) return false;
  if (!x.transposed) return true;
  double* straight = run.take(x.count());
  if (straight == nullptr) return false;
  copy_elements(x, straight);
  x = {.data = straight, .rows = x.rows, .columns = x.columns, .own = true};
  return true;
}

bool note_missing(MatrixRun& run, const Operand& x) {
  const double code = run.XMISS;
  if (!lane_table().holds(nullptr, x.data, &code, static_cast<std::size_t>(x.words()))) {
    return false;
  }
  run.missing = true;
  return true;
}

bool run_matrix(Workspace ws, const GenrJob& job) {
  // 1. Room for the code list and its operands, and the compiler.
  Scratch room(ws, formula_words());
  if (!room) return false;
  const Formula formula = carve_formula(room.words());
  OCOM.OGENR = OCOM.OMAT = true;
  const bool compiled = compile_statement(ws, job, formula);
  OCOM.OGENR = OCOM.OMAT = false;
  if (!compiled) return false;
  // 2. An entry for each temporary; then the statement.
  const auto count = static_cast<std::size_t>(GENCOM.KCON - DATCOM.MCON);
  static_assert(sizeof(Operand) % sizeof(double) == 0);
  Scratch entries(ws, static_cast<std::int64_t>(count * (sizeof(Operand) / sizeof(double))));
  if (!entries) return false;
  auto* const first = reinterpret_cast<Operand*>(entries.words().data());
  std::uninitialized_value_construct_n(first, count);
  MatrixRun run(ws, formula);
  run.temporaries = {first, count};
  return MATRIX(run);
}

}  // namespace korvel
