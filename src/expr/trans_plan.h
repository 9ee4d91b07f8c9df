// How a code list runs by blocks: the plan that trans_plan.cpp makes and trans_blocks.cpp follows.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "expr/trans.h"
#include "expr/trans_lanes.h"

namespace korvel {

inline constexpr int BLOCK = 512;      // observations of a block: its buffers stay in the cache
inline constexpr int MAXBUFFERS = 12;  // results that one formula may hold at a time

// An operand of a block step.
struct Ref {
  enum class Kind : std::uint8_t { none, uniform, series, buffer };
  Kind kind = Kind::none;
  std::int16_t buffer = 0;
  std::int32_t lag = 0;  // series: element obs-lag; none there: minus zero
  std::int32_t rows = 0;
  const double* values = nullptr;  // uniform: the value; series: element 1
};

enum class BlockKind : std::uint8_t {
  loop,     // a loop of the lane table over a and b
  lanes,    // a function called value by value: `each`
  sum,      // running sum
  uniform,  // uniform draws: times a, or from a to b
  normal,   // normal draws: times a, or times b plus a
  end,      // END of a statement
};

struct BlockStep;
// One value of a step that has no loop of its own; sets bad.
using LaneCall = double (*)(const BlockStep& s, double a, double b, int obs, bool& bad);

struct BlockStep {
  BlockKind kind = BlockKind::loop;
  std::int16_t result = 0;  // buffer; -1: straight into the target
  Ref a, b;
  LaneLoop loop = nullptr;
  LaneLoop forms[LANE_FORMS] = {};  // loops of two operands
  LaneCall each = nullptr;
  std::array<double, 2> extra{};  // what a loop of one operand wants besides
  const double* table = nullptr;  // RECODE: three columns
  std::int32_t rows = 0;
  std::int32_t flag = 0;    // end
  double* state = nullptr;  // sum
  bool two = false;
};

struct Plan {
  std::span<BlockStep> steps;
  int count = 0;
  int limit = 0;  // last observation at which no variable is exhausted
  bool draws = false;
  bool sums = false;
  bool direct = false;  // the last result may go straight into the target
};

// Makes the plan; false when the list has to run one observation at a time.
bool make_plan(Run& run, std::span<BlockStep> steps, std::span<Ref> temporaries, Plan& plan);

}  // namespace korvel
