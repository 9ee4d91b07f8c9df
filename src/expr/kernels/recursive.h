// Least squares one row at a time.
#pragma once

#include <cmath>
#include <span>

namespace korvel {

// What a new row tells about the fit of the rows before it.
struct RecursiveStep {
  double error = 0.0;     // v = y - x'b, b from the rows before
  double variance = 1.0;  // f = 1 + x'(X'X)^-1 x
  // Recursive residual v / sqrt(f).
  double residual() const { return variance > 0.0 ? error / std::sqrt(variance) : 0.0; }
};

// Adds a row (regressors, dependent variable; overwritten) to the triangular factor of GSREG
// (gsreg.h) by square-root free planar rotations: Gentleman (1974), AS 75. The sum of squared
// errors at the factor's end grows by the square of the recursive residual; coefficients come from
// gs_coefficients. No inverse is carried along, so errors don't gather.
RecursiveStep add_row(std::span<double> factor, int columns, std::span<double> row);

}  // namespace korvel
