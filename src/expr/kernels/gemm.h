// Products of matrices with optional stored transposes, on all threads.
//
// Element (i, j) of A B is ((a(i,1) b(1,j) + a(i,2) b(2,j)) + a(i,3) b(3,j)) + ..., each step a
// fused multiply-add (IEEE 754: rounded once): the same bytes for every vector width, number of
// threads and compiler, and A'A comes out exactly symmetric.
#pragma once

#include <cstdint>
#include <span>

#include "expr/kernels/gemm_lanes.h"

namespace korvel {

// A matrix where it lies: element (i, j), from 0, at data[i * row + j * column].
struct Strided {
  const double* data = nullptr;
  std::int64_t row = 1;
  std::int64_t column = 0;
};
// By columns with leading dimension ld, or the transpose of such a matrix.
inline Strided by_columns(const double* data, std::int64_t ld) { return {data, 1, ld}; }
inline Strided transpose_of(const double* data, std::int64_t ld) { return {data, ld, 1}; }

// C, rows x columns by columns with leading dimension ld; the product runs over `inner`.
struct GemmShape {
  std::int64_t rows = 0, columns = 0, inner = 0, ld = 0;
  GemmMode mode = GEMM_SET;
  bool symmetric = false;  // the result is known to be symmetric: only its lower triangle is made,
  bool mirror = true;      // and, if this is set, copied to the upper one
};

// Words of work space.
std::int64_t DGMULT_words(std::int64_t rows, std::int64_t columns, std::int64_t inner);

// False when the user has asked to stop: C is then not to be used.
bool DGMULT(const Strided& a, const Strided& b, double* c, const GemmShape& shape,
            std::span<double> work);

// b (columns x rows) := the transpose of a (rows x columns), both by columns without gaps.
void transpose(const double* a, std::int64_t rows, std::int64_t columns, double* b);

}  // namespace korvel
