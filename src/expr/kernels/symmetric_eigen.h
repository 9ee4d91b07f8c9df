// Eigenvalues and eigenvectors of a symmetric matrix: Householder reduction to tridiagonal form
// (Martin, Reinsch and Wilkinson 1968, Numerische Mathematik 11, 181-195) and the implicit QL
// iteration (Dubrulle 1970, Numerische Mathematik 15, 450).
#pragma once

#include <cstdint>
#include <span>

namespace korvel {

// Iterations in which an eigenvalue must be found.
inline constexpr int QL_ITERATIONS = 30;

// Words of work space for a matrix of order n.
std::int64_t symmetric_eigen_words(std::int64_t n);

// a: order n by columns, leading dimension n; only the lower triangle is read. values: n words,
// ascending. With `vectors` column j of a becomes the eigenvector of length 1 of value j, otherwise
// a is destroyed. Returns IFAULT: 0, the rank (from 1) of a value not found in QL_ITERATIONS
// iterations, or -1 when the matrix holds a value that is no number.
int symmetric_eigen(double* a, int n, bool vectors, std::span<double> values,
                    std::span<double> work);

}  // namespace korvel
