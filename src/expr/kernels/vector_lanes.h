// Sums and updates of whole columns, the inner loops of the orthogonal decompositions. One set for
// each vector width; vector_lanes() is the one for this machine. Columns may have any length and
// alignment, and must not overlap.
#pragma once

#include <cstddef>

namespace korvel {

struct VectorLanes {
  double (*dot)(const double* x, const double* y, std::ptrdiff_t n);
  // y += a x
  void (*add)(double a, const double* x, std::ptrdiff_t n, double* y);
  // y += a x, and returns the sum of x z: both uses of a column of a symmetric matrix in one pass.
  double (*add_dot)(double a, const double* x, const double* z, std::ptrdiff_t n, double* y);
  // y += a u + b v
  void (*add_two)(double a, const double* u, double b, const double* v, std::ptrdiff_t n,
                  double* y);
  // (x, y) := (c x + s y, c y - s x)
  void (*rotate)(double c, double s, std::ptrdiff_t n, double* x, double* y);
  // Two rotations that follow one another, first of columns y and z, then of x and the new y.
  void (*rotate_two)(const double* c, const double* s, std::ptrdiff_t n, double* x, double* y,
                     double* z);
};

const VectorLanes& vector_lanes();

}  // namespace korvel
