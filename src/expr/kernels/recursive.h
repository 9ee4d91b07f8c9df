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
// Its steps: column i (from 1) of the row, of weight w, enters the factor; what is left of the row
// is its error.
void rotate_row(std::span<double> factor, int columns, int i, std::span<double> row, double& w);
RecursiveStep close_row(std::span<double> factor, int columns, std::span<const double> row,
                        double w);

}  // namespace korvel
