// The loop of GradientBlocks that the lane table does not have.
#pragma once

#include "expr/trans_lanes.h"

namespace korvel {

// a/b with 0/x = 0 for any x, and 0 where only b is 0: there it returns true.
struct QuotientLoops {
  LaneLoop div[LANE_FORMS];
};

namespace baseline {
extern const QuotientLoops QUOTIENTS;
}
#if defined(__x86_64__)
namespace avx2 {
extern const QuotientLoops QUOTIENTS;
}
namespace avx512 {
extern const QuotientLoops QUOTIENTS;
}
#endif

}  // namespace korvel
