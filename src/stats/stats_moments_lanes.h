// The inner loops of means, ranges and sums of squares. One set for each vector width; stat_lanes()
// is the one for this machine.
#pragma once

#include <cstddef>

namespace korvel {

struct StatLanes {
  // Sum of n values; *least and *most are moved outwards where a value lies beyond them. NaN moves
  // neither.
  double (*sum_range)(const double* x, std::ptrdiff_t n, double* least, double* most);
  // out[0]: sum of w (x - mean), out[1]: sum of w (x - mean)^2. w null: 1.
  void (*squares)(const double* x, const double* w, double mean, std::ptrdiff_t n, double* out);
};

const StatLanes& stat_lanes();

}  // namespace korvel
