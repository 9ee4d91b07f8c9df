// Inner loops of means, ranges and sums of squares, built once for each vector width.
#include "stats/stats_moments_lanes.h"

#include "expr/kernels/lane_vectors.h"

namespace korvel::KORVEL_LANES {
namespace {

double sum_range(const double* x, std::ptrdiff_t n, double* least, double* most) {
  const std::ptrdiff_t whole = n & ~std::ptrdiff_t{7};
  Lane8 sum = lane_splat(0.0);
  Lane8 low = lane_splat(*least);
  Lane8 high = lane_splat(*most);
  for (std::ptrdiff_t i = 0; i < whole; i += 8) {
    const Lane8 v = lane_load(x + i);
    sum = sum + v;
    for (int p = 0; p < LANE_PARTS; ++p) {
      low.part[p] = v.part[p] < low.part[p] ? v.part[p] : low.part[p];
      high.part[p] = v.part[p] > high.part[p] ? v.part[p] : high.part[p];
    }
  }
  double lows[8];
  double highs[8];
  lane_store(lows, low);
  lane_store(highs, high);
  for (int k = 0; k < 8; ++k) {
    *least = lows[k] < *least ? lows[k] : *least;
    *most = highs[k] > *most ? highs[k] : *most;
  }
  double rest = 0.0;
  for (std::ptrdiff_t i = whole; i < n; ++i) {
    rest += x[i];
    *least = x[i] < *least ? x[i] : *least;
    *most = x[i] > *most ? x[i] : *most;
  }
  return lane_sum(sum) + rest;
}

void squares(const double* x, const double* w, double mean, std::ptrdiff_t n, double* out) {
  const std::ptrdiff_t whole = n & ~std::ptrdiff_t{7};
  const Lane8 m = lane_splat(mean);
  Lane8 drift = lane_splat(0.0);
  Lane8 sum = lane_splat(0.0);
  for (std::ptrdiff_t i = 0; i < whole; i += 8) {
    const Lane8 d = lane_load(x + i) - m;
    const Lane8 wd = w == nullptr ? d : lane_load(w + i) * d;
    drift = drift + wd;
    sum = sum + wd * d;
  }
  double rest_drift = 0.0;
  double rest = 0.0;
  for (std::ptrdiff_t i = whole; i < n; ++i) {
    const double d = x[i] - mean;
    const double wd = w == nullptr ? d : w[i] * d;
    rest_drift += wd;
    rest += wd * d;
  }
  out[0] = lane_sum(drift) + rest_drift;
  out[1] = lane_sum(sum) + rest;
}

}  // namespace

const StatLanes& stat_lane_set() {
  static constexpr StatLanes set = {sum_range, squares};
  return set;
}

}  // namespace korvel::KORVEL_LANES
