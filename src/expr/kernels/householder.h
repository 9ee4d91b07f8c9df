// Least squares by Householder reflections, with column pivoting: Businger and Golub (1965),
// "Linear least squares solutions by Householder transformations", Numerische Mathematik 7,
// 269-276.
#pragma once

#include <cstdint>
#include <span>

namespace korvel {

// A matrix under decomposition, rows x columns, element (i, j) at a[j * ld + i]. Afterwards column
// j holds R above the diagonal and, from the diagonal on, the vector v of its reflection H = I - 2
// v v'/v'v; the diagonal of R is alpha.
struct HouseholderMatrix {
  double* a = nullptr;
  std::int64_t rows = 0;
  int columns = 0;
  std::int64_t ld = 0;
  double* alpha = nullptr;  // columns words

  double* column(int j) const { return a + ld * j; }
};

// Share of its sum of squares that a column must keep to count as a variable of its own, and the
// share below which rounding over many rows may hide an exact combination.
inline constexpr double HH_DEPENDENT = 1e-30;
inline constexpr double HH_DOUBTFUL = 1e-24;

// Decomposes X P = Q R. order[j] is the column (from 0) of X that stands at place j: at each step
// the one of largest remaining length is brought forward. squares: sums of squares of the columns
// as they are given, in their order; destroyed. work: 2 words a column. Rows >= columns.
// Returns 0, or the place (from 1) of a column that keeps no more than HH_DEPENDENT of its sum of
// squares: the rest is not decomposed then.
int HHDCMP(const HouseholderMatrix& x, std::span<double> squares, std::span<int> order,
           std::span<double> work);

// The same with the columns as they stand, for a full-rank matrix. The reflection of a column z has
// v = z + sign(z(1)) |z| e1.
void HHDCMP(const HouseholderMatrix& x);

// y := Q'y and y := Q y, `rows` words.
void hh_transpose(const HouseholderMatrix& x, double* y);
void hh_product(const HouseholderMatrix& x, double* y);

// Overwrites the decomposition with the first `columns` columns of Q.
void hh_columns(const HouseholderMatrix& x);

// y := the residuals of y on X, b := the coefficients in the order of X's columns. Returns the sum
// of squared residuals. y passes through Q'y, which is copied to Qty (columns words).
double HHSOLV(const HouseholderMatrix& x, std::span<const int> order, double* y,
              std::span<double> Qty, std::span<double> b);

// Sum of squares of n values.
double hh_squares(const double* x, std::int64_t n);

}  // namespace korvel
