// The triangle of a tall matrix by Householder reflections, a block of rows at a time.
//
// Rows come to a triangle in blocks that stay in the processor's near memory, so a matrix of any
// length is read once and never written. R is K x (K+1) by columns, leading dimension K: the upper
// triangle of the factor, and as last column the first K elements of Q'u.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace korvel {

inline constexpr std::ptrdiff_t QR_ROWS = 256;  // of one block

inline std::size_t triangle_words(int K) {
  return static_cast<std::size_t>(K) * (static_cast<std::size_t>(K) + 1);
}
// Work space of factor_rows.
inline std::int64_t factor_words(int K) { return QR_ROWS * (std::int64_t{K} + 1); }

// R := that of [R; block]. block: `rows` rows of K+1 columns, leading dimension ld; destroyed.
void reflect_rows(std::span<double> R, int K, double* block, std::ptrdiff_t ld,
                  std::ptrdiff_t rows);

// R of the matrix whose K+1 columns of n rows are listed; the last is the right side.
void factor_rows(std::span<double> R, std::span<const double* const> columns, std::int64_t n,
                 std::span<double> work);

// x with R x = -Q'u, by its first K elements. Directions that the matrix lacks get 0: a pivot at or
// below `least` times the norm of its column counts as none.
void solve_triangle(std::span<const double> R, int K, int order, std::span<double> x, double least);

}  // namespace korvel
