// A function and its derivatives over all rows of the data, by blocks.
//
// Runs a list of quadruples, as gradient_list writes it or as a statement was compiled, with the
// vector loops of TRANS: an estimator plans a list once and evaluates it at each of its points.
//
//     plan       finds the operands, drops steps that nobody reads, settles which ones are the same
//                for all rows (they are run once an evaluation) and which ones the value alone
//                needs
//     evaluate   the value of each row and, when asked for, the derivatives as columns
//
// Meaning of the operations, as run_point has it: 0/x is 0 for any x, exponents are limited by
// EXLIM, an illegal step counts as 0. Beyond run_point the functions that have no derivative rule
// run too (SQRT, INT, SIN, NCDF, LGAM, TIME, E); those that an equation can't have (LAG, draws,
// SUM, comparisons, ...) are illegal. Bytes are the same for every vector width, number of threads
// and stretch of rows, and those of TRANS and run_point for each step.
//
// Work space comes from the caller; nothing is allocated. evaluate may use all threads and so must
// not be called inside a parallel section.
#pragma once

#include <cstdint>
#include <span>

#include "expr/genr.h"

namespace korvel {

inline constexpr int GRADIENT_BLOCK = 256;  // rows of a block: some 16 results stay in the cache

// What is to be run. The spans must live as long as the plan.
struct BlockFormula {
  std::span<const Quad> code;  // up to its first END
  std::span<double> operands;  // the table; temporaries that are the same for all rows are set
  std::span<const double* const>
      columns;  // [k-1]: first row of operand k; null or beyond: a scalar
  std::span<const std::int32_t> observations{};  // numbers of the rows, for TIME; empty: 1, 2, ...
  std::int64_t rows = 0;
  int value = 0;                               // operand that holds the function
  std::span<const std::int32_t> derivative{};  // operands of the K derivatives; 0: it is 0
};

// Told of each illegal step that the value depends on; row from 0. A step that is the same for all
// rows is told once, with row 0. Null: nobody wants to know. Illegal steps of derivatives are
// silent.
struct FaultListener {
  void (*tell)(void* context, int operation, std::int64_t row) = nullptr;
  void* context = nullptr;
};

// Takes the results of one block after another instead of whole columns: `value` and, ld apart,
// the derivatives of n rows from `row` on, which it may overwrite, as well as one column of room
// behind them. Blocks of a section come in order; sections run at the same time.
struct BlockTaker {
  virtual void take(int section, std::int64_t row, std::size_t n, double* value,
                    double* derivatives, std::size_t ld) = 0;

 protected:
  ~BlockTaker() = default;
};

class GradientBlocks {
 public:
  // Words that a plan for a list of so many quadruples and derivatives takes.
  static std::int64_t plan_words(std::size_t quads, std::size_t derivatives);
  // Plans; the words are kept.
  void plan(const BlockFormula& formula, std::span<double> words);

  // Words of work space of one evaluation.
  std::int64_t work_words() const;
  // value: a word a row. derivatives: column k at k*ld, or empty when only the value is wanted.
  // False when a step that the value depends on was illegal.
  bool evaluate(std::span<double> value, std::span<double> derivatives, std::size_t ld,
                std::span<double> work, FaultListener listener = {}) const;

  // The same without columns: each block goes to the taker while it is in the cache.
  std::int64_t reduce_words() const;
  bool reduce(BlockTaker& taker, bool gradient, std::span<double> work,
              FaultListener listener = {}) const;
  int sections() const;  // that blocks are taken from; set by the number of rows
  static constexpr int MOST_SECTIONS = 16;

 private:
  // Where an operand of a step lies.
  enum class Kind : std::uint8_t { none, scalar, series, slot };
  struct Ref {
    Kind kind = Kind::none;
    std::int32_t index = 0;  // number of the operand, or of the slot
  };
  struct Step {
    std::int32_t code = 0;
    std::int32_t result = 0;  // slot, or for a scalar step the operand
    Ref a, b;
    bool scalar = false, for_value = false;
    bool two = false;  // SIN of two arguments
    bool illegal = false;
  };
  struct Stretch;  // one section of an evaluation
  class Planner;
  friend class Planner;

  static constexpr int VALUE_COLUMN = -2, NO_COLUMN = -1;

  std::size_t section_words() const;
  bool scalar_steps(bool gradient, FaultListener listener) const;
  bool run_section(const Stretch& stretch) const;
  bool run_sections(const Stretch& all, std::size_t each, std::span<double> work) const;
  void run_step(const Step& step, const Stretch& stretch, std::int64_t row, std::size_t n,
                bool& clean) const;
  void outputs(const Stretch& stretch, std::int64_t row, std::size_t n) const;
  void copy_out(Ref from, const Stretch& stretch, std::int64_t row, std::size_t n,
                double* to) const;
  const double* values(Ref ref, const Stretch& stretch, std::int64_t row) const;
  double& operand(int k) const { return formula_.operands[static_cast<std::size_t>(k) - 1]; }

  BlockFormula formula_;
  std::span<Step> steps_;           // those that are run, in order
  std::span<Ref> derivative_;       // K
  std::span<std::int32_t> buffer_;  // of each slot
  std::span<std::int32_t> column_;  // of each slot: the output that it is, VALUE_ or NO_COLUMN
  Ref value_;
  int slots_ = 0, buffers_ = 0;
};

}  // namespace korvel
