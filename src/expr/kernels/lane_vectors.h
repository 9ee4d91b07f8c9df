// Eight doubles side by side, for files that are built once for each vector width (*_lanes.cpp).
//
// A sum is kept in eight partial sums, element i in sum i mod 8, whatever the width of the
// machine's registers, and joined in one fixed order: every build gives the same bytes.
#pragma once

#include <cstddef>

namespace korvel::KORVEL_LANES {

#if defined(__AVX512F__)
inline constexpr int LANE_BYTES = 64;
#elif defined(__AVX__)
inline constexpr int LANE_BYTES = 32;
#else
inline constexpr int LANE_BYTES = 16;
#endif
inline constexpr int LANE_PARTS = 64 / LANE_BYTES;

using LanePart = double __attribute__((vector_size(LANE_BYTES)));

struct Lane8 {
  LanePart part[LANE_PARTS];
};

inline constexpr std::ptrdiff_t PART = LANE_BYTES / 8;  // doubles of a part

inline Lane8 lane_load(const double* p) {
  Lane8 r;
  for (std::ptrdiff_t i = 0; i < LANE_PARTS; ++i) {
    __builtin_memcpy(&r.part[i], p + i * PART, LANE_BYTES);  // of any alignment
  }
  return r;
}
inline void lane_store(double* p, const Lane8& a) {
  for (std::ptrdiff_t i = 0; i < LANE_PARTS; ++i) {
    __builtin_memcpy(p + i * PART, &a.part[i], LANE_BYTES);
  }
}
inline Lane8 lane_splat(double v) {
  LanePart all = {};  // filled lane by lane: adding v to zeros would lose the sign of a zero
  for (std::ptrdiff_t k = 0; k < PART; ++k) all[k] = v;
  Lane8 r;
  for (LanePart& part : r.part) part = all;
  return r;
}
inline Lane8 operator+(const Lane8& a, const Lane8& b) {
  Lane8 r;
  for (int i = 0; i < LANE_PARTS; ++i) r.part[i] = a.part[i] + b.part[i];
  return r;
}
inline Lane8 operator-(const Lane8& a, const Lane8& b) {
  Lane8 r;
  for (int i = 0; i < LANE_PARTS; ++i) r.part[i] = a.part[i] - b.part[i];
  return r;
}
inline Lane8 operator*(const Lane8& a, const Lane8& b) {
  Lane8 r;
  for (int i = 0; i < LANE_PARTS; ++i) r.part[i] = a.part[i] * b.part[i];
  return r;
}
inline double lane_sum(const Lane8& a) {
  double t[8];
  lane_store(t, a);
  return ((t[0] + t[4]) + (t[2] + t[6])) + ((t[1] + t[5]) + (t[3] + t[7]));
}

}  // namespace korvel::KORVEL_LANES
