// The joint confidence region of two coefficients, as CONFID leaves it for a picture.
#pragma once

#include <array>

#include "engine/shared_areas.h"

namespace korvel {

// The ellipse (b - coef)' V^-1 (b - coef) = 2 F, or a chi-square(2) value for an asymptotic
// estimate, and the box of the two intervals.
struct ConfidenceRegion {
  std::array<std::array<char, KEYLEN>, 2> names{};
  std::array<double, 2> coef{}, var{};
  double covar = 0.0;
  double DF = 0.0;
  double tcritical = 0.0;    // half width of an interval in standard errors
  double tcritical90 = 0.0;  // the same for 90%; 0: one value was given
  double fcritical = 0.0;    // 0: the values for 95% and 90%
  int points = 200;          // of the ellipse
  bool DN = false;
  bool set = false;
};
extern ConfidenceRegion REGION;

}  // namespace korvel
