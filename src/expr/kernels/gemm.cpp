#include "expr/kernels/gemm.h"

#include <algorithm>
#include <cstring>

#include "engine/output.h"
#include "platform/cpu.h"
#include "platform/parallel.h"

namespace korvel {

namespace baseline {
const GemmLanes& gemm_lane_set();
}
#if defined(__x86_64__)
namespace avx2 {
const GemmLanes& gemm_lane_set();
}
namespace avx512 {
const GemmLanes& gemm_lane_set();
}
#endif

const GemmLanes& gemm_lanes() {
#if defined(__x86_64__)
  if (cpu_lanes() == Lanes::avx512) return avx512::gemm_lane_set();
  if (cpu_lanes() == Lanes::avx2) return avx2::gemm_lane_set();
#endif
  return baseline::gemm_lane_set();
}

namespace {

constexpr std::int64_t INNER = 256;         // of one pass: a panel of B stays in the first cache
constexpr std::int64_t SPAN = 1024;         // columns between two looks at the stop request
constexpr std::int64_t ALIGNMENT = 8;       // words
constexpr std::int64_t THREADED = 1 << 20;  // products from which waking the threads pays
constexpr std::int64_t A_GROUP = 16, B_GROUP = 8;  // panels of a section, at most

std::int64_t round_up(std::int64_t n, std::int64_t step) { return (n + step - 1) / step * step; }

// Length of a pass, so that all passes are about equal.
std::int64_t pass_length(std::int64_t inner) {
  const std::int64_t passes = (inner + INNER - 1) / INNER;
  return passes == 0 ? 0 : (inner + passes - 1) / passes;
}

// Packs `count` (up to height) lines of k values: value p of line r to out[p * height + r]. Lines
// that are lacking are zeros.
void pack(const double* from, std::int64_t line, std::int64_t step, std::int64_t count,
          std::int64_t height, std::int64_t k, double* out) {
  if (count < height) std::fill_n(out, height * k, 0.0);
  if (line == 1) {
    for (std::int64_t p = 0; p < k; ++p) {
      std::memcpy(out + p * height, from + p * step,
                  static_cast<std::size_t>(count) * sizeof(double));
    }
    return;
  }
  for (std::int64_t r = 0; r < count; ++r) {
    const double* x = from + r * line;
    double* y = out + r;
    for (std::int64_t p = 0; p < k; ++p) y[p * height] = x[p * step];
  }
}

// One pass: k values of the inner index, `columns` columns of C from `first` on.
struct Pass {
  const GemmLanes& lanes;
  const Strided& a;
  const Strided& b;
  const GemmShape& shape;
  double* c;
  double* packed_a;
  double* packed_b;
  std::int64_t from = 0, k = 0, first = 0, columns = 0;
  int mode = GEMM_SET;

  std::int64_t MR() const { return MOST_PARTS * lanes.width; }
  std::int64_t a_panels() const { return (shape.rows + MR() - 1) / MR(); }
  std::int64_t b_panels() const { return (columns + lanes.NR - 1) / lanes.NR; }
  // The last panel of A may be lower.
  std::int64_t height(std::int64_t panel) const {
    return std::min(MR(), round_up(shape.rows - panel * MR(), lanes.width));
  }
  void pack_a(std::int64_t panel) const {
    const std::int64_t i = panel * MR();
    pack(a.data + i * a.row + from * a.column, a.row, a.column, std::min(MR(), shape.rows - i),
         height(panel), k, packed_a + i * k);
  }
  void pack_b(std::int64_t panel) const {
    const std::int64_t j = panel * lanes.NR;
    pack(b.data + (first + j) * b.column + from * b.row, b.column, b.row,
         std::min<std::int64_t>(lanes.NR, columns - j), lanes.NR, k, packed_b + j * k);
  }
  void tile(std::int64_t ia, std::int64_t jb) const;
};

void Pass::tile(std::int64_t ia, std::int64_t jb) const {
  const std::int64_t i = ia * MR();
  const std::int64_t j = first + jb * lanes.NR;
  const std::int64_t rows = std::min(MR(), shape.rows - i);
  const std::int64_t wide = std::min<std::int64_t>(lanes.NR, first + columns - j);
  if (shape.symmetric && i + rows <= j) return;  // above the diagonal
  const std::int64_t tall = height(ia);
  const auto run = lanes.tile[tall / lanes.width - 1];
  const double* pa = packed_a + i * k;
  const double* pb = packed_b + jb * lanes.NR * k;
  double* at = c + i + j * shape.ld;
  if (rows == tall && wide == lanes.NR) return run(pa, pb, k, at, shape.ld, mode);
  // An edge: a whole tile beside, of which the part inside C is copied.
  double edge[MOST_HEIGHT * MOST_NR];
  const auto bytes = static_cast<std::size_t>(rows) * sizeof(double);
  if (mode != GEMM_SET) {
    std::fill_n(edge, tall * lanes.NR, 0.0);
    for (std::int64_t q = 0; q < wide; ++q) std::memcpy(edge + q * tall, at + q * shape.ld, bytes);
  }
  run(pa, pb, k, edge, tall, mode);
  for (std::int64_t q = 0; q < wide; ++q) std::memcpy(at + q * shape.ld, edge + q * tall, bytes);
}

// Part s of n things cut into `parts`.
struct Range {
  std::int64_t begin, end;
};
Range share(std::int64_t n, std::int64_t parts, std::int64_t s) {
  return {n * s / parts, n * (s + 1) / parts};
}

void run_pass(const Pass& pass, bool pack_first, bool threads) {
  const std::int64_t na = pass.a_panels();
  const std::int64_t nb = pass.b_panels();
  const std::int64_t ga = (na + A_GROUP - 1) / A_GROUP;
  const std::int64_t gb = (nb + B_GROUP - 1) / B_GROUP;
  const std::int64_t packing = pack_first ? ga : 0;
  const auto pack_section = [&](int section) {
    if (section < packing) {
      const Range r = share(na, ga, section);
      for (std::int64_t p = r.begin; p < r.end; ++p) pass.pack_a(p);
    } else {
      const Range r = share(nb, gb, section - packing);
      for (std::int64_t p = r.begin; p < r.end; ++p) pass.pack_b(p);
    }
  };
  const auto tile_section = [&](int section) {
    // The many groups of B alternate between the threads, so that none has a panel of A more.
    const Range ra = share(na, ga, section / gb);
    const Range rb = share(nb, gb, section % gb);
    for (std::int64_t ia = ra.begin; ia < ra.end; ++ia) {
      for (std::int64_t jb = rb.begin; jb < rb.end; ++jb) pass.tile(ia, jb);
    }
  };
  if (threads) {
    parallel_sections(static_cast<int>(packing + gb), pack_section);
    parallel_sections(static_cast<int>(ga * gb), tile_section);
    return;
  }
  for (int s = 0; s < static_cast<int>(packing + gb); ++s) pack_section(s);
  for (int s = 0; s < static_cast<int>(ga * gb); ++s) tile_section(s);
}

void mirror(double* c, std::int64_t n, std::int64_t ld) {
  constexpr std::int64_t BLOCK = 32;
  for (std::int64_t j0 = 0; j0 < n; j0 += BLOCK) {
    for (std::int64_t i0 = j0; i0 < n; i0 += BLOCK) {
      for (std::int64_t j = j0; j < std::min(j0 + BLOCK, n); ++j) {
        for (std::int64_t i = std::max(i0, j + 1); i < std::min(i0 + BLOCK, n); ++i) {
          c[j + i * ld] = c[i + j * ld];
        }
      }
    }
  }
}

}  // namespace

std::int64_t DGMULT_words(std::int64_t rows, std::int64_t columns, std::int64_t inner) {
  const std::int64_t k = pass_length(inner);
  return k * (round_up(rows, MOST_HEIGHT) + round_up(std::min(columns, SPAN), MOST_NR)) +
         2 * ALIGNMENT;
}

bool DGMULT(const Strided& a, const Strided& b, double* c, const GemmShape& shape,
            std::span<double> work) {
  if (shape.inner == 0) {
    if (shape.mode != GEMM_SET) return true;
    for (std::int64_t j = 0; j < shape.columns; ++j) {
      std::fill_n(c + j * shape.ld, shape.rows, 0.0);
    }
    return true;
  }
  // One column: no packing, column after column of A.
  if (shape.columns == 1 && a.row == 1 && shape.mode != GEMM_TAKE) {
    if (shape.mode == GEMM_SET) std::fill_n(c, shape.rows, 0.0);
    constexpr std::int64_t STRIP = 2048;  // rows that stay in the first cache
    for (std::int64_t i = 0; i < shape.rows; i += STRIP) {
      const std::int64_t n = std::min(STRIP, shape.rows - i);
      gemm_lanes().add_columns(a.data + i, a.column, b.data, b.row, shape.inner, n, c + i);
      if (stop_requested()) return false;
    }
    return true;
  }
  double* room = work.data();
  const auto odd = reinterpret_cast<std::uintptr_t>(room) / sizeof(double) % ALIGNMENT;
  if (odd != 0) room += ALIGNMENT - static_cast<std::int64_t>(odd);
  const std::int64_t length = pass_length(shape.inner);
  const GemmLanes& lanes = gemm_lanes();
  Pass pass{.lanes = lanes,
            .a = a,
            .b = b,
            .shape = shape,
            .c = c,
            .packed_a = room,
            .packed_b = room + round_up(length * round_up(shape.rows, lanes.width), ALIGNMENT)};
  const bool threads = shape.rows * shape.columns >= THREADED / shape.inner && workers() > 1;
  for (pass.from = 0; pass.from < shape.inner; pass.from += length) {
    pass.k = std::min(length, shape.inner - pass.from);
    pass.mode = pass.from == 0 ? shape.mode : shape.mode == GEMM_TAKE ? GEMM_TAKE : GEMM_ADD;
    for (pass.first = 0; pass.first < shape.columns; pass.first += SPAN) {
      pass.columns = std::min(SPAN, shape.columns - pass.first);
      run_pass(pass, pass.first == 0, threads);
      if (stop_requested()) return false;
    }
  }
  if (shape.symmetric && shape.mirror) mirror(c, shape.rows, shape.ld);
  return true;
}

void transpose(const double* a, std::int64_t rows, std::int64_t columns, double* b) {
  constexpr std::int64_t BLOCK = 16;
  for (std::int64_t j0 = 0; j0 < columns; j0 += BLOCK) {
    const std::int64_t j1 = std::min(j0 + BLOCK, columns);
    for (std::int64_t i0 = 0; i0 < rows; i0 += BLOCK) {
      const std::int64_t i1 = std::min(i0 + BLOCK, rows);
      for (std::int64_t i = i0; i < i1; ++i) {
        for (std::int64_t j = j0; j < j1; ++j) b[j + i * columns] = a[i + j * rows];
      }
    }
  }
}

}  // namespace korvel
