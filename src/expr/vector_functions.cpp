#include "expr/vector_functions.h"

#include "expr/trans_lanes.h"
#include "platform/cpu.h"

namespace korvel {
namespace {

const LaneTable& pick_lanes() {
#if defined(__x86_64__)
  switch (cpu_lanes()) {
    case Lanes::avx512:
      return avx512::LANES;
    case Lanes::avx2:
      return avx2::LANES;
    case Lanes::baseline:
      break;
  }
#endif
  return baseline::LANES;
}

}  // namespace

const LaneTable& lane_table() {
  static const LaneTable& table = pick_lanes();
  return table;
}

double EXP(double x) {
  double r;
  lane_table().exp(&r, &x, nullptr, 1);
  return r;
}

double LOG(double x) {
  double r;
  lane_table().log(&r, &x, nullptr, 1);
  return r;
}

double NCDF(double x) {
  constexpr double ROOT2 = 1.41421356237309;
  const double p = 0.5 + 0.5 * std::erf(x / ROOT2);
  if (p <= 0.0) return MACOM.SMALL;
  if (p >= 1.0) return 1.0 - MACOM.SMALL;
  return p;
}

double power_whole(double x, int n) {
  if (n == 0) return 1.0;
  // The smallest integer has no positive counterpart of its width.
  const std::int64_t count = n < 0 ? -std::int64_t{n} : std::int64_t{n};
  double p = x;
  if (count <= MOST_PRODUCTS) {
    for (std::int64_t i = 1; i < count; ++i) p *= x;
  } else {
    p = 1.0;
    double square = x;
    for (std::int64_t rest = count; rest > 0; rest >>= 1) {
      if ((rest & 1) != 0) p *= square;
      square *= square;
    }
  }
  return n < 0 ? 1.0 / p : p;
}

double POWER(double x, double y, PowerFault& fault) {
  fault = PowerFault::none;
  if (whole_power(y)) {
    if (y < 0.0 && x == 0.0) {
      fault = PowerFault::zero;
      return 0.0;
    }
    return power_whole(x, static_cast<int>(y));
  }
  if (x < 0.0) {
    fault = PowerFault::negative;
    return 0.0;
  }
  if (x == 0.0) return 0.0;
  if (OSCOM.OSPV) return std::pow(x, y);
  const double exponent = y * LOG(x);
  return EXP(exponent > MACOM.EXLIM ? MACOM.EXLIM : exponent);
}

}  // namespace korvel
