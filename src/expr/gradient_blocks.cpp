// GradientBlocks: the evaluation. gradient_blocks_plan.cpp makes the plan.

#include "expr/gradient_blocks.h"

#include <algorithm>
#include <cmath>

#include "expr/gradient_blocks_lanes.h"
#include "expr/operators.h"
#include "expr/trans_lanes.h"
#include "expr/vector_functions.h"
#include "platform/cpu.h"
#include "platform/parallel.h"
#include "stats/probability.h"

namespace korvel {
namespace {

constexpr std::int64_t SECTION_ROWS = 8192;  // below it a second thread costs more than it saves
constexpr std::size_t LINE = 8;              // words of a cache line: sections don't share one

const QuotientLoops& quotient_loops() {
#if defined(__x86_64__)
  switch (cpu_lanes()) {
    case Lanes::avx512:
      return avx512::QUOTIENTS;
    case Lanes::avx2:
      return avx2::QUOTIENTS;
    case Lanes::baseline:
      break;
  }
#endif
  return baseline::QUOTIENTS;
}

// One value of any operation; sets bad, and is then 0. TIME has its own place.
double one_value(int code, bool two, double a, double b, bool& bad) {
  bad = false;
  switch (code) {
    case OP_ADD:
      return a + b;
    case OP_SUB:
      return a - b;
    case OP_MULT:
      return a * b;
    case OP_DIV:
      bad = a != 0.0 && b == 0.0;
      return a == 0.0 || bad ? 0.0 : a / b;
    case OP_POWER: {
      PowerFault fault;
      const double r = POWER(a, b, fault);
      bad = fault != PowerFault::none;
      return bad ? 0.0 : r;
    }
    case OP_MINUS:
      return -b;
    case OP_EXP:
      return EXP(std::min(b, MACOM.EXLIM));
    case OP_ABS:
      return std::fabs(b);
    case OP_LOG:
      bad = b <= 0.0;
      return bad ? 0.0 : LOG(b);
    case OP_SQRT:
      bad = b < 0.0;
      return bad ? 0.0 : std::sqrt(b);
    case OP_INT:
      return whole32(b);
    case OP_SIN:
      if (!two) return std::sin(b);
      if (b != -1.0) return 0.0;
      bad = std::fabs(a) > 1.0;
      return bad ? 0.0 : std::asin(a);
    case OP_NCDF:
      return NCDF(b);
    case OP_LGAM:
      bad = b <= 0.0;
      return bad ? 0.0 : log_gamma(b);
    case OP_E:
      return a * std::pow(10.0, whole32(b));
    default:  // MISS
      return 0.0;
  }
}

bool has_two_operands(int code) {
  return code == OP_ADD || code == OP_SUB || code == OP_MULT || code == OP_DIV;
}

// The loop that runs an operation on a block; null: value by value.
struct Loop {
  LaneLoop run = nullptr;
  double extra[2] = {};
};

Loop loop_of(int code, bool a_varies, bool b_varies, double exponent) {
  const LaneTable& t = lane_table();
  const int form = !a_varies ? LANE_CV : b_varies ? LANE_VV : LANE_VC;
  switch (code) {
    case OP_ADD:
      return {t.add[form], {}};
    case OP_SUB:
      return {t.sub[form], {}};
    case OP_MULT:
      return {t.mult[form], {}};
    case OP_DIV:
      return {quotient_loops().div[form], {}};
    case OP_MINUS:
      return {t.minus, {}};
    case OP_ABS:
      return {t.abs, {}};
    case OP_EXP:
      return {t.exp_limited, {MACOM.EXLIM, 0.0}};
    case OP_LOG:
      return {t.log, {}};
    case OP_SQRT:
      return {t.sqrt, {}};
    case OP_POWER: {
      if (b_varies || OSCOM.OSPV) return {};
      if (!whole_power(exponent)) return {t.power_any, {exponent, MACOM.EXLIM}};
      const double n = std::fabs(exponent);
      if (n == 0.0 || n > MOST_PRODUCTS) return {};
      return {t.power, {n, exponent < 0.0 ? 1.0 : 0.0}};
    }
    default:
      return {};
  }
}

}  // namespace

// One section of an evaluation. Its slots' pointers stand in `at`; those of output columns are set
// at each block.
struct GradientBlocks::Stretch {
  std::int64_t first = 0, end = 0;  // rows
  std::span<double> value, derivatives;
  std::size_t ld = 0;
  double* buffers = nullptr;
  std::span<double*> at;
  FaultListener listener;
  // Without columns: a block's results, value and derivatives one behind the other, and who gets
  // them (null: only the faults count).
  double* block = nullptr;
  BlockTaker* taker = nullptr;
  int number = 0;
  bool wanted = false;
  bool gradient() const { return wanted; }
  double* value_at(std::int64_t row) const {
    return block != nullptr ? block : &value[static_cast<std::size_t>(row)];
  }
  double* derivative_at(std::size_t k, std::int64_t row) const {
    if (block != nullptr) return block + (k + 1) * GRADIENT_BLOCK;
    return &derivatives[k * ld + static_cast<std::size_t>(row)];
  }
};

int GradientBlocks::sections() const {
  return static_cast<int>(std::clamp<std::int64_t>(formula_.rows / SECTION_ROWS, 1, MOST_SECTIONS));
}

std::size_t GradientBlocks::section_words() const {
  const std::size_t pointers = (static_cast<std::size_t>(slots_) + LINE - 1) / LINE * LINE;
  return static_cast<std::size_t>(buffers_) * GRADIENT_BLOCK + pointers;
}

std::int64_t GradientBlocks::work_words() const {
  return static_cast<std::int64_t>(static_cast<std::size_t>(sections()) * section_words() + LINE);
}

const double* GradientBlocks::values(Ref ref, const Stretch& stretch, std::int64_t row) const {
  switch (ref.kind) {
    case Kind::scalar:
      return &operand(ref.index);
    case Kind::series:
      return formula_.columns[static_cast<std::size_t>(ref.index) - 1] + row;
    case Kind::slot:
      return stretch.at[static_cast<std::size_t>(ref.index)];
    default:
      return nullptr;
  }
}

// Steps that are the same for all rows. False when one that the value needs is illegal.
bool GradientBlocks::scalar_steps(bool gradient, FaultListener listener) const {
  bool clean = true;
  for (const Step& s : steps_) {
    if (!s.scalar || !(gradient || s.for_value)) continue;
    const double a = s.a.kind == Kind::none ? 0.0 : operand(s.a.index);
    const double b = s.b.kind == Kind::none ? 0.0 : operand(s.b.index);
    bool bad = s.illegal;
    operand(s.result) = s.illegal ? 0.0 : one_value(s.code, s.two, a, b, bad);
    if (!bad || !s.for_value) continue;
    clean = false;
    if (listener.tell != nullptr) listener.tell(listener.context, s.code, 0);
  }
  return clean;
}

void GradientBlocks::run_step(const Step& step, const Stretch& stretch, std::int64_t row,
                              std::size_t n, bool& clean) const {
  double* const r = stretch.at[static_cast<std::size_t>(step.result)];
  if (step.code == OP_TIME) {
    const double* b = values(step.b, stretch, row);
    const bool varies = step.b.kind != Kind::scalar;
    for (std::size_t i = 0; i < n; ++i) {
      const auto t = static_cast<std::size_t>(row) + i;
      const double obs = formula_.observations.empty()
                             ? static_cast<double>(t + 1)
                             : static_cast<double>(formula_.observations[t]);
      r[i] = obs + b[varies ? i : 0];
    }
    return;
  }
  const double* a = values(step.a, stretch, row);
  const double* b = values(step.b, stretch, row);
  const bool a_varies = a != nullptr && step.a.kind != Kind::scalar;
  const bool b_varies = b != nullptr && step.b.kind != Kind::scalar;
  // 1. The loop, if there is one: operations of one operand have it on the right.
  const Loop loop = loop_of(step.code, a_varies, b_varies, b == nullptr ? 0.0 : b[0]);
  if (loop.run != nullptr) {
    bool bad = false;
    if (has_two_operands(step.code))
      bad = loop.run(r, a, b, n);
    else
      bad = loop.run(r, step.code == OP_POWER ? a : b, loop.extra, n);
    if (!bad) return;
  }
  // 2. Value by value: where there is no loop, and what a loop has found to be more than plain
  // arithmetic. Results don't lie upon operands, so those are as they were.
  for (std::size_t i = 0; i < n; ++i) {
    bool bad = false;
    const double ai = a == nullptr ? 0.0 : a[a_varies ? i : 0];
    const double bi = b == nullptr ? 0.0 : b[b_varies ? i : 0];
    r[i] = one_value(step.code, step.two, ai, bi, bad);
    if (!bad || !step.for_value) continue;
    clean = false;
    if (stretch.listener.tell != nullptr) {
      stretch.listener.tell(stretch.listener.context, step.code,
                            row + static_cast<std::int64_t>(i));
    }
  }
}

void GradientBlocks::copy_out(Ref from, const Stretch& stretch, std::int64_t row, std::size_t n,
                              double* to) const {
  if (from.kind == Kind::none) {
    std::fill_n(to, n, 0.0);
  } else if (const double* v = values(from, stretch, row); from.kind == Kind::scalar) {
    std::fill_n(to, n, *v);
  } else if (v != to) {
    std::copy_n(v, n, to);
  }
}

// What is no result of a step of its own: constants, series, columns that are equal.
void GradientBlocks::outputs(const Stretch& stretch, std::int64_t row, std::size_t n) const {
  copy_out(value_, stretch, row, n, stretch.value_at(row));
  if (!stretch.gradient()) return;
  for (std::size_t k = 0; k < derivative_.size(); ++k) {
    copy_out(derivative_[k], stretch, row, n, stretch.derivative_at(k, row));
  }
}

bool GradientBlocks::run_section(const Stretch& stretch) const {
  bool clean = true;
  for (std::int64_t row = stretch.first; row < stretch.end; row += GRADIENT_BLOCK) {
    const auto n =
        static_cast<std::size_t>(std::min<std::int64_t>(GRADIENT_BLOCK, stretch.end - row));
    for (std::size_t s = 0; s < static_cast<std::size_t>(slots_); ++s) {
      const int column = column_[s];
      if (column == VALUE_COLUMN) {
        stretch.at[s] = stretch.value_at(row);
      } else if (column != NO_COLUMN && stretch.gradient()) {
        stretch.at[s] = stretch.derivative_at(static_cast<std::size_t>(column), row);
      } else {
        stretch.at[s] = stretch.buffers + std::ptrdiff_t{buffer_[s]} * GRADIENT_BLOCK;
      }
    }
    for (const Step& s : steps_) {
      if (!s.scalar && (stretch.gradient() || s.for_value)) run_step(s, stretch, row, n, clean);
    }
    outputs(stretch, row, n);
    if (stretch.taker != nullptr) {
      stretch.taker->take(stretch.number, row, n, stretch.block, stretch.block + GRADIENT_BLOCK,
                          GRADIENT_BLOCK);
    }
  }
  return clean;
}

bool GradientBlocks::evaluate(std::span<double> value, std::span<double> derivatives,
                              std::size_t ld, std::span<double> work,
                              FaultListener listener) const {
  Stretch all;
  all.value = value;
  all.derivatives = derivatives;
  all.ld = ld;
  all.listener = listener;
  all.wanted = !derivatives.empty();
  return run_sections(all, section_words(), work);
}

std::int64_t GradientBlocks::reduce_words() const {
  const std::size_t block = (derivative_.size() + 2) * GRADIENT_BLOCK;
  return static_cast<std::int64_t>(
      static_cast<std::size_t>(sections()) * (section_words() + block) + LINE);
}

bool GradientBlocks::reduce(BlockTaker& taker, bool gradient, std::span<double> work,
                            FaultListener listener) const {
  Stretch all;
  all.taker = &taker;
  all.listener = listener;
  all.wanted = gradient;
  return run_sections(all, section_words() + (derivative_.size() + 2) * GRADIENT_BLOCK, work);
}

// Runs all sections, each with `each` words of work space.
bool GradientBlocks::run_sections(const Stretch& all, std::size_t each,
                                  std::span<double> work) const {
  const FaultListener listener = all.listener;
  bool clean = scalar_steps(all.wanted, listener);
  const int count = sections();
  // Buffers begin on cache lines: a load across two of them costs twice.
  const auto shift = reinterpret_cast<std::uintptr_t>(work.data()) / sizeof(double) % LINE;
  double* const words = work.data() + (LINE - shift) % LINE;
  const std::int64_t blocks = (formula_.rows + GRADIENT_BLOCK - 1) / GRADIENT_BLOCK;
  const auto section = [&](int s) {
    Stretch stretch = all;
    stretch.listener = {};
    stretch.number = s;
    stretch.first = blocks * s / count * GRADIENT_BLOCK;
    stretch.end = std::min(blocks * (s + 1) / count * GRADIENT_BLOCK, formula_.rows);
    stretch.buffers = words + static_cast<std::size_t>(s) * each;
    stretch.at = {
        reinterpret_cast<double**>(stretch.buffers + std::ptrdiff_t{buffers_} * GRADIENT_BLOCK),
        static_cast<std::size_t>(slots_)};
    if (all.taker != nullptr) stretch.block = stretch.buffers + section_words();
    return stretch;
  };
  if (count == 1 || workers() == 1) {
    for (int s = 0; s < count; ++s) {
      Stretch stretch = section(s);
      stretch.listener = listener;
      if (!run_section(stretch)) clean = false;
    }
    return clean;
  }
  // On several threads faults are only noticed; those sections are run again, in order, to tell.
  bool found[MOST_SECTIONS] = {};
  parallel_sections(count, [&](int s) { found[s] = !run_section(section(s)); });
  for (int s = 0; s < count; ++s) {
    if (!found[s]) continue;
    clean = false;
    if (listener.tell == nullptr) continue;
    Stretch stretch = section(s);
    stretch.taker = nullptr;
    stretch.listener = listener;
    run_section(stretch);
  }
  return clean;
}

}  // namespace korvel
