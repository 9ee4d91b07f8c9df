// The plan of GradientBlocks.

#include <algorithm>
#include <limits>

#include "expr/gradient_blocks.h"
#include "expr/operators.h"

namespace korvel {
namespace {

// Operations that an equation can have, besides the comma before SIN.
bool is_legal(int code) {
  switch (code) {
    case OP_ADD:
    case OP_SUB:
    case OP_MULT:
    case OP_DIV:
    case OP_POWER:
    case OP_MINUS:
    case OP_EXP:
    case OP_ABS:
    case OP_LOG:
    case OP_SQRT:
    case OP_INT:
    case OP_SIN:
    case OP_TIME:
    case OP_NCDF:
    case OP_LGAM:
    case OP_MISS:
    case OP_E:
      return true;
    default:
      return false;
  }
}

bool reads_left(int code) {
  return code == OP_ADD || code == OP_SUB || code == OP_MULT || code == OP_DIV ||
         code == OP_POWER || code == OP_E;
}

std::size_t statement_length(std::span<const Quad> code) {
  const auto end = std::ranges::find(code, static_cast<std::int32_t>(OP_END), &Quad::code);
  return static_cast<std::size_t>(end - code.begin());
}

// Takes `count` things of type T off the words.
template <class T>
std::span<T> take(std::span<double>& words, std::size_t count) {
  static_assert(alignof(T) <= alignof(double));
  const std::size_t used = (count * sizeof(T) + sizeof(double) - 1) / sizeof(double);
  const std::span<T> taken{reinterpret_cast<T*>(words.data()), count};
  words = words.subspan(used);
  std::ranges::fill(taken, T{});
  return taken;
}

}  // namespace

class GradientBlocks::Planner {
 public:
  Planner(GradientBlocks& blocks, std::span<double> words) : blocks_(blocks), words_(words) {}

  static std::int64_t words(std::size_t quads, std::size_t derivatives) {
    const std::size_t each = sizeof(Step) + sizeof(Temporary) + 4 * sizeof(std::int32_t);
    return static_cast<std::int64_t>((quads * each + derivatives * sizeof(Ref)) / sizeof(double) +
                                     8);
  }

  void make() {
    const BlockFormula& f = blocks_.formula_;
    const std::size_t quads = statement_length(f.code);
    blocks_.steps_ = take<Step>(words_, quads);
    blocks_.derivative_ = take<Ref>(words_, f.derivative.size());
    blocks_.buffer_ = take<std::int32_t>(words_, quads);
    blocks_.column_ = take<std::int32_t>(words_, quads);
    temporaries_ = take<Temporary>(words_, quads);
    last_read_ = take<std::int32_t>(words_, quads);
    free_ = take<std::int32_t>(words_, quads);
    // 1. Steps and what they read.
    bool comma = false;
    for (std::size_t i = 0; i < quads; ++i) comma = take_quad(f.code[i], comma);
    blocks_.value_ = find(f.value);
    for (std::size_t k = 0; k < f.derivative.size(); ++k) {
      blocks_.derivative_[k] = find(f.derivative[k]);
    }
    // 2. Those that are wanted, then where their results lie.
    drop_dead();
    blocks_.steps_ = blocks_.steps_.first(count_);
    place_results();
  }

 private:
  // The newest value of a temporary.
  struct Temporary {
    std::int32_t operand = 0;
    Ref ref;
  };

  Ref find(int operand) const {
    if (operand <= 0) return {};
    for (std::size_t i = known_; i-- > 0;) {
      if (temporaries_[i].operand == operand) return temporaries_[i].ref;
    }
    const auto k = static_cast<std::size_t>(operand);
    const auto& columns = blocks_.formula_.columns;
    const bool series = k <= columns.size() && columns[k - 1] != nullptr;
    return {series ? Kind::series : Kind::scalar, operand};
  }
  void know(int operand, Ref ref) { temporaries_[known_++] = {operand, ref}; }

  // Returns whether it was a comma, which gives the function behind it two arguments.
  bool take_quad(const Quad& q, bool comma) {
    if (q.code == OP_COMMA) {
      arg1_ = find(q.left);
      arg2_ = find(q.right);
      know(q.result, arg1_);
      return true;
    }
    if (q.code == OP_EQUAL && q.left <= 0) {
      know(q.result, find(q.right));
      return false;
    }
    Step& s = blocks_.steps_[count_++];
    s.code = q.code;
    s.illegal = !is_legal(q.code);
    if (!s.illegal) {
      s.two = comma && q.code == OP_SIN;
      s.a = s.two ? arg1_ : reads_left(q.code) ? find(q.left) : Ref{};
      s.b = s.two ? arg2_ : find(q.right);
    }
    const auto varies = [](Ref ref) { return ref.kind == Kind::series || ref.kind == Kind::slot; };
    s.scalar = s.illegal || (!varies(s.a) && !varies(s.b) && s.code != OP_TIME);
    s.result = s.scalar ? q.result : blocks_.slots_++;
    know(q.result, {s.scalar ? Kind::scalar : Kind::slot, s.result});
    return false;
  }

  // The step that makes a value, by looking back from place i; none: count_.
  std::size_t maker(Ref ref, std::size_t i) const {
    if (ref.kind != Kind::slot && ref.kind != Kind::scalar) return count_;
    while (i-- > 0) {
      const Step& s = blocks_.steps_[i];
      if (s.result == ref.index && s.scalar == (ref.kind == Kind::scalar)) return i;
    }
    return count_;
  }

  // free_ serves as marks here: 1 wanted, 3 wanted for the value.
  void want(Ref ref, std::size_t before, int mark) {
    if (const std::size_t i = maker(ref, before); i < count_) free_[i] |= mark;
  }
  void drop_dead() {
    want(blocks_.value_, count_, 3);
    for (const Ref ref : blocks_.derivative_) want(ref, count_, 1);
    for (std::size_t i = count_; i-- > 0;) {
      if (free_[i] == 0) continue;
      want(blocks_.steps_[i].a, i, free_[i]);
      want(blocks_.steps_[i].b, i, free_[i]);
    }
    std::size_t kept = 0;
    for (std::size_t i = 0; i < count_; ++i) {
      if (free_[i] == 0) continue;
      Step s = blocks_.steps_[i];
      s.for_value = free_[i] == 3;
      blocks_.steps_[kept++] = s;
    }
    count_ = kept;
  }

  // Buffers: a result takes a free one before its operands give theirs back, so that no loop writes
  // upon what it reads. A slot that is an output has a buffer too, for evaluations without
  // derivatives.
  void place_results() {
    std::ranges::fill(blocks_.column_, NO_COLUMN);
    for (std::size_t k = blocks_.derivative_.size(); k-- > 0;) {
      claim(blocks_.derivative_[k], static_cast<int>(k));
    }
    claim(blocks_.value_, VALUE_COLUMN);
    std::ranges::fill(last_read_, -1);
    for (std::size_t i = 0; i < count_; ++i) {
      const Step& s = blocks_.steps_[i];
      const auto now = static_cast<std::int32_t>(i);
      if (!s.scalar) last_read_[static_cast<std::size_t>(s.result)] = now;
      for (const Ref ref : {s.a, s.b}) {
        if (ref.kind == Kind::slot) last_read_[static_cast<std::size_t>(ref.index)] = now;
      }
    }
    std::size_t free = 0;
    for (std::size_t i = 0; i < count_; ++i) {
      const Step& s = blocks_.steps_[i];
      if (s.scalar) continue;
      const auto now = static_cast<std::int32_t>(i);
      const auto result = static_cast<std::size_t>(s.result);
      blocks_.buffer_[result] = free > 0 ? free_[--free] : blocks_.buffers_++;
      const auto release = [&](std::size_t slot) {
        if (last_read_[slot] != now) return;
        free_[free++] = blocks_.buffer_[slot];
        last_read_[slot] = -1;
      };
      if (s.a.kind == Kind::slot) release(static_cast<std::size_t>(s.a.index));
      if (s.b.kind == Kind::slot) release(static_cast<std::size_t>(s.b.index));
      release(result);
    }
  }
  void claim(Ref ref, int column) {
    if (ref.kind == Kind::slot) blocks_.column_[static_cast<std::size_t>(ref.index)] = column;
  }

  GradientBlocks& blocks_;
  std::span<double> words_;
  std::span<Temporary> temporaries_;
  std::span<std::int32_t> last_read_, free_;
  std::size_t count_ = 0, known_ = 0;
  Ref arg1_, arg2_;
};

std::int64_t GradientBlocks::plan_words(std::size_t quads, std::size_t derivatives) {
  return Planner::words(quads, derivatives);
}

void GradientBlocks::plan(const BlockFormula& formula, std::span<double> words) {
  *this = GradientBlocks{};
  formula_ = formula;
  Planner(*this, words).make();
}

}  // namespace korvel
