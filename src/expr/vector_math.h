// EXP and LOG on a vector of doubles, for files that are built once for each vector width.
//
// Plain double arithmetic in one fixed order, no branches and no fused multiply-add: a lane gives
// the same bits in every width, build and compiler, and so does a single value. Both are within 1
// ulp. The polynomials are Chebyshev fits made at 60 digits (tools/vector_function_fits.py);
// the reductions are those of Cody and Waite (1980), Software Manual for the Elementary Functions,
// chapters 5 and 6, and of Tang (1990), ACM TOMS 16, 378-400.
#pragma once

#include "expr/kernels/lane_vectors.h"

namespace korvel::KORVEL_LANES {

using Vec = LanePart;
using Bits = unsigned long long __attribute__((vector_size(LANE_BYTES)));
inline constexpr std::size_t WIDTH = LANE_BYTES / 8;

// Not Vec{} + v, which would lose the sign of a zero.
static inline Vec splat(double v) {
  Vec r = {};
  for (std::size_t i = 0; i < WIDTH; ++i) r[i] = v;
  return r;
}
static inline Bits splat_bits(unsigned long long v) { return Bits{} + v; }

inline constexpr double LN2_HIGH = 0x1.62e42fefa2000p-1;  // 40 bits: times a whole k it is exact
inline constexpr double LN2_LOW = 0x1.9ef35793c7673p-41;

// exp(x) for any x: 0 below -746, infinity above 710, NaN as it came.
static inline Vec exp_lanes(Vec x) {
  constexpr double ROUNDER = 0x1.8p52;  // adding it leaves the nearest whole number in the low bits
  constexpr unsigned long long ROUNDER_BITS = 0x4338000000000000ULL;
  Vec y = x < splat(-746.0) ? splat(-746.0) : x;
  y = y > splat(710.0) ? splat(710.0) : y;
  const Vec shifted = y * splat(0x1.71547652b82fep+0) + splat(ROUNDER);
  const Vec k = shifted - splat(ROUNDER);
  // r + c = y - k log 2, |r| <= 0.347, c what the subtraction has cut off.
  const Vec high = y - k * splat(LN2_HIGH);
  const Vec low = k * splat(LN2_LOW);
  const Vec r = high - low;
  const Vec c = (high - r) - low;
  // (exp(r) - 1 - r) / r^2, degree 10.
  const Vec r2 = r * r;
  const Vec r4 = r2 * r2;
  const Vec q01 = splat(0x1.0000000000000p-1) + splat(0x1.5555555555557p-3) * r;
  const Vec q23 = splat(0x1.5555555555556p-5) + splat(0x1.11111111100d8p-7) * r;
  const Vec q45 = splat(0x1.6c16c16c162d2p-10) + splat(0x1.a01a01abe9ce8p-13) * r;
  const Vec q67 = splat(0x1.a01a01a6d9931p-16) + splat(0x1.71de022bd5558p-19) * r;
  const Vec q8A = (splat(0x1.27e4db6121beep-22) + splat(0x1.af4df5750ec30p-26) * r) +
                  splat(0x1.1f730a202ec17p-29) * r2;
  const Vec q = (q01 + q23 * r2) + r4 * ((q45 + q67 * r2) + r4 * q8A);
  const Vec p = splat(1.0) + (r + (r2 * q + c));
  // times 2^k in two exact steps, so that results below the normal range round once.
  const Bits biased = (Bits)shifted - splat_bits(ROUNDER_BITS - 2048);
  const Bits half = biased >> 1;
  const Bits rest = biased - half;
  const Vec scale1 = (Vec)((half - splat_bits(1)) << 52);
  const Vec scale2 = (Vec)((rest - splat_bits(1)) << 52);
  const Vec result = p * scale1 * scale2;
  return x == x ? result : x;  // NOLINT(misc-redundant-expression): NaN as it came
}

// log(x) for x > 0 and NaN; other arguments give no number of use.
static inline Vec log_lanes(Vec x) {
  constexpr unsigned long long ROOT_HALF = 0x3fe6a09e00000000ULL;  // just below sqrt(1/2)
  const auto tiny = x < splat(0x1p-1022);
  const Vec y = tiny ? x * splat(0x1p54) : x;
  const Bits bits = (Bits)y;
  // y = 2^k m with m in [sqrt(1/2), sqrt(2)); k is kept with 1024 added.
  const Bits k_biased = (bits - splat_bits(ROOT_HALF - (1024ULL << 52))) >> 52;
  const Vec m = (Vec)(bits - (k_biased << 52) + splat_bits(1024ULL << 52));
  Vec k = (Vec)(k_biased | splat_bits(0x4330000000000000ULL)) - splat(0x1p52 + 1024.0);
  k = tiny ? k - splat(54.0) : k;
  const Vec f = m - splat(1.0);
  const Vec s = f / (splat(2.0) + f);
  const Vec z = s * s;
  const Vec w = z * z;
  // (log((1+s)/(1-s)) - 2 s) / s^3, degree 6 in z.
  const Vec even = splat(0x1.5555555555558p-1) +
                   w * (splat(0x1.2492492dfd879p-2) +
                        w * (splat(0x1.7462b91bd6c45p-3) + w * splat(0x1.2b5f6919aa514p-3)));
  const Vec odd = splat(0x1.9999999995273p-2) +
                  w * (splat(0x1.c71c62d5e43dfp-3) + w * splat(0x1.39fdcce1da1aep-3));
  const Vec R = z * (even + z * odd);
  const Vec half_square = splat(0.5) * f * f;
  const Vec result =
      k * splat(LN2_HIGH) - ((half_square - (s * (half_square + R) + k * splat(LN2_LOW))) - f);
  const Vec limited = x == splat(__builtin_inf()) ? x : result;
  return x == x ? limited : x;  // NOLINT(misc-redundant-expression): NaN as it came
}

}  // namespace korvel::KORVEL_LANES
