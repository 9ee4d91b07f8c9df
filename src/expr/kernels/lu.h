// Inverse and determinant of a general matrix by Gaussian elimination with row interchanges, in
// blocks (Dongarra, Duff, Sorensen and van der Vorst 1991, Solving Linear Systems on Vector and
// Shared Memory Computers, chapter 5).
#pragma once

#include <cstdint>
#include <span>

namespace korvel {

// A product of many factors that may leave the range of reals: value * 2^power, |value| in [1/2, 1)
// or 0, infinite, no number.
struct ScaledProduct {
  double value = 0.5;
  std::int64_t power = 1;

  void times(double factor);
  // As value * 10^power with power 0 whenever it is in the range of reals, else 1 <= |value| < 10.
  struct Decimal {
    double value = 0.0;
    std::int64_t power = 0;
  };
  Decimal decimal() const;
};

// Words of work space of both routines for order n.
std::int64_t LU_words(std::int64_t n);

// What went wrong: 0 nothing, i: no pivot other than zero for column i (from 1), -1 the user has
// asked to stop.
inline constexpr int STOPPED = -1;

// a, order n by columns without gaps, becomes its inverse. det: the determinant.
int matrix_inverse(double* a, int n, ScaledProduct& det, std::span<double> work);

// The determinant of a, which is destroyed; 0 for a singular matrix. Returns 0 or STOPPED.
int determinant(double* a, int n, ScaledProduct& det, std::span<double> work);

}  // namespace korvel
