// The inner loops of moment matrices. One set for each vector width; ls_lanes() is the one for this
// machine.
#pragma once

#include <cstddef>

namespace korvel {

struct LsLanes {
  // Sum of w x over n values.
  double (*weighted_sum)(const double* x, const double* w, std::ptrdiff_t n);
  // x := (x - mean) root in place for n values (root null: 1), then zeros up to a multiple of 8.
  void (*centre)(double* x, const double* root, double mean, std::ptrdiff_t n);
  // Adds a_i'a_j to the packed triangle out; columns stand ld apart, rows is a multiple of 8.
  void (*cross)(const double* a, int columns, std::ptrdiff_t ld, std::ptrdiff_t rows, double* out);
  // Adds a_i'b_j to the square out, by rows.
  void (*cross_pair)(const double* a, const double* b, int columns, std::ptrdiff_t ld,
                     std::ptrdiff_t rows, double* out);
  // Adds a_i'a_j in twice the working precision: eight partial sums for each element of the packed
  // triangle, `high` and behind them their low parts.
  void (*cross_exact)(const double* a, int columns, std::ptrdiff_t ld, std::ptrdiff_t rows,
                      double* high, double* low);
};

const LsLanes& ls_lanes();

}  // namespace korvel
