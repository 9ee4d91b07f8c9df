// Least squares by the normal equations: the moment matrix in one sweep over the rows, its solution
// by Cholesky.
//
// The sweep takes the rows in blocks that stay in the cache, centres each block and joins its
// moments to those of the rows before it (Chan, Golub and LeVeque 1983), so that a mean far from
// zero costs no digits and the data need not lie in memory in one piece: rows that are passed over
// are left out while a block is loaded. Long data are cut into sections that threads share.
#pragma once

#include <cstdint>
#include <span>

#include "expr/kernels/columns.h"

namespace korvel {

// The rows of a sweep.
struct MomentRows {
  ColumnList x;                    // columns; x.root is not used
  const double* weight = nullptr;  // by row; its absolute value counts. Null: 1
  std::span<const double> skip{};  // rows with a mark above 0 are passed over; empty: none are
};

// Words of work space of LSMOM.
std::int64_t LSMOM_words(int columns, std::int64_t rows);
// Means of all columns and the packed matrix of sums w (x_i - mean_i)(x_j - mean_j). A column of
// ones gets mean 1 and zeros. Scales of the columns are applied. Returns the sum of the weights.
double LSMOM(const MomentRows& rows, std::span<double> work, std::span<double> mean,
             std::span<double> cross);

// Moments of K regressors and, last, the dependent variable.
struct MomentView {
  std::span<const double> mean;   // K+1
  std::span<const double> cross;  // packed K+1, about the means
  double SWT = 0.0;               // sum of the weights
  bool constant = false;          // regressor K is the constant: the fit is made about the means
  int K() const { return static_cast<int>(mean.size()) - 1; }
};

// A solution of the normal equations.
struct NormalFit {
  double SSE = 0.0;        // y'y - 2 b'X'y + b'X'X b, of the moments without the ridge term
  double condition = 1.0;  // largest factor by which an error of the moments grows, squared
  int IFAULT = 0;          // as of the Cholesky family: the row of a regressor
};
// Coefficients and the inverse of the moment matrix (packed K). ridge k: the diagonal of the moment
// matrix is multiplied by 1+k (Hoerl and Kennard 1970). With `given` coef is not computed but
// taken as it stands. work: packed K and K words.
NormalFit LSREG(const MomentView& moments, double ridge, bool given, std::span<double> work,
                std::span<double> coef, std::span<double> cov);

// X'X or, with y as last column, all raw moments: cross + SWT mean mean'.
void raw_moments(const MomentView& moments, int order, std::span<double> out);

// Sweeps row and column k (from 1) of a packed symmetric matrix: Goodnight (1979), with the sign
// kept so that sweeping k once more undoes it. The diagonal element k must not be zero.
void sweep(std::span<double> a, int order, int k);

// Largest order for which LSINVERSE is worth its sweep.
inline constexpr int MOST_EXACT = 32;
// Newton steps on an inverse of X'X that rounding has spoilt: X'X is summed in twice the working
// precision (Dekker 1971). inverse: packed K, a first approximation. IFAULT 1: it did not converge,
// the inverse is as before. Columns behind the first K of x are left aside.
std::int64_t LSINVERSE_words(int K, std::int64_t rows);
int LSINVERSE(const ColumnList& x, int K, std::span<double> work, std::span<double> inverse);

}  // namespace korvel
