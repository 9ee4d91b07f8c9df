// Units of an iteration, and the inverse of second derivatives.
//
// Likelihoods are iterated on columns (x - shift) scale, near zero mean and of unit size, so that
// neither a mean far from zero nor a unit of measurement costs digits. With a constant in the
// model this is only another way to write the coefficients: b = b' scale, and the constant takes
// what the shifts leave. Without one every shift is 0.
#pragma once

#include <span>

namespace korvel {

struct Units {
  std::span<const double> shift, scale;  // a column each
  int constant = -1;                     // place (from 0) of the column of ones, -1 none
  int columns() const { return static_cast<int>(scale.size()); }
};

// Coefficients of the columns as they are, and back. Vectors of several blocks of columns.
void from_units(const Units& units, std::span<const double> scaled, std::span<double> b);
void to_units(const Units& units, std::span<const double> b, std::span<double> scaled);
// The packed covariance of the coefficients of the columns as they are. column: work, one word a
// coefficient.
void covariance_from_units(const Units& units, std::span<const double> scaled,
                           std::span<double> column, std::span<double> cov);
// Gradient and packed second derivatives (or moments) with respect to the coefficients of the
// columns as they are.
void gradient_from_units(const Units& units, std::span<const double> scaled, std::span<double> g);
void derivatives_from_units(const Units& units, std::span<const double> scaled,
                            std::span<double> column, std::span<double> out);

// Inverse of a packed symmetric matrix, which need not be positive, by L D L' on the matrix scaled
// to a unit diagonal: the scale of a variable does not decide what is singular. a is overwritten by
// its inverse; d: work, one word a row. IFAULT i: row i has a pivot below 1e-12 in absolute value.
int pivot_inverse(std::span<double> a, int order, std::span<double> d);

// y := a x for a packed symmetric matrix.
void packed_times(std::span<const double> a, std::span<const double> x, std::span<double> y);

}  // namespace korvel
