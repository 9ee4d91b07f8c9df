// The inner loops of GSREG. One set for each vector width; gs_lanes() is the one for this machine.
#pragma once

#include <cstddef>

namespace korvel {

struct GsLanes {
  // Copies n values (times root when it is not null; src null: ones) to dst, fills up to a multiple
  // of 8 with zeros. Returns their sum.
  double (*load_column)(const double* src, const double* root, std::ptrdiff_t n, double* dst);
  // Sum of (x - mean)^2; *drift is the sum of x - mean.
  double (*squares_about)(const double* x, std::ptrdiff_t n, double mean, double* drift);
  // Modified Gram-Schmidt on the columns of a (ld apart, rows a multiple of 8), factor packed.
  void (*orthogonalise)(double* a, int columns, std::ptrdiff_t ld, std::ptrdiff_t rows,
                        double* factor);
  // One block of a refinement step: K regressors and y in a, coefficients b + blo. Adds to the
  // eight partial sums of each column, g (high) and glo (low), and returns the sum of squared
  // residuals. e has room for 2*rows.
  double (*refine_block)(const double* a, int K, std::ptrdiff_t ld, std::ptrdiff_t rows,
                         const double* b, const double* blo, double* e, double* g, double* glo);
  // e -= b x for n rows (x null: ones).
  void (*take_column)(const double* x, double b, std::ptrdiff_t n, double* e);
};

const GsLanes& gs_lanes();

}  // namespace korvel
