// Levenberg-Marquardt steps on whatever gives a sum of squares and the triangle of its Jacobian.
#pragma once

#include <span>

#include "nonlinear/least_squares.h"

namespace korvel {

// A sum of squares of p coefficients a.
class SquaresProblem {
 public:
  // At a: SSE, and unless R is empty the triangle (row_qr.h) of the Jacobian with the residuals as
  // right side. False: there is no value.
  virtual bool evaluate(std::span<const double> a, std::span<double> R, double& SSE) = 0;
  // Asked at each new point: true ends the search there, since more steps would find nothing new.
  virtual bool enough(std::span<const double>) { return false; }

 protected:
  ~SquaresProblem() = default;
};

std::int64_t damped_words(int p);

// From a to the minimum. df: rows less coefficients, for the natural scale of a coefficient. A
// relative step below last_step ends the search, unless it is short because of its damping.
SquaresFit damped_steps(SquaresProblem& problem, std::span<double> a, std::int64_t df,
                        double last_step, std::span<double> work);

}  // namespace korvel
