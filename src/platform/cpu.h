// Vector width of the processor, for loops that are built once for each width.
#pragma once

namespace korvel {

enum class Lanes { baseline, avx2, avx512 };

// The widest build that this processor and system can run; KORVEL_LANES=baseline|avx2|avx512 lowers
// it (used by tests: every width gives the same bytes).
Lanes cpu_lanes();

}  // namespace korvel
