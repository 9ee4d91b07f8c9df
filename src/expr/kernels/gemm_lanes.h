// The inner loops of matrix products. One set for each vector width; gemm_lanes() is the one for
// this machine.
#pragma once

#include <cstddef>

namespace korvel {

// What a product does with C: C = A B, C = C + A B, C = C - A B.
enum GemmMode : int { GEMM_SET = 0, GEMM_ADD = 1, GEMM_TAKE = 2 };

struct GemmLanes {
  // Rows of a register (a panel of A has 1, 2 or 3 times as many), columns of a panel of B.
  std::ptrdiff_t width, NR;
  // One tile of C, height x NR with height = parts*width, leading dimension ldc. a: k columns of
  // `height` values, b: k rows of NR values. Every element takes one product after the other, in
  // the order of k, by fused multiply-adds: the same on every width.
  void (*tile[3])(const double* a, const double* b, std::ptrdiff_t k, double* c, std::ptrdiff_t ldc,
                  int mode);
  // y[i] -= x[0*ld + i] c[0], then x[1*ld + i] c[1], ... for n values, `count` columns.
  void (*take_columns)(const double* x, std::ptrdiff_t ld, const double* c, std::ptrdiff_t cstep,
                       std::ptrdiff_t count, std::ptrdiff_t n, double* y);
  // The same with +=.
  void (*add_columns)(const double* x, std::ptrdiff_t ld, const double* c, std::ptrdiff_t cstep,
                      std::ptrdiff_t count, std::ptrdiff_t n, double* y);
};
inline constexpr int MOST_PARTS = 3;
inline constexpr std::ptrdiff_t MOST_HEIGHT = 24;
inline constexpr std::ptrdiff_t MOST_NR = 8;

const GemmLanes& gemm_lanes();

}  // namespace korvel
