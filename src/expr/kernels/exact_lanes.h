// Rounding errors of sums and products, eight at a time, for files that are built once for each
// vector width. Dekker (1971); Knuth (1969).
#pragma once

#include "expr/kernels/lane_vectors.h"

namespace korvel::KORVEL_LANES {

inline constexpr double SPLITTER = 134217729.0;  // 2^27 + 1

// Veltkamp's splitting: high + low = x, each with at most 26 bits.
struct Halves {
  Lane8 high, low;
};
inline Halves split(const Lane8& x, const Lane8& splitter) {
  const Lane8 t = splitter * x;
  const Lane8 high = t - (t - x);
  return {high, x - high};
}

// Rounding error of p = a b (Dekker).
inline Lane8 product_error(const Lane8& p, const Halves& a, const Halves& b) {
  return a.low * b.low - (((p - a.high * b.high) - a.low * b.high) - a.high * b.low);
}

// Rounding error of s = a + b (Knuth).
inline Lane8 sum_error(const Lane8& s, const Lane8& a, const Lane8& b) {
  const Lane8 t = s - a;
  return (a - (s - t)) + (b - t);
}

}  // namespace korvel::KORVEL_LANES
