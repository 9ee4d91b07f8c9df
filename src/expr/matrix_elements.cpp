// MATRIX: operations and functions that are done element by element.

#include <atomic>
#include <cmath>
#include <cstring>

#include "engine/output.h"
#include "expr/expr.h"
#include "expr/matrix.h"
#include "expr/trans_lanes.h"
#include "expr/vector_functions.h"
#include "platform/parallel.h"
#include "stats/probability.h"

namespace korvel {
namespace {

constexpr std::int64_t CHUNK = 512;        // elements made in a buffer of their own
constexpr std::int64_t SECTION = 1 << 15;  // elements of a parallel section

// One step over all elements: r[i] = f(a[i], b[i]), a scalar standing still. Functions of one
// argument take b.
struct ElementJob {
  int code = 0;
  bool two = false;  // the function has two arguments
  const double* a = nullptr;
  const double* b = nullptr;
  bool a_moves = false, b_moves = false;
  double* r = nullptr;
  std::int64_t n = 0;
  LaneLoop loop = nullptr;            // null: element after element
  const double* parameter = nullptr;  // second operand of the loop when it is not b
  bool unary = false;                 // the loop takes b as its first operand
  bool spread = false;                // missing codes pass to the result
  bool loses = false;                 // MIN, MAX: a missing argument loses
  double XMISS = 0;
  std::atomic<int> illegal = 0;

  double one(double x, double y, int& flags) const;
  void section(std::int64_t from, std::int64_t to);
};

double truth(bool b) { return b ? 1.0 : 0.0; }

// EXP of more than the limit is that of the limit; under SET SPV the power is split off and told.
double exponential(double x) {
  const double limit = MACOM.EXLIM;
  if (!(x > limit)) return EXP(x);
  if (!OSCOM.OSPV) return EXP(limit);
  const double mantissa = EXP(std::fmod(x, limit));
  say<"(' EXP IS', G15.7, ' TIMES THE POWER', F8.0, ' OF EXP(', F5.0, ')')">(
      mantissa, std::trunc(x / limit), limit);
  return mantissa;
}

double ElementJob::one(double x, double y, int& flags) const {
  const auto wrong = [&](int flag) {
    flags |= flag;
    return XMISS;
  };
  switch (code) {
    case OP_ADD:
      return x + y;
    case OP_SUB:
      return x - y;
    case OP_MULT:
      return x * y;
    case OP_DIV:
      return y == 0.0 ? wrong(ILLEGAL_DIVISION) : x / y;
    case OP_POWER: {
      PowerFault fault;
      const double p = POWER(x, y, fault);
      if (fault == PowerFault::none) return p;
      return wrong(fault == PowerFault::zero ? ILLEGAL_DIVISION : ILLEGAL_STEP);
    }
    case OP_MINUS:
      return -y;
    case OP_EXP:
      return exponential(y);
    case OP_ABS:
      return std::fabs(y);
    case OP_LOG:
      return y <= 0.0 ? wrong(ILLEGAL_STEP) : LOG(y);
    case OP_INT:
      return whole32(y);
    case OP_SQRT:
      return y < 0.0 ? wrong(ILLEGAL_STEP) : std::sqrt(y);
    case OP_DUM:
      return truth(y > 0.0);
    case OP_SIN:
      if (!two) return std::sin(y);
      if (y != -1.0) return 0.0;
      return std::fabs(x) > 1.0 ? wrong(ILLEGAL_STEP) : std::asin(x);
    case OP_MIN:
    case OP_MAX:
      if (loses && x == XMISS) return y;
      if (loses && y == XMISS) return x;
      if (code == OP_MIN) return y < x ? y : x;
      return y > x ? y : x;
    case OP_NCDF:
      return NCDF(y);
    case OP_LGAM:
      return y <= 0.0 ? wrong(ILLEGAL_STEP) : log_gamma(y);
    case OP_MOD:
      return y == 0.0 ? XMISS : std::fmod(x, y);
    case OP_RECODE:
      return whole32(y + 0.5);
    case OP_E:
      return x * std::pow(10.0, whole32(y));
    case OP_EQ:
      return truth(x == y);
    case OP_NE:
      return truth(x != y);
    case OP_LT:
      return truth(x < y);
    case OP_LE:
      return truth(x <= y);
    case OP_GT:
      return truth(x > y);
    case OP_GE:
      return truth(x >= y);
    case OP_OR:
      return truth(x > 0.0 || y > 0.0);
    case OP_AND:
      return truth(x > 0.0 && y > 0.0);
    case OP_NOT:
      return truth(y <= 0.0);
    default:  // MISS
      return 0.0;
  }
}

// Made in a buffer, since the result may lie where an operand lies.
void ElementJob::section(std::int64_t from, std::int64_t to) {
  double made[CHUNK];
  int flags = 0;
  for (std::int64_t i = from; i < to; i += CHUNK) {
    const std::int64_t m = std::min(CHUNK, to - i);
    const double* x = a_moves ? a + i : a;
    const double* y = b_moves ? b + i : b;
    const bool fast = loop != nullptr && !loop(made, unary ? y : x, unary ? parameter : y,
                                               static_cast<std::size_t>(m));
    for (std::int64_t k = 0; k < m && !fast; ++k) {
      made[k] = one(x[a_moves ? k : 0], y[b_moves ? k : 0], flags);
    }
    for (std::int64_t k = 0; k < m && spread; ++k) {
      if (x[a_moves ? k : 0] == XMISS || y[b_moves ? k : 0] == XMISS) made[k] = XMISS;
    }
    std::memcpy(r + i, made, static_cast<std::size_t>(m) * sizeof(double));
  }
  if (flags != 0) illegal.fetch_or(flags, std::memory_order_relaxed);
}

// The vector loop of the step, where there is one. parameter: two words.
void pick_loop(ElementJob& job, double* parameter) {
  const LaneTable& t = lane_table();
  const int form = !job.b_moves && job.a_moves   ? LANE_VC
                   : job.b_moves && !job.a_moves ? LANE_CV
                                                 : LANE_VV;
  const auto pick = [&](const LaneLoop(&loops)[LANE_FORMS]) { job.loop = loops[form]; };
  const auto one_operand = [&](LaneLoop loop) {
    job.loop = loop;
    job.unary = true;
    job.parameter = parameter;
  };
  switch (job.code) {
    case OP_ADD:
      return pick(t.add);
    case OP_SUB:
      return pick(t.sub);
    case OP_MULT:
      return pick(t.mult);
    case OP_DIV:
      return pick(t.div);
    case OP_EQ:
      return pick(t.eq);
    case OP_NE:
      return pick(t.ne);
    case OP_LT:
      return pick(t.lt);
    case OP_LE:
      return pick(t.le);
    case OP_GT:
      return pick(t.gt);
    case OP_GE:
      return pick(t.ge);
    case OP_OR:
      return pick(t.either);
    case OP_AND:
      return pick(t.both);
    case OP_MINUS:
      return one_operand(t.minus);
    case OP_ABS:
      return one_operand(t.abs);
    case OP_DUM:
      return one_operand(t.dum);
    case OP_NOT:
      return one_operand(t.not_);
    case OP_SQRT:
      return one_operand(t.sqrt);
    case OP_LOG:
      return one_operand(t.log);
    case OP_EXP:
      parameter[0] = MACOM.EXLIM;
      return one_operand(t.exp_limited);
    default:
      return;
  }
}

void run_job(ElementJob& job) {
  const auto sections = static_cast<int>((job.n + SECTION - 1) / SECTION);
  const auto body = [&](int s) {
    const std::int64_t from = s * SECTION;
    job.section(from, std::min(from + SECTION, job.n));
  };
  // EXP may print.
  if (sections > 1 && !OSCOM.OSPV) return parallel_sections(sections, body);
  for (int s = 0; s < sections; ++s) body(s);
}

bool needs_two(int code) { return code == OP_MIN || code == OP_MAX || code == OP_MOD; }

}  // namespace

bool is_elementwise(int code) {
  switch (code) {
    case OP_ADD:
    case OP_SUB:
    case OP_DIV:
    case OP_POWER:
    case OP_MINUS:
    case OP_EXP:
    case OP_ABS:
    case OP_LOG:
    case OP_INT:
    case OP_SQRT:
    case OP_DUM:
    case OP_SIN:
    case OP_MIN:
    case OP_MAX:
    case OP_NCDF:
    case OP_LGAM:
    case OP_MOD:
    case OP_MISS:
    case OP_RECODE:
    case OP_E:
      return true;
    default:
      return code >= OP_EQ && code <= OP_NOT;
  }
}

bool element_step(MatrixRun& run, Operand left, Operand right, Operand& to) {
  const bool two = left.data != nullptr;
  // 1. Shapes: a scalar meets any matrix, but a power must be a scalar.
  const bool scalars = left.scalar() || right.scalar();
  if (two && (run.code == OP_POWER ? !right.scalar() : !scalars && !left.same_shape(right))) {
    return invalid_shape(run, left, right);
  }
  // 2. By columns; where all are transposed, their words are met in the same order, and the result
  // is a transpose, too (but for the last one, whose words are those of the target).
  if (!expand(run, right) || (two && !expand(run, left))) return false;
  bool transposed = false;
  if (run.last || (two && !scalars && left.transposed != right.transposed)) {
    if ((two && !straighten(run, left)) || !straighten(run, right)) return false;
  } else {
    transposed = two && right.scalar() ? left.transposed : right.transposed;
  }
  const bool noted = run.missing;
  const bool met = note_missing(run, right);
  const bool met_left = two && note_missing(run, left);
  // 3. The result, in place of an operand that nobody needs any more.
  const Operand& shape = two && right.scalar() ? left : right;
  ElementJob job{.code = run.code,
                 .two = two,
                 .a = two ? left.data : right.data,
                 .b = right.data,
                 .n = shape.count(),
                 .XMISS = run.XMISS};
  job.a_moves = two ? !left.scalar() : !right.scalar();
  job.b_moves = !right.scalar();
  Result made{nullptr, shape.rows, shape.columns};
  const auto reuse = [&](const Operand& x) {
    if (made.data == nullptr && x.own && x.same_shape(shape)) {
      made.data = const_cast<double*>(x.data);
    }
  };
  if (two) reuse(left);
  reuse(right);
  if (!made) made = run.result(shape.rows, shape.columns);
  if (!made) return false;
  job.r = made.data;
  // 4. The elements.
  const bool smaller_or_larger = run.code == OP_MIN || run.code == OP_MAX;
  job.loses = run.SKIPMISS && smaller_or_larger;
  job.spread = run.SKIPMISS && (met || met_left) && !smaller_or_larger && run.code != OP_MISS;
  if (!two && needs_two(run.code)) {  // a function that wants two arguments and has one
    std::fill_n(job.r, job.n, run.XMISS);
    run.missing = true;
  } else {
    double parameter[2] = {0.0, 0.0};
    pick_loop(job, parameter);
    run_job(job);
    run.illegal |= job.illegal.load();
  }
  to = made.operand();
  if (job.loses) {  // where the other argument has won nothing is missing
    run.missing = noted;
    note_missing(run, to);
  }
  to.transposed = transposed;
  return true;
}

// UNI and NOR: one draw an element, column by column.
bool draw_step(MatrixRun& run, const Operand& x, Operand& to) {
  Operand a = x.pair ? run.args[0] : x;
  Operand b = x.pair ? run.args[1] : x;
  if (!a.scalar() && !b.scalar() && !a.same_shape(b)) return invalid_shape(run, a, b);
  if (!straighten(run, a) || !straighten(run, b)) return false;
  const bool met_a = note_missing(run, a);
  const bool met_b = x.pair && note_missing(run, b);
  const Operand& shape = a.scalar() ? b : a;
  const Result made = run.result(shape.rows, shape.columns);
  if (!made) return false;
  const std::int64_t n = shape.count();
  const std::span<double> drawn(made.data, static_cast<std::size_t>(n));
  seed_random();
  if (run.code == OP_UNI) {
    fill_uniform(drawn);
  } else {
    fill_normal(drawn);
  }
  const std::int64_t step_a = a.scalar() ? 0 : 1;
  const std::int64_t step_b = b.scalar() ? 0 : 1;
  const bool uniform = run.code == OP_UNI;
  for (std::int64_t i = 0; i < n; ++i) {
    const double p = a.data[i * step_a];
    const double q = b.data[i * step_b];
    double& r = made.data[i];
    if (!x.pair) {
      r *= p;
    } else {
      r = uniform ? p + (q - p) * r : r * q + p;
    }
    if (run.SKIPMISS && (met_a || met_b) && (p == run.XMISS || q == run.XMISS)) r = run.XMISS;
  }
  to = made.operand();
  return true;
}

}  // namespace korvel
