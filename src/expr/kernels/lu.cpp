#include "expr/kernels/lu.h"

#include <algorithm>
#include <cmath>

#include "expr/kernels/gemm.h"
#include "platform/parallel.h"

namespace korvel {
namespace {

// Columns of a block. The panel costs n^2 NB steps that run on one thread, the update of the rest
// has to fetch and keep C every NB steps.
constexpr std::int64_t NB = 32;
constexpr std::int64_t STRIP = 64;  // columns of a section

// The work space of both routines.
struct Room {
  double* panel;        // n x NB: the columns of the block
  double* solved;       // n x NB: rows of the block behind the elimination, one a column
  double* reduced;      // the same, divided by U as well
  std::int32_t* pivot;  // n: row that took the place of row k, from 0
  std::span<double> product;
};

Room carve(std::int64_t n, std::span<double> work) {
  const auto block = static_cast<std::size_t>(n * NB);
  double* w = work.data();
  Room room{.panel = w,
            .solved = w + block,
            .reduced = w + 2 * block,
            .pivot = reinterpret_cast<std::int32_t*>(w + 3 * block),
            .product = {}};
  room.product = work.subspan(3 * block + static_cast<std::size_t>(n + 1) / 2);
  return room;
}

// LU decomposition of a panel, rows x columns with leading dimension ld, column after column; the
// rows are interchanged in it. pivot: the row (from 0) taken for each column. Returns the number of
// columns done: fewer than `columns` when all of a column is zero.
std::int64_t lu_panel(double* p, std::int64_t ld, std::int64_t rows, std::int64_t columns,
                      std::int32_t* pivot, ScaledProduct& det) {
  const GemmLanes& lanes = gemm_lanes();
  for (std::int64_t j = 0; j < columns; ++j) {
    double* y = p + j * ld;
    for (std::int64_t k = 0; k < j; ++k) std::swap(y[k], y[pivot[k]]);
    for (std::int64_t k = 1; k < j; ++k) {
      for (std::int64_t q = 0; q < k; ++q) y[k] -= p[k + q * ld] * y[q];
    }
    lanes.take_columns(p + j, ld, y, 1, j, rows - j, y + j);
    std::int64_t best = j;
    for (std::int64_t i = j + 1; i < rows; ++i) {
      if (std::fabs(y[i]) > std::fabs(y[best])) best = i;
    }
    pivot[j] = static_cast<std::int32_t>(best);
    det.times(best == j ? y[best] : -y[best]);
    if (y[best] == 0.0) return j;
    if (best != j) {
      for (std::int64_t q = 0; q <= j; ++q) std::swap(p[j + q * ld], p[best + q * ld]);
    }
    const double d = y[j];
    for (std::int64_t i = j + 1; i < rows; ++i) y[i] /= d;
  }
  return columns;
}

// One step of the elimination: the block of rows and columns k0 .. k0+b-1.
struct Step {
  double* a;
  std::int64_t n;
  const Room& room;
  const double* panel;  // the decomposed panel, its row 0 that of the matrix, leading dimension n
  std::int64_t k0 = 0, b = 0;

  // Interchanges the rows of column j and copies those of the block to line j of `solved`.
  void gather(std::int64_t j) const {
    double* column = a + j * n;
    for (std::int64_t c = 0; c < b; ++c) {
      std::swap(column[k0 + c], column[k0 + room.pivot[k0 + c]]);
      room.solved[j + c * n] = column[k0 + c];
    }
  }
  // solved := solved / L for the lines from..to-1.
  void solve(std::int64_t from, std::int64_t to) const {
    for (std::int64_t c = 1; c < b; ++c) {
      gemm_lanes().take_columns(room.solved + from, n, panel + k0 + c, n, c, to - from,
                                room.solved + from + c * n);
    }
  }
  // reduced := solved / U.
  void reduce(std::int64_t from, std::int64_t to) const {
    for (std::int64_t c = b; c-- > 0;) {
      double* r = room.reduced + c * n;
      std::copy_n(room.solved + c * n + from, to - from, r + from);
      gemm_lanes().take_columns(room.reduced + (c + 1) * n + from, n, panel + k0 + c + (c + 1) * n,
                                n, b - 1 - c, to - from, r + from);
      const double d = panel[k0 + c + c * n];
      for (std::int64_t i = from; i < to; ++i) r[i] /= d;
    }
  }
};

template <class F>
void column_sections(std::int64_t from, std::int64_t to, F&& body) {
  const std::int64_t count = (to - from + STRIP - 1) / STRIP;
  const auto section = [&](int s) {
    const std::int64_t begin = from + s * STRIP;
    body(begin, std::min(begin + STRIP, to));
  };
  if (count >= 4) return parallel_sections(static_cast<int>(count), section);
  for (int s = 0; s < static_cast<int>(count); ++s) section(s);
}

}  // namespace

void ScaledProduct::times(double factor) {
  int own = 0;
  int both = 0;
  value = std::frexp(value * std::frexp(factor, &own), &both);
  power += own + both;
}

ScaledProduct::Decimal ScaledProduct::decimal() const {
  if (value == 0.0 || !std::isfinite(value)) return {value, 0};
  constexpr std::int64_t LEAST = -1021;  // 2^(LEAST-1) is the smallest normal number
  constexpr std::int64_t MOST = 1024;
  if (power >= LEAST && power <= MOST) return {std::ldexp(value, static_cast<int>(power)), 0};
  // Powers of ten taken off in steps that are exact in themselves.
  constexpr double TEN22 = 1e22;
  Decimal d{value, 0};
  std::int64_t left = power;
  const bool large = left > 0;
  while (large ? left > 80 : left < -80) {
    int e = 0;
    d.value = std::frexp(large ? d.value / TEN22 : d.value * TEN22, &e);
    left += e;
    d.power += large ? 22 : -22;
  }
  d.value = std::ldexp(d.value, static_cast<int>(left));
  for (; std::fabs(d.value) >= 10.0; ++d.power) d.value /= 10.0;
  for (; std::fabs(d.value) < 1.0; --d.power) d.value *= 10.0;
  return d;
}

std::int64_t LU_words(std::int64_t n) { return 3 * n * NB + (n + 1) / 2 + DGMULT_words(n, n, NB); }

// Gauss and Jordan in place: behind a step the columns done hold those of the inverse (of the
// matrix with its rows interchanged), the others what is left of the matrix. The rows below the
// block are reduced as in the LU decomposition, those above by its solution.
int matrix_inverse(double* a, int n, ScaledProduct& det, std::span<double> work) {
  const Room room = carve(n, work);
  det = {};
  for (std::int64_t k0 = 0; k0 < n; k0 += NB) {
    const std::int64_t b = std::min<std::int64_t>(NB, n - k0);
    const std::int64_t k1 = k0 + b;
    // 1. The panel.
    std::copy_n(a + k0 * n, b * n, room.panel);
    const std::int64_t done = lu_panel(room.panel + k0, n, n - k0, b, room.pivot + k0, det);
    if (done < b) return static_cast<int>(k0 + done + 1);
    // 2. The rows of the block in all columns; its own become those of the unit matrix.
    const Step step{.a = a, .n = n, .room = room, .panel = room.panel, .k0 = k0, .b = b};
    column_sections(0, n, [&](std::int64_t from, std::int64_t to) {
      for (std::int64_t j = from; j < to; ++j) {
        if (j < k0 || j >= k1) {
          step.gather(j);
          continue;
        }
        std::fill_n(a + j * n, n, 0.0);
        for (std::int64_t c = 0; c < b; ++c) room.solved[j + c * n] = j - k0 == c ? 1.0 : 0.0;
      }
      step.solve(from, to);
      step.reduce(from, to);
    });
    // 3. The rows above and below.
    const GemmShape above{.rows = k0, .columns = n, .inner = b, .ld = n, .mode = GEMM_TAKE};
    const GemmShape below{.rows = n - k1, .columns = n, .inner = b, .ld = n, .mode = GEMM_TAKE};
    if (!DGMULT(by_columns(room.panel, n), transpose_of(room.reduced, n), a, above, room.product) ||
        !DGMULT(by_columns(room.panel + k1, n), transpose_of(room.solved, n), a + k1, below,
                room.product)) {
      return STOPPED;
    }
    column_sections(0, n, [&](std::int64_t from, std::int64_t to) {
      for (std::int64_t j = from; j < to; ++j) {
        for (std::int64_t c = 0; c < b; ++c) a[k0 + c + j * n] = room.reduced[j + c * n];
      }
    });
  }
  // Rows interchanged in the matrix are columns of the inverse. Pivots count from their block.
  for (std::int64_t k = n; k-- > 0;) {
    const std::int64_t p = k / NB * NB + room.pivot[k];
    if (p != k) std::swap_ranges(a + k * n, a + (k + 1) * n, a + p * n);
  }
  return 0;
}

int determinant(double* a, int n, ScaledProduct& det, std::span<double> work) {
  const Room room = carve(n, work);
  det = {};
  for (std::int64_t k0 = 0; k0 < n; k0 += NB) {
    const std::int64_t b = std::min<std::int64_t>(NB, n - k0);
    const std::int64_t k1 = k0 + b;
    double* panel = a + k0 * n;
    if (lu_panel(panel + k0, n, n - k0, b, room.pivot + k0, det) < b) {
      det.value = 0.0;
      return 0;
    }
    const Step step{.a = a, .n = n, .room = room, .panel = panel, .k0 = k0, .b = b};
    column_sections(k1, n, [&](std::int64_t from, std::int64_t to) {
      for (std::int64_t j = from; j < to; ++j) step.gather(j);
      step.solve(from, to);
    });
    const GemmShape rest{.rows = n - k1, .columns = n - k1, .inner = b, .ld = n, .mode = GEMM_TAKE};
    if (!DGMULT(by_columns(panel + k1, n), transpose_of(room.solved + k1, n), a + k1 + k1 * n, rest,
                room.product)) {
      return STOPPED;
    }
  }
  return 0;
}

}  // namespace korvel
