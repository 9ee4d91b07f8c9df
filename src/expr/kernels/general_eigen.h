// Eigenvalues and eigenvectors of a general real matrix: balancing (Parlett and Reinsch 1969,
// Numerische Mathematik 13, 293-304), Householder reduction to Hessenberg form (Martin and
// Wilkinson 1968, Numerische Mathematik 12, 349-368), the QR iteration with double shifts (Martin,
// Peters and Wilkinson 1970, Numerische Mathematik 14, 219-231) and back substitution for the
// vectors (Peters and Wilkinson 1970, Numerische Mathematik 16, 181-204).
#pragma once

#include <cstdint>
#include <span>

namespace korvel {

// Iterations in which an eigenvalue must be found.
inline constexpr int QR_ITERATIONS = 30;

// Words of work space for order n.
constexpr std::int64_t general_eigen_words(std::int64_t n) { return 3 * n; }

// a: order n by columns without gaps; destroyed. re, im: the eigenvalues, n words each, in the
// order in which they stand on the diagonal; of a pair of complex ones that with the positive
// imaginary part comes first. z, n x n or null: column j gets the eigenvector of a real value, of a
// pair columns j and j+1 the real and the imaginary part of the first one's. Not normalised.
// Returns IFAULT: 0; i: the value of rank i (from 1) was not found in QR_ITERATIONS iterations,
// those behind it were; -1: a value of the matrix is no number or infinite, -2: stopped by the
// user.
int general_eigen(double* a, int n, std::span<double> re, std::span<double> im, double* z,
                  std::span<double> work);

}  // namespace korvel
