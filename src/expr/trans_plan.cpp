// Whether a code list can run by blocks, and how.
//
// It can when an observation's result depends on nothing but stored values that the list does not
// change, running sums and one draw. Everything else runs one observation at a time.

#include <algorithm>
#include <cmath>

#include "engine/output.h"
#include "expr/operators.h"
#include "expr/trans_plan.h"
#include "expr/vector_functions.h"
#include "stats/probability.h"

namespace korvel {
namespace {

using Kind = Ref::Kind;

// ---- Functions called value by value
// -------------------------------------------------------------

double each_int(const BlockStep&, double a, double, int, bool&) { return whole32(a); }
double each_sin(const BlockStep&, double a, double, int, bool&) { return std::sin(a); }
double each_arcsin(const BlockStep&, double a, double, int, bool& bad) {
  bad |= std::fabs(a) > 1.0;
  return bad ? 0.0 : std::asin(a);
}
double each_ncdf(const BlockStep&, double a, double, int, bool&) { return NCDF(a); }
double each_lgam(const BlockStep&, double a, double, int, bool& bad) {
  bad |= a <= 0.0;
  return bad ? 0.0 : log_gamma(a);
}
double each_mod(const BlockStep&, double a, double b, int, bool& bad) {
  bad |= b == 0.0;
  return bad ? 0.0 : std::fmod(a, b);
}
double each_time(const BlockStep&, double a, double, int obs, bool&) { return obs + a; }
double each_seas(const BlockStep&, double a, double, int obs, bool&) {
  const int n = whole32(a);
  return n >= 1 && obs % n == 1 ? 1.0 : 0.0;
}
double each_power(const BlockStep&, double a, double b, int, bool& bad) {
  PowerFault fault;
  const double r = POWER(a, b, fault);
  bad |= fault != PowerFault::none;
  return r;
}
double each_e(const BlockStep&, double a, double b, int, bool&) {
  return a * std::pow(10.0, whole32(b));
}
double each_round(const BlockStep&, double a, double, int, bool&) { return whole32(a + 0.5); }
double each_recode(const BlockStep& s, double a, double, int, bool&) {
  double r = a;
  for (int i = 0; i < s.rows; ++i) {
    if (s.table[i] <= a && a <= s.table[s.rows + i]) r = s.table[2 * s.rows + i];
  }
  return r;
}

// ---- The plan
// ------------------------------------------------------------------------------------

class Planner {
 public:
  Planner(Run& run, std::span<Ref> temporaries, Plan& plan)
      : run_(run), temporaries_(temporaries), plan_(plan) {}

  bool make() {
    plan_.limit = DATCOM.MEND;
    if (run_.target > 0 && !usable_target()) return false;
    bool in_body = false;
    const std::span<Quad> quads = run_.formula->list_of_quads();
    for (std::size_t i = 0; i < quads.size(); ++i) {
      const Step& s = run_.steps[i];
      const Quad& q = quads[i];
      if (s.code == OP_END) {
        if (!end(s)) return false;
        in_body = in_body || s.flag == END_IF;
        comma_ = false;
        continue;
      }
      if ((s.code == OP_UNI || s.code == OP_NOR) && (in_body || plan_.draws)) return false;
      if (!step(s, q)) return false;
    }
    return true;
  }

 private:
  bool usable_target() {
    const Source& target = run_.source(run_.target);
    if (target.base == nullptr) return true;
    if (!target.fits && target.checked) return false;
    plan_.limit = std::min(plan_.limit, target.rows);
    // A target that the list reads must keep its values until the block is known to be clean.
    plan_.direct = true;
    for (const Step& s : run_.steps) {
      for (const int place : {s.left, s.right}) {
        if (place != 0 && run_.source(place).assigned) plan_.direct = false;
      }
    }
    return true;
  }

  Ref& temporary_ref(int k) { return temporaries_[static_cast<std::size_t>(k - DATCOM.MCON - 1)]; }

  // The operand with number k, read at the observation.
  bool operand(int k, Ref& ref) {
    if (run_.formula->is_variable(k)) return series(k, 0, ref);
    if (k > DATCOM.MCON && k <= last_temporary()) {
      ref = temporary_ref(k);
      return ref.kind != Kind::none;
    }
    ref = {.kind = Kind::uniform, .values = &run_.formula->operand(k)};
    return uniform_ok(ref);
  }
  bool series(int place, int lag, Ref& ref) {
    const Source& source = run_.source(place);
    if (source.base == nullptr || !source.fits) return false;
    if (source.assigned && (lag != 0 || source.scalar())) return false;
    if (source.scalar() && lag == 0) {
      ref = {.kind = Kind::uniform, .values = source.base};
      return uniform_ok(ref);
    }
    if (source.scalar()) return false;
    plan_.limit = std::min(plan_.limit, source.rows);
    ref = {.kind = Kind::series, .lag = lag, .rows = source.rows, .values = source.base};
    return true;
  }
  bool uniform_ok(const Ref& ref) const { return !(run_.SKIPMISS && *ref.values == run_.XMISS); }

  // Reads of temporary k: one in a compiled statement, any number in a derivative.
  int reads(int k) const {
    int n = 0;
    for (const Quad& q : run_.formula->list_of_quads()) {
      if (q.code != OP_END) n += int{q.left == k} + int{q.right == k};
    }
    return n;
  }
  // An operand has been read: its buffer is free when nothing will read it again.
  void release(const Ref& ref) {
    if (ref.kind != Kind::buffer) return;
    if (--pending_[static_cast<std::size_t>(ref.buffer)] == 0) free_ |= 1U << ref.buffer;
  }
  // A buffer for the temporary `result`.
  bool acquire(int result, std::int16_t& buffer) {
    for (int i = 0; i < MAXBUFFERS; ++i) {
      if ((free_ >> i & 1U) != 0) {
        free_ &= ~(1U << i);
        buffer = static_cast<std::int16_t>(i);
        pending_[static_cast<std::size_t>(i)] = reads(result);
        return true;
      }
    }
    return false;
  }

  BlockStep& next() const { return plan_.steps[static_cast<std::size_t>(plan_.count)]; }

  // Takes the step at next() into the plan; its result is q's temporary.
  bool emit(BlockStep& step, const Quad& q) {
    release(step.a);
    release(step.b);
    if (!acquire(q.result, step.result)) return false;
    temporary_ref(q.result) = {.kind = Kind::buffer, .buffer = step.result};
    ++plan_.count;
    return true;
  }
  void set_uniform(const Quad& q, double value) {
    double& slot = run_.formula->operand(q.result);
    slot = value;
    temporary_ref(q.result) = {.kind = Kind::uniform, .values = &slot};
  }

  // Operands the same for all observations: the result is worked out here, once.
  bool fold(BlockStep& step, const Quad& q) {
    const double a = *step.a.values;
    const double b = step.b.kind == Kind::uniform ? *step.b.values : 0.0;
    double r = 0.0;
    bool bad = false;
    if (step.each != nullptr)
      r = step.each(step, a, b, 0, bad);
    else if (step.loop != nullptr)
      bad = step.loop(&r, &a, step.extra.data(), 1);
    else
      bad = step.forms[LANE_VV](&r, &a, &b, 1);
    if (bad || (run_.SKIPMISS && r == run_.XMISS)) return false;
    set_uniform(q, r);
    return true;
  }
  static bool all_uniform(const BlockStep& step) {
    return step.a.kind == Kind::uniform &&
           (step.b.kind == Kind::uniform || step.b.kind == Kind::none);
  }

  bool one(BlockStep& step, const Quad& q, LaneLoop loop) {
    step.loop = loop;
    if (!operand(q.right, step.a)) return false;
    return all_uniform(step) ? fold(step, q) : emit(step, q);
  }
  bool two(BlockStep& step, const Quad& q, const LaneLoop (&forms)[LANE_FORMS]) {
    std::copy(forms, forms + LANE_FORMS, step.forms);
    if (!operand(q.left, step.a) || !operand(q.right, step.b)) return false;
    return all_uniform(step) ? fold(step, q) : emit(step, q);
  }
  bool each(BlockStep& step, const Quad& q, LaneCall call, bool varies = false) {
    step.kind = BlockKind::lanes;
    step.each = call;
    return all_uniform(step) && !varies ? fold(step, q) : emit(step, q);
  }
  // Operands of a function of two arguments: those of the comma before it.
  bool arguments(BlockStep& step) {
    step.a = arg1_;
    step.b = arg2_;
    return comma_;
  }

  bool power(BlockStep& step, const Quad& q) {
    if (!operand(q.left, step.a) || !operand(q.right, step.b)) return false;
    if (step.b.kind != Kind::uniform || OSCOM.OSPV) return each(step, q, each_power);
    const double y = *step.b.values;
    if (!whole_power(y)) {
      step.extra = {y, MACOM.EXLIM};
      step.loop = lane_table().power_any;
    } else {
      const double n = std::fabs(y);
      if (n > MOST_PRODUCTS) return each(step, q, each_power);
      if (n == 0.0) {
        if (run_.SKIPMISS) return false;  // the base is looked at
        release(step.a);
        set_uniform(q, 1.0);
        return true;
      }
      step.extra = {n, y < 0.0 ? 1.0 : 0.0};
      step.loop = lane_table().power;
    }
    step.b = Ref{};
    return all_uniform(step) ? fold(step, q) : emit(step, q);
  }

  bool lag(const Step& s, const Quad& q) {
    int n = 1;
    int place = s.right;
    if (s.two) {
      if (arg2_.kind != Kind::uniform) return false;
      n = whole32(*arg2_.values);
      place = (&s - 1)->left;
    }
    if (place == 0 || n == whole32(NAN)) return false;
    if (run_.source(place).scalar()) return false;  // a lag sees one element, not a constant
    Ref ref;
    if (!series(place, n, ref)) return false;
    temporary_ref(q.result) = ref;
    return true;
  }

  // X(n) and DATA(X,n) with the same n everywhere.
  bool element(int place, const Ref& index, const Quad& q) {
    if (index.kind != Kind::uniform || place == 0) return false;
    const Source& source = run_.source(place);
    const int n = whole32(*index.values);
    if (source.base == nullptr || source.assigned || !source.fits || n < 1 || n > source.rows) {
      return false;
    }
    if (run_.SKIPMISS && source.base[n - 1] == run_.XMISS) return false;
    set_uniform(q, source.base[n - 1]);
    return true;
  }

  bool recode(BlockStep& step, const Step& s, const Quad& q) {
    if (OSCOM.ODMMP) return false;
    if (!s.two) return operand(q.right, step.a) && each(step, q, each_round);
    const int place = (&s - 1)->right;
    if (place == 0 || !comma_) return false;
    const Source& table = run_.source(place);
    if (table.whole == nullptr || table.COLUMNS != 3 || table.LENGTH % 3 != 0 || table.assigned ||
        table.base != table.whole) {
      return false;
    }
    step.a = arg1_;
    step.table = table.whole;
    step.rows = table.LENGTH / 3;
    return each(step, q, each_recode);
  }

  bool sum(BlockStep& step, const Step& s, const Quad& q) {
    if (s.two) {
      if (arg2_.kind != Kind::uniform || whole32(*arg2_.values) > 0) return false;
      step.a = arg1_;
    } else if (!operand(q.right, step.a)) {
      return false;
    }
    step.kind = BlockKind::sum;
    step.state = &run_.formula->operand(s.slot);
    plan_.sums = true;
    return emit(step, q);
  }

  bool draw(BlockStep& step, const Step& s, const Quad& q) {
    step.kind = s.code == OP_UNI ? BlockKind::uniform : BlockKind::normal;
    step.two = s.two;
    if (s.two ? !arguments(step) : !operand(q.right, step.a)) return false;
    plan_.draws = true;
    // The draws fill the result first: it must not be an operand's buffer.
    if (!acquire(q.result, step.result)) return false;
    release(step.a);
    release(step.b);
    temporary_ref(q.result) = {.kind = Kind::buffer, .buffer = step.result};
    ++plan_.count;
    return true;
  }

  bool comma(const Step& s, const Quad& q) {
    if (s.two) return false;  // two commas: an error at the first observation
    const int after = (&s)[1].code;
    comma_ = true;
    arg1_ = arg2_ = Ref{};
    // Tables and lagged or indexed series are not read at the observation.
    const bool reads_left = !(after == OP_LAG || after == OP_DATA);
    const bool reads_right = after != OP_RECODE;
    if (reads_left && !operand(q.left, arg1_)) return false;
    if (reads_right && !operand(q.right, arg2_)) return false;
    const bool two_arguments = after == OP_LAG || after == OP_DATA || after == OP_RECODE ||
                               after == OP_UNI || after == OP_NOR || after == OP_SUM ||
                               after == OP_SIN || after == OP_MIN || after == OP_MAX ||
                               after == OP_MOD;
    temporary_ref(q.result) = arg1_;
    if (!two_arguments) {  // the second value is not used
      release(arg2_);
      if (run_.SKIPMISS && arg2_.kind != Kind::uniform) return false;
    }
    return true;
  }

  bool step(const Step& s, const Quad& q) {
    const LaneTable& t = lane_table();
    BlockStep& b = next();
    b = BlockStep{};
    if (s.code == OP_COMMA) return comma(s, q);
    const bool ok = step_of(t, b, s, q);
    comma_ = false;
    return ok;
  }

  bool step_of(const LaneTable& t, BlockStep& b, const Step& s, const Quad& q) {
    switch (s.code) {
      case OP_ADD:
        return two(b, q, t.add);
      case OP_SUB:
        return two(b, q, t.sub);
      case OP_MULT:
        return two(b, q, t.mult);
      case OP_DIV:
        return two(b, q, t.div);
      case OP_EQ:
        return two(b, q, t.eq);
      case OP_NE:
        return two(b, q, t.ne);
      case OP_LT:
        return two(b, q, t.lt);
      case OP_LE:
        return two(b, q, t.le);
      case OP_GT:
        return two(b, q, t.gt);
      case OP_GE:
        return two(b, q, t.ge);
      case OP_OR:
        return two(b, q, t.either);
      case OP_AND:
        return two(b, q, t.both);
      case OP_POWER:
        return power(b, q);
      case OP_EQUAL: {
        if (q.left > 0) {
          Ref index;
          return operand(q.right, index) && element(s.left, index, q);
        }
        Ref ref;
        if (!operand(q.right, ref)) return false;
        temporary_ref(q.result) = ref;
        if (ref.kind == Kind::buffer) {  // the copy's readers take the place of its own read
          pending_[static_cast<std::size_t>(ref.buffer)] += reads(q.result) - 1;
        }
        return true;
      }
      case OP_MINUS:
        return one(b, q, t.minus);
      case OP_ABS:
        return one(b, q, t.abs);
      case OP_DUM:
        return one(b, q, t.dum);
      case OP_NOT:
        return one(b, q, t.not_);
      case OP_EXP:
        b.extra = {MACOM.EXLIM, 0.0};
        return one(b, q, t.exp_limited);
      case OP_LOG:
        return one(b, q, t.log);
      case OP_SQRT:
        return one(b, q, t.sqrt);
      case OP_MIN:
      case OP_MAX: {
        const auto& forms = s.code == OP_MIN ? t.min : t.max;
        std::copy(forms, forms + LANE_FORMS, b.forms);
        if (!s.two || !arguments(b)) return false;
        return all_uniform(b) ? fold(b, q) : emit(b, q);
      }
      case OP_INT:
        return operand(q.right, b.a) && each(b, q, each_int);
      case OP_NCDF:
        return operand(q.right, b.a) && each(b, q, each_ncdf);
      case OP_LGAM:
        return operand(q.right, b.a) && each(b, q, each_lgam);
      case OP_TIME:
        return operand(q.right, b.a) && each(b, q, each_time, true);
      case OP_SEAS:
        return operand(q.right, b.a) && each(b, q, each_seas, true);
      case OP_MOD:
        return s.two && arguments(b) && each(b, q, each_mod);
      case OP_E:
        return operand(q.left, b.a) && operand(q.right, b.b) && each(b, q, each_e);
      case OP_SIN:
        if (!s.two) return operand(q.right, b.a) && each(b, q, each_sin);
        if (arg2_.kind != Kind::uniform || *arg2_.values != -1.0 || !arguments(b)) return false;
        b.b = Ref{};
        return each(b, q, each_arcsin);
      case OP_LAG:
        return lag(s, q);
      case OP_DATA:
        return s.two && element((&s - 1)->left, arg2_, q);
      case OP_RECODE:
        return recode(b, s, q);
      case OP_SUM:
        return sum(b, s, q);
      case OP_UNI:
      case OP_NOR:
        return draw(b, s, q);
      case OP_MISS:
        if (operand_buffer(q.right)) return false;
        set_uniform(q, 0.0);
        return true;
      default:
        return false;
    }
  }
  bool operand_buffer(int k) {
    return k > DATCOM.MCON && k <= last_temporary() && temporary_ref(k).kind == Kind::buffer;
  }

  bool end(const Step& s) {
    if (s.flag != END_ASSIGN && s.flag != END_IF && s.flag != END_SKIPIF) return false;
    const std::span<Quad> quads = run_.formula->list_of_quads();
    const auto i = static_cast<std::size_t>(&s - run_.steps.data());
    const Ref value = temporary_ref(quads[i - 1].result);
    if (value.kind == Kind::none) return false;
    BlockStep& b = next();
    b = BlockStep{};
    b.kind = BlockKind::end;
    b.flag = s.flag;
    b.a = value;
    release(value);
    // The step that makes the value of an assignment may write where it is wanted.
    if (s.flag == END_ASSIGN && plan_.direct && value.kind == Kind::buffer && plan_.count > 0) {
      BlockStep& maker = plan_.steps[static_cast<std::size_t>(plan_.count) - 1];
      if (maker.kind != BlockKind::end && maker.result == value.buffer) {
        maker.result = -1;
        b.a.buffer = -1;
      }
    }
    ++plan_.count;
    return true;
  }

  Run& run_;
  std::span<Ref> temporaries_;
  Plan& plan_;
  unsigned free_ = (1U << MAXBUFFERS) - 1;
  std::array<int, MAXBUFFERS> pending_{};  // reads to come of what a buffer holds
  bool comma_ = false;
  Ref arg1_, arg2_;
};

}  // namespace

bool make_plan(Run& run, std::span<BlockStep> steps, std::span<Ref> temporaries, Plan& plan) {
  plan = Plan{};
  plan.steps = steps;
  std::ranges::fill(temporaries, Ref{});
  for (const Source& source : run.sources) {
    if (!source.fits && source.checked) return false;  // reported at the first observation
  }
  return Planner(run, temporaries, plan).make();
}

}  // namespace korvel
