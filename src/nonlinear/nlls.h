// The line search of NLQN.
#pragma once

#include <span>

#include "nonlinear/minimise_parts.h"

namespace korvel {

// A search from x0 along s, where the function is f0 and its slope gs < 0. The new point and its
// gradient are left in x and gradient.
struct LineSearch {
  MinimiserRun& run;
  std::span<const double> x0, s;
  std::span<double> x, gradient;
  double f0 = 0.0, gs = 0.0;
  double ALPHA = 0.0001;  // part of the slope that the function has to fall by
  double BETA = 0.9;      // part of the slope that may be left
};
struct LineStep {
  bool accepted = false;
  bool stopped = false;  // by the user
  double a = 0.0;        // step; after a failure that of the lowest point seen, 0: none is lower
  double f = 0.0, g = 0.0;
};

// Davidon's cubic steps with a strong Wolfe stop, at most 20 evaluations. After a failure x and
// gradient hold nothing of use.
LineStep NLLS(LineSearch& search);

}  // namespace korvel
