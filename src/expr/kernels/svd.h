// Singular value decomposition: Golub and Reinsch (1970), "Singular value decomposition and least
// squares solutions", Numerische Mathematik 14, 403-420.
#pragma once

#include <cstdint>
#include <span>

namespace korvel {

// Iterations in which a value must be found.
inline constexpr int SVD_ITERATIONS = 40;

// Words of work space.
constexpr std::int64_t SVD_words(std::int64_t rows, std::int64_t columns) {
  return rows + 2 * columns;
}

// A = U diag(values) V', rows >= columns; element (i, j) of A at a[j * ld + i]. values: `columns`
// words, descending. a is overwritten: with U (rows x columns, orthonormal) when `left` is set,
// else with nothing of use. v: columns x columns, gets V with the leading dimension `columns`;
// null: not wanted. A wide matrix is given by its transpose, with U and V changing places. Returns
// IFAULT: 0, the rank (from 1) of a value not found in SVD_ITERATIONS iterations, or -1 when A
// holds a value that is no number.
int SVD(double* a, std::int64_t rows, int columns, std::int64_t ld, std::span<double> values,
        double* v, bool left, std::span<double> work);

}  // namespace korvel
