// Runs a planned list over blocks of observations.

#include <algorithm>
#include <array>

#include "engine/output.h"
#include "expr/expr.h"
#include "expr/trans_plan.h"
#include "platform/parallel.h"

namespace korvel {
namespace {

using Kind = Ref::Kind;

constexpr int LEAST_BLOCK_RUN = 32;  // a shorter run is over before a plan pays
constexpr int LEAST_PARALLEL = 16;   // blocks below which a second thread costs more than it saves
constexpr int MOST_SECTIONS = 64;

// The observations of a block that are processed: a stretch, or a list.
struct Lanes {
  int n = 0;
  int first = 0;
  const std::int32_t* list = nullptr;  // null: first, first+1, ...
  int obs(int i) const { return list != nullptr ? list[i] : first + i; }
};

// Work space of one thread.
struct BlockWork {
  alignas(64) double buffer[MAXBUFFERS][BLOCK];
  alignas(64) double spare[BLOCK];  // a direct result that has to be scattered
  alignas(64) double gathered[2][BLOCK];
  std::int32_t list[BLOCK];
  std::int32_t true_list[BLOCK];  // where the condition of an IF holds
};

struct BlockResult {
  bool clean = false;
  bool any_true = false;   // an IF was true
  bool has_value = false;  // `value` is what the last lane assigns
  double value = 0;
};

// One block under the plan. Shared words are written only where a target's elements lie (and in the
// state of running sums, which then run on one thread).
class BlockRunner {
 public:
  BlockRunner(const Run& run, const Plan& plan, BlockWork& work)
      : run_(run), plan_(plan), work_(work) {}

  // Positions p..p+n-1 of the processing order.
  BlockResult block(int p, int n) {
    lanes_ = collect(p, n);
    result_ = BlockResult{};
    result_.clean = true;
    for (int i = 0; i < plan_.count && lanes_.n > 0; ++i) {
      const BlockStep& s = plan_.steps[static_cast<std::size_t>(i)];
      if (!(s.kind == BlockKind::end ? end(s) : step(s))) {
        result_.clean = false;
        return result_;
      }
    }
    return result_;
  }

 private:
  Lanes collect(int p, int n) {
    if (!run_.skipping && !OSCOM.OBACK) return {n, p, nullptr};
    Lanes lanes{0, 0, work_.list};
    for (int i = p; i < p + n; ++i) {
      const int obs = observation_at(i);
      if (run_.processed(obs)) work_.list[lanes.n++] = obs;
    }
    if (lanes.n == n && !OSCOM.OBACK) return {n, p, nullptr};
    return lanes;
  }

  // The values of an operand for the lanes; uniform ones give their one value.
  const double* values(const Ref& ref, int side) {
    switch (ref.kind) {
      case Kind::uniform:
        return ref.values;
      case Kind::buffer:
        return ref.buffer < 0 ? direct_ : work_.buffer[ref.buffer];
      case Kind::series:
        return series(ref, side);
      default:
        return nullptr;
    }
  }
  const double* series(const Ref& ref, int side) {
    const double* found = nullptr;
    const std::int64_t from = std::int64_t{lanes_.first} - ref.lag;
    if (lanes_.list == nullptr && from >= 1 && from + lanes_.n - 1 <= ref.rows) {
      found = ref.values + (from - 1);
    } else {
      double* out = work_.gathered[side];
      for (int i = 0; i < lanes_.n; ++i) {
        const std::int64_t j = std::int64_t{lanes_.obs(i)} - ref.lag;
        out[i] = j >= 1 && j <= ref.rows ? ref.values[j - 1] : -0.0;
      }
      found = out;
    }
    if (run_.SKIPMISS && holds_missing(found)) missing_ = true;
    return found;
  }
  bool holds_missing(const double* x) const {
    return lane_table().holds(nullptr, x, &run_.XMISS, size());
  }
  std::size_t size() const { return static_cast<std::size_t>(lanes_.n); }

  // Where a step's result goes.
  double* destination(const BlockStep& s) {
    if (s.result >= 0) return work_.buffer[s.result];
    const Source& target = run_.source(run_.target);
    double* to = lanes_.list == nullptr ? target.base + (lanes_.first - 1) : work_.spare;
    direct_ = to;
    return to;
  }

  bool step(const BlockStep& s) {
    missing_ = false;
    const double* a = values(s.a, 0);
    const double* b = values(s.b, 1);
    if (missing_) return false;
    double* r = destination(s);
    bool bad = false;
    switch (s.kind) {
      case BlockKind::loop:
        bad = loop(s, r, a, b);
        break;
      case BlockKind::lanes: {
        const bool a_varies = s.a.kind != Kind::uniform;
        const bool b_varies = s.b.kind != Kind::uniform;
        for (int i = 0; i < lanes_.n; ++i) {
          const double bi = b == nullptr ? 0.0 : b[b_varies ? i : 0];
          r[i] = s.each(s, a[a_varies ? i : 0], bi, lanes_.obs(i), bad);
        }
        break;
      }
      case BlockKind::sum:
        running_sum(s, r, a);
        break;
      case BlockKind::uniform:
      case BlockKind::normal:
        draw(s, r, a, b);
        break;
      case BlockKind::end:
        break;
    }
    return !bad && !(run_.SKIPMISS && holds_missing(r));
  }

  bool loop(const BlockStep& s, double* r, const double* a, const double* b) const {
    if (s.loop != nullptr) return s.loop(r, a, s.extra.data(), size());
    if (s.a.kind == Kind::uniform) return s.forms[LANE_CV](r, a, b, size());
    return s.forms[s.b.kind == Kind::uniform ? LANE_VC : LANE_VV](r, a, b, size());
  }

  // One add an observation, in processing order.
  void running_sum(const BlockStep& s, double* r, const double* a) const {
    double sum = *s.state;
    const bool varies = s.a.kind != Kind::uniform;
    for (int i = 0; i < lanes_.n; ++i) {
      sum = sum + a[varies ? i : 0];
      r[i] = sum;
    }
    *s.state = sum;
  }

  void draw(const BlockStep& s, double* r, const double* a, const double* b) const {
    const bool uniform = s.kind == BlockKind::uniform;
    const std::span<double> draws(r, size());
    if (uniform)
      fill_uniform(draws);
    else
      fill_normal(draws);
    const bool a_varies = s.a.kind != Kind::uniform;
    const bool b_varies = s.b.kind != Kind::uniform;
    for (int i = 0; i < lanes_.n; ++i) {
      const double x = a[a_varies ? i : 0];
      if (!s.two) {
        r[i] = r[i] * x;
        continue;
      }
      const double y = b[b_varies ? i : 0];
      r[i] = uniform ? x + (y - x) * r[i] : r[i] * y + x;
    }
  }

  bool end(const BlockStep& s) {
    missing_ = false;
    const double* v = values(s.a, 0);
    if (missing_) return false;
    const bool varies = s.a.kind != Kind::uniform;
    switch (s.flag) {
      case END_SKIPIF:
        // A true one prints and marks: that is done one observation at a time.
        for (int i = 0; i < (varies ? lanes_.n : 1); ++i) {
          if (v[i] > 0.0) return false;
        }
        return true;
      case END_IF:
        keep_true(v, varies);
        return true;
      default:
        assign(v, varies);
        return true;
    }
  }

  // The next statement runs where the condition holds.
  void keep_true(const double* v, bool varies) {
    if (!varies) {
      if (!(v[0] > 0.0)) lanes_.n = 0;
    } else {
      int n = 0;
      for (int i = 0; i < lanes_.n; ++i) {
        work_.true_list[n] = lanes_.obs(i);
        n += v[i] > 0.0;
      }
      if (n != lanes_.n) lanes_ = {n, 0, work_.true_list};
    }
    if (lanes_.n > 0) result_.any_true = true;
  }

  void assign(const double* v, bool varies) {
    const Source& target = run_.source(run_.target);
    result_.has_value = true;
    result_.value = v[varies ? lanes_.n - 1 : 0];
    if (target.base == nullptr) return;
    if (lanes_.list == nullptr) {
      double* out = target.base + (lanes_.first - 1);
      if (v == out) return;  // already there
      if (varies)
        std::copy_n(v, lanes_.n, out);
      else
        std::fill_n(out, lanes_.n, v[0]);
      return;
    }
    for (int i = 0; i < lanes_.n; ++i) target.base[lanes_.list[i] - 1] = v[varies ? i : 0];
  }

  const Run& run_;
  const Plan& plan_;
  BlockWork& work_;
  Lanes lanes_;
  BlockResult result_;
  const double* direct_ = nullptr;
  bool missing_ = false;
};

// What a block that is thrown away has to give back.
struct Committed {
  RanCom random;
  std::array<double, 16> sums{};
};

// Positions of the processing order that blocks may take.
struct Stage {
  int first = 0;
  int end = 0;  // behind the last one
  int blocks() const { return (end - first + BLOCK - 1) / BLOCK; }
  int from(int block) const { return first + block * BLOCK; }
  int size(int block) const { return std::min(BLOCK, end - from(block)); }
};

Outcome run_alone(Run& run, const Stage& stage, int block) {
  for (int p = stage.from(block); p < stage.from(block) + stage.size(block); ++p) {
    const int obs = observation_at(p);
    GENCOM.LASTN = obs;
    if (!run.processed(obs)) continue;
    const Outcome outcome = run_observation(run, obs);
    if (outcome != Outcome::good) return outcome;
  }
  return stop_requested() ? Outcome::failed : Outcome::good;
}

void take_result(Run& run, const BlockResult& result) {
  if (result.any_true) OCOM.ONOTIF = false;
  if (!result.has_value) return;
  const Source& target = run.source(run.target);
  if (target.base == nullptr) temporary(-target.entry - 1) = result.value;
}

// In order, on one thread: sums and draws carry on from block to block.
Stretch run_in_order(Run& run, const Plan& plan, const Stage& stage) {
  BlockWork work;
  BlockRunner runner(run, plan, work);
  const std::span<double> sums = run.formula->operands.subspan(
      static_cast<std::size_t>(GENCOM.ICON + GENCOM.NLAG), static_cast<std::size_t>(GENCOM.NSUM));
  Committed before;
  for (int block = 0; block < stage.blocks(); ++block) {
    if (plan.draws) {
      seed_random();
      before.random = RANCOM;
    }
    if (plan.sums) std::ranges::copy(sums, before.sums.begin());
    const BlockResult result = runner.block(stage.from(block), stage.size(block));
    if (result.clean) {
      take_result(run, result);
      if (stop_requested()) return {stage.from(block), Outcome::failed};
      continue;
    }
    if (plan.draws) RANCOM = before.random;
    if (plan.sums) std::copy_n(before.sums.begin(), sums.size(), sums.begin());
    const Outcome outcome = run_alone(run, stage, block);
    if (outcome != Outcome::good) return {stage.end, outcome};
  }
  return {stage.end, Outcome::good};
}

// Sections of blocks on all threads; what was not clean is run afterwards, in order, so that the
// messages keep their order.
Stretch run_in_sections(Run& run, const Plan& plan, const Stage& stage,
                        std::span<std::uint8_t> unclean) {
  const int blocks = stage.blocks();
  const int sections = std::min(blocks / 4, MOST_SECTIONS);
  std::array<bool, MOST_SECTIONS> any_true{};
  parallel_sections(sections, [&](int s) {
    BlockWork work;
    BlockRunner runner(run, plan, work);
    const int from = static_cast<int>(std::int64_t{blocks} * s / sections);
    const int to = static_cast<int>(std::int64_t{blocks} * (s + 1) / sections);
    for (int block = from; block < to; ++block) {
      const BlockResult result = runner.block(stage.from(block), stage.size(block));
      unclean[static_cast<std::size_t>(block)] = !result.clean;
      if (result.clean && result.any_true) any_true[static_cast<std::size_t>(s)] = true;
    }
  });
  if (std::ranges::any_of(any_true, [](bool b) { return b; })) OCOM.ONOTIF = false;
  for (int block = 0; block < blocks; ++block) {
    if (unclean[static_cast<std::size_t>(block)] == 0) continue;
    const Outcome outcome = run_alone(run, stage, block);
    if (outcome != Outcome::good) return {stage.end, outcome};
  }
  return {stage.end, Outcome::good};
}

}  // namespace

Stretch run_blocks(Run& run, int first) {
  const Stretch not_at_all{first, Outcome::good};
  const TransPath path = run.job->path;
  if (path == TransPath::scalar) return not_at_all;
  if (path == TransPath::automatic && DATCOM.MEND - first + 1 < LEAST_BLOCK_RUN) return not_at_all;
  if (GENCOM.NSUM > static_cast<int>(Committed{}.sums.size())) return not_at_all;
  const auto quads = static_cast<std::int64_t>(run.steps.size());
  const std::int64_t blocks = (std::int64_t{DATCOM.MEND} - first + BLOCK) / BLOCK;
  const std::int64_t step_words = quads * std::int64_t{sizeof(BlockStep)} / 8;
  const std::int64_t ref_words = quads * std::int64_t{sizeof(Ref)} / 8 + 1;
  const std::int64_t flag_words = blocks / 8 + 1;
  const std::int64_t words = step_words + ref_words + flag_words;
  if (words > std::int64_t{ADDCOM.SCRTOP} - ADDCOM.LASADD) return not_at_all;
  Scratch scratch(run.ws, words);
  static_assert(sizeof(BlockStep) % 8 == 0);
  const std::span<BlockStep> steps = {
      reinterpret_cast<BlockStep*>(scratch.take(static_cast<std::size_t>(step_words)).data()),
      static_cast<std::size_t>(quads)};
  const std::span<Ref> temporaries = {
      reinterpret_cast<Ref*>(scratch.take(static_cast<std::size_t>(ref_words)).data()),
      static_cast<std::size_t>(quads)};
  const std::span<std::uint8_t> unclean = {
      reinterpret_cast<std::uint8_t*>(scratch.take(static_cast<std::size_t>(flag_words)).data()),
      static_cast<std::size_t>(blocks)};
  Plan plan;
  if (!make_plan(run, steps, temporaries, plan)) return not_at_all;
  // Observations above the limit are left to the loop by observations, which stops there.
  Stage stage{first, DATCOM.MEND + 1};
  if (OSCOM.OBACK) {
    if (observation_at(first) > plan.limit) return not_at_all;
  } else {
    stage.end = std::min(stage.end, plan.limit + 1);
  }
  if (stage.end <= stage.first) return not_at_all;
  run.types_checked = true;
  GENCOM.LASTN = observation_at(stage.end - 1);
  const bool temporary_target = run.target > 0 && run.source(run.target).base == nullptr;
  const bool parallel = !plan.sums && !plan.draws && !temporary_target && workers() > 1 &&
                        stage.blocks() >= LEAST_PARALLEL;
  const Stretch done =
      parallel ? run_in_sections(run, plan, stage, unclean) : run_in_order(run, plan, stage);
  if (done.outcome == Outcome::good) GENCOM.LASTN = observation_at(stage.end - 1);
  return done;
}

}  // namespace korvel
