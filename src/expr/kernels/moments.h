// Means, sums of squares and cross-products.
#pragma once

#include <span>

#include "expr/kernels/columns.h"

namespace korvel {

// Values that AVES passes over.
struct MissingRule {
  bool skip = false;       // pass over values equal to code
  bool whole_row = false;  // ... together with the rest of their row
  double code = 0.0;
};

// What AVES fills; an empty span is not wanted. K columns.
struct Averages {
  std::span<double> means{};    // K: weighted means
  std::span<double> squares{};  // K: sum of w (x - mean)^2
  std::span<double> cross{};  // packed K: sum of w (x_i - mean_i)(x_j - mean_j); missing values are
                              // then passed over by whole rows
  std::span<double> counts{};  // K: values used
  std::span<double> least{};   // K: minima, from +1E20
  std::span<double> most{};    // K: maxima, from -1E20
};

// Two passes over the rows. w: weights by row, empty for 1. Returns SWT, the sum of the weights of
// all rows that are used (of column 1 when values are passed over column by column). The second
// pass takes the deviations' own mean off again (Chan, Golub and LeVeque 1983, formula 1.7), so
// that a mean far from zero costs no digits.
double AVES(const ColumnList& x, std::span<const double> w, const MissingRule& missing,
            const Averages& out);

// Conversions between packed moment matrices (order n; in and out may be the same).
enum class MomentMode : int {
  Centred = 1,             // in(i,j) - w m(i) m(j)
  Raw = 2,                 // in(i,j) + w m(i) m(j)
  Divide = 3,              // in(i,j) / w
  Correlation = 4,         // in(i,j) / sqrt(v(i) v(j)) / w; a zero product: 1 on the diagonal
  RawCorrelation = 5,      // the same with v + m m w, not divided by w
  Add = 6,                 // in(i,j) + w
  ShiftedCorrelation = 7,  // the same with w + v, not divided by w
};
void MATMOM(std::span<const double> in, std::span<double> out, int order, double w,
            std::span<const double> means, std::span<const double> variances, MomentMode mode);

}  // namespace korvel
