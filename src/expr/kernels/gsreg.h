// Least squares by modified Gram-Schmidt orthogonalisation, over data of any length.
//
// The dependent variable is the last of K+1 columns. The triangular factor is packed (packed.h) of
// order K+1: element (j, j) holds S(j), the sum of squares of column j after all earlier columns
// have been taken from it, and element (k, j), j < k, holds r(j, k), the coefficient with which the
// orthogonalised column j was taken from column k. S(K+1) is the sum of squared errors.
//
// The rows are taken in blocks that stay in the cache: each block is orthogonalised together with
// the factor of the rows before it (sequential QR of tall matrices: Demmel, Grigori, Hoemmen and
// Langou 2012), which gives the numbers of the plain method to rounding. Long data are cut into
// sections that threads share; cuts depend on the number of rows alone and sections are joined in
// order, so the result is the same for any number of threads and any vector width.
#pragma once

#include <cstdint>
#include <span>

#include "expr/kernels/columns.h"

namespace korvel {

inline constexpr int FEWER_ROWS = 999;  // IFAULT of GSREG: fewer observations than variables

// Words of work space for a matrix of that shape.
std::int64_t GSREG_words(int columns, std::int64_t rows);

// Orthogonalises the columns. factor: packed_words(columns). Columns from `first` on (counted from
// 0) also get their mean and their sum of squares about it in means and squares (columns long;
// sections are combined pairwise: Chan, Golub and LeVeque 1983); with x.root none may be asked for
// (first = columns). Returns IFAULT: j when column j is a linear combination of the columns before
// it, FEWER_ROWS when rows < columns - 1.
int GSREG(const ColumnList& x, std::span<double> work, std::span<double> factor, int first,
          std::span<double> means, std::span<double> squares);

// Coefficients b (K) by back substitution.
void gs_coefficients(std::span<const double> factor, int columns, std::span<double> b);

// (X'X)^-1, packed of order K.
void gs_inverse(std::span<const double> factor, int columns, std::span<double> inverse);

// Sum of squares of the original column j (from 1).
double gs_square_sum(std::span<const double> factor, int j);

// Largest factor by which an error in the data can grow in a coefficient, the columns scaled to
// length 1: the condition of X within sqrt(K). Above REFINE_ABOVE a fit is worth refining: below it
// plain orthogonalisation keeps 12 digits and more. Short data, whose further sweeps take less time
// than the command around them, are refined from REFINE_SHORT on.
inline constexpr double REFINE_ABOVE = 500.0;
inline constexpr double REFINE_SHORT = 8.0;
inline bool worth_refining(double condition, int columns, std::int64_t rows) {
  constexpr std::int64_t short_words = 50000;
  return condition > (columns * rows <= short_words ? REFINE_SHORT : REFINE_ABOVE);
}
double gs_condition(std::span<const double> factor, std::span<const double> inverse, int columns);

// Iterative refinement of b: residuals and X'e are accumulated in twice the working precision
// (Dekker 1971; Ogita, Rump and Oishi 2005), corrections come from the factor at hand. Converges
// while condition^2 stays well below 2^53. IFAULT 1: it did not, b is as before.
struct Refinement {
  double SSE = 0.0;  // sum of squared errors at the last step
  int steps = 0;
  int IFAULT = 0;
};
// Words of its work space; that of GSREG serves too.
std::int64_t GSREFINE_words(int columns, std::int64_t rows);
Refinement GSREFINE(const ColumnList& x, std::span<const double> factor, std::span<double> work,
                    std::span<double> b);

// e = y - X b row by row, x.root left aside.
void gs_residuals(const ColumnList& x, std::span<const double> b, std::span<double> e);

}  // namespace korvel
