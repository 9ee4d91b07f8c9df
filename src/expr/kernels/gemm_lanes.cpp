// Inner loops of matrix products, built once for each vector width.
//
// A tile of C stays in registers while the loop runs over k; its shape is what the registers of the
// width hold (Goto and van de Geijn 2008, "Anatomy of high-performance matrix multiplication", ACM
// TOMS 34, article 12). Every step is one fused multiply-add, whose result is defined to the last
// bit, so neither the shape nor the width leaves a trace. Processors without the instruction get
// the same bytes from the C library, slowly.
#include "expr/kernels/gemm_lanes.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include "expr/kernels/lane_vectors.h"

namespace korvel::KORVEL_LANES {
namespace {

#if defined(__AVX512F__)
constexpr std::ptrdiff_t COLUMNS = 8;  // 24 of 32 registers hold sums
#else
constexpr std::ptrdiff_t COLUMNS = 4;  // 12 of 16
#endif

inline LanePart load(const double* p) {
  LanePart r;
  __builtin_memcpy(&r, p, LANE_BYTES);
  return r;
}
inline void store(double* p, LanePart v) { __builtin_memcpy(p, &v, LANE_BYTES); }

// y + x b and y - x b, rounded once.
#if defined(__AVX512F__)
inline LanePart add(LanePart y, LanePart x, double b) {
  return _mm512_fmadd_pd(x, _mm512_set1_pd(b), y);
}
inline LanePart take(LanePart y, LanePart x, double b) {
  return _mm512_fnmadd_pd(x, _mm512_set1_pd(b), y);
}
#elif defined(__FMA__)
inline LanePart add(LanePart y, LanePart x, double b) {
  return _mm256_fmadd_pd(x, _mm256_set1_pd(b), y);
}
inline LanePart take(LanePart y, LanePart x, double b) {
  return _mm256_fnmadd_pd(x, _mm256_set1_pd(b), y);
}
#else
inline LanePart add(LanePart y, LanePart x, double b) {
  for (std::ptrdiff_t i = 0; i < PART; ++i) y[i] = __builtin_fma(x[i], b, y[i]);
  return y;
}
inline LanePart take(LanePart y, LanePart x, double b) { return add(y, x, -b); }
#endif

// The sums of one column of the tile, unrolled by hand: arrays of registers would live in memory.
template <int PARTS>
struct Sums {
  LanePart s0 = {}, s1 = {}, s2 = {};

  void fetch(const double* c) {
    s0 = load(c);
    if constexpr (PARTS > 1) s1 = load(c + PART);
    if constexpr (PARTS > 2) s2 = load(c + 2 * PART);
  }
  void keep(double* c) const {
    store(c, s0);
    if constexpr (PARTS > 1) store(c + PART, s1);
    if constexpr (PARTS > 2) store(c + 2 * PART, s2);
  }
  template <bool TAKE>
  void step(const Sums& a, double b) {
    if constexpr (TAKE) {
      s0 = take(s0, a.s0, b);
      if constexpr (PARTS > 1) s1 = take(s1, a.s1, b);
      if constexpr (PARTS > 2) s2 = take(s2, a.s2, b);
    } else {
      s0 = add(s0, a.s0, b);
      if constexpr (PARTS > 1) s1 = add(s1, a.s1, b);
      if constexpr (PARTS > 2) s2 = add(s2, a.s2, b);
    }
  }
};

template <int PARTS, bool TAKE>
inline void run_tile(const double* a, const double* b, std::ptrdiff_t k, double* c,
                     std::ptrdiff_t ldc, bool fetch) {
  Sums<PARTS> c0, c1, c2, c3, c4, c5, c6, c7;
  if (fetch) {
    c0.fetch(c);
    c1.fetch(c + ldc);
    c2.fetch(c + 2 * ldc);
    c3.fetch(c + 3 * ldc);
    if constexpr (COLUMNS == 8) {
      c4.fetch(c + 4 * ldc);
      c5.fetch(c + 5 * ldc);
      c6.fetch(c + 6 * ldc);
      c7.fetch(c + 7 * ldc);
    }
  }
  for (std::ptrdiff_t p = 0; p < k; ++p, a += PARTS * PART, b += COLUMNS) {
    Sums<PARTS> column;
    column.fetch(a);
    c0.template step<TAKE>(column, b[0]);
    c1.template step<TAKE>(column, b[1]);
    c2.template step<TAKE>(column, b[2]);
    c3.template step<TAKE>(column, b[3]);
    if constexpr (COLUMNS == 8) {
      c4.template step<TAKE>(column, b[4]);
      c5.template step<TAKE>(column, b[5]);
      c6.template step<TAKE>(column, b[6]);
      c7.template step<TAKE>(column, b[7]);
    }
  }
  c0.keep(c);
  c1.keep(c + ldc);
  c2.keep(c + 2 * ldc);
  c3.keep(c + 3 * ldc);
  if constexpr (COLUMNS == 8) {
    c4.keep(c + 4 * ldc);
    c5.keep(c + 5 * ldc);
    c6.keep(c + 6 * ldc);
    c7.keep(c + 7 * ldc);
  }
}

template <int PARTS>
void tile(const double* a, const double* b, std::ptrdiff_t k, double* c, std::ptrdiff_t ldc,
          int mode) {
  if (mode == GEMM_TAKE) {
    run_tile<PARTS, true>(a, b, k, c, ldc, true);
  } else {
    run_tile<PARTS, false>(a, b, k, c, ldc, mode == GEMM_ADD);
  }
}

// y[i] += or -= the columns of x times their factors. Four registers of y at a time: enough sums on
// the way to hide their latency.
template <bool TAKE>
void columns(const double* x, std::ptrdiff_t ld, const double* c, std::ptrdiff_t cstep,
             std::ptrdiff_t count, std::ptrdiff_t n, double* y) {
  const auto step = [](LanePart& to, LanePart from, double f) {
    to = TAKE ? take(to, from, f) : add(to, from, f);
  };
  std::ptrdiff_t i = 0;
  for (; i + 4 * PART <= n; i += 4 * PART) {
    LanePart y0 = load(y + i), y1 = load(y + i + PART);
    LanePart y2 = load(y + i + 2 * PART), y3 = load(y + i + 3 * PART);
    const double* p = x + i;
    const double* f = c;
    for (std::ptrdiff_t j = 0; j < count; ++j, p += ld, f += cstep) {
      step(y0, load(p), *f);
      step(y1, load(p + PART), *f);
      step(y2, load(p + 2 * PART), *f);
      step(y3, load(p + 3 * PART), *f);
    }
    store(y + i, y0);
    store(y + i + PART, y1);
    store(y + i + 2 * PART, y2);
    store(y + i + 3 * PART, y3);
  }
  for (; i + PART <= n; i += PART) {
    LanePart y0 = load(y + i);
    for (std::ptrdiff_t j = 0; j < count; ++j) step(y0, load(x + j * ld + i), c[j * cstep]);
    store(y + i, y0);
  }
  for (; i < n; ++i) {
    double y0 = y[i];
    for (std::ptrdiff_t j = 0; j < count; ++j) {
      const double f = TAKE ? -c[j * cstep] : c[j * cstep];
      y0 = __builtin_fma(x[j * ld + i], f, y0);
    }
    y[i] = y0;
  }
}

}  // namespace

const GemmLanes& gemm_lane_set() {
  static constexpr GemmLanes set = {
      PART, COLUMNS, {tile<1>, tile<2>, tile<3>}, columns<true>, columns<false>};
  return set;
}

}  // namespace korvel::KORVEL_LANES
