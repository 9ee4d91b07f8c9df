// The loops of a block, and the table by which a run picks the width of its machine.
#pragma once

#include <cstddef>

namespace korvel {

// r[i] = f(a[i], b[i]) for n values; r may be a or b. True when a value asked for more than plain
// arithmetic (the rule stands at the function): the block is then run one observation at a time.
using LaneLoop = bool (*)(double* r, const double* a, const double* b, std::size_t n);

// How the operands of a two-operand loop come: both by value, or one of them the same for all.
enum LaneForm : int { LANE_VV = 0, LANE_VC = 1, LANE_CV = 2, LANE_FORMS = 3 };

struct LaneTable {
  LaneLoop add[LANE_FORMS], sub[LANE_FORMS], mult[LANE_FORMS];
  LaneLoop div[LANE_FORMS];  // true at a divisor of 0
  LaneLoop eq[LANE_FORMS], ne[LANE_FORMS], lt[LANE_FORMS], le[LANE_FORMS], gt[LANE_FORMS],
      ge[LANE_FORMS], either[LANE_FORMS], both[LANE_FORMS];  // .OR., .AND.
  LaneLoop min[LANE_FORMS], max[LANE_FORMS];
  LaneLoop minus, abs, dum, not_;
  LaneLoop exp;          // unlimited
  LaneLoop exp_limited;  // b[0] the limit; true above it
  LaneLoop log;          // true at 0 and below
  LaneLoop sqrt;         // true below 0
  // a to a whole power b[0] of 1 to 64; with b[1] = 1 its reciprocal, and true at 0.
  LaneLoop power;
  // a to any other power b[0], with b[1] the limit of the exponent; true below 0.
  LaneLoop power_any;
  LaneLoop copy;
  // True when b[0] is among a; r is not used.
  LaneLoop holds;
};

// The loops of this machine.
const LaneTable& lane_table();

namespace baseline {
extern const LaneTable LANES;
}
#if defined(__x86_64__)
namespace avx2 {
extern const LaneTable LANES;
}
namespace avx512 {
extern const LaneTable LANES;
}
#endif

}  // namespace korvel
