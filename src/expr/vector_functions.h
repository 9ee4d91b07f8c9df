// Functions of the formula language that blocks of observations and single values share.
//
// One definition serves both, so a formula gives the same bits whichever way it runs, on every
// vector width, with every compiler. Bounds: EXP and LOG are within 1 ulp of the true value (0.88
// and 0.86 at the worst of 18 and 30 million arguments); SIN, arcsin, erf and pow are the
// library's.
#pragma once

#include <cmath>
#include <cstdint>

#include "engine/shared_areas.h"

namespace korvel {

double EXP(double x);  // any x; 0 below -746, infinity above 710
double LOG(double x);  // x > 0

// Truncation toward zero through a 32-bit integer. Out of range and NaN: the smallest integer.
inline int whole32(double x) {
  constexpr int smallest = -2147483647 - 1;
  return x > -2147483649.0 && x < 2147483648.0 ? static_cast<int>(x) : smallest;
}

// Standard normal distribution function, kept inside (0,1).
double NCDF(double x);

// Whole powers: n products up to 64, squaring beyond; negative ones by the reciprocal.
inline bool whole_power(double exponent) {
  return exponent > -2147483649.0 && exponent < 2147483648.0 &&
         static_cast<double>(static_cast<int>(exponent)) == exponent;
}
inline constexpr int MOST_PRODUCTS = 64;
double power_whole(double x, int n);  // x not 0 when n is negative

enum class PowerFault : std::uint8_t { none, negative, zero };
// x to the power y by the rules of the language.
double POWER(double x, double y, PowerFault& fault);

}  // namespace korvel
