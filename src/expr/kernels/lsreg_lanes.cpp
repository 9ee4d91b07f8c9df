// Inner loops of moment matrices, built once for each vector width.
#include "expr/kernels/lsreg_lanes.h"

#include "expr/kernels/exact_lanes.h"
#include "expr/kernels/lane_vectors.h"

namespace korvel::KORVEL_LANES {
namespace {

double weighted_sum(const double* x, const double* w, std::ptrdiff_t n) {
  const std::ptrdiff_t whole = n & ~std::ptrdiff_t{7};
  Lane8 sum = lane_splat(0.0);
  for (std::ptrdiff_t i = 0; i < whole; i += 8) sum = sum + lane_load(x + i) * lane_load(w + i);
  double rest = 0.0;
  for (std::ptrdiff_t i = whole; i < n; ++i) rest += x[i] * w[i];
  return lane_sum(sum) + rest;
}

void centre(double* x, const double* root, double mean, std::ptrdiff_t n) {
  const std::ptrdiff_t whole = n & ~std::ptrdiff_t{7};
  const Lane8 m = lane_splat(mean);
  for (std::ptrdiff_t i = 0; i < whole; i += 8) {
    Lane8 v = lane_load(x + i) - m;
    if (root != nullptr) v = v * lane_load(root + i);
    lane_store(x + i, v);
  }
  if (whole == n) return;
  for (std::ptrdiff_t i = whole; i < whole + 8; ++i) {
    const double r = root != nullptr && i < n ? root[i] : 1.0;
    x[i] = i < n ? (x[i] - mean) * r : 0.0;
  }
}

// Sums q x for C columns x that stand ld apart.
template <int C>
void dots(const double* q, const double* x, std::ptrdiff_t ld, std::ptrdiff_t rows, double* out) {
  Lane8 sum[static_cast<std::size_t>(C)];
  for (int c = 0; c < C; ++c) sum[c] = lane_splat(0.0);
  for (std::ptrdiff_t i = 0; i < rows; i += 8) {
    const Lane8 v = lane_load(q + i);
    for (int c = 0; c < C; ++c) sum[c] = sum[c] + v * lane_load(x + c * ld + i);
  }
  for (int c = 0; c < C; ++c) out[c] = lane_sum(sum[c]);
}

void some_dots(int count, const double* q, const double* x, std::ptrdiff_t ld, std::ptrdiff_t rows,
               double* out) {
  if (count >= 4)
    dots<4>(q, x, ld, rows, out);
  else if (count == 3)
    dots<3>(q, x, ld, rows, out);
  else if (count == 2)
    dots<2>(q, x, ld, rows, out);
  else
    dots<1>(q, x, ld, rows, out);
}

void cross(const double* a, int columns, std::ptrdiff_t ld, std::ptrdiff_t rows, double* out) {
  double part[4];
  for (std::ptrdiff_t j = 0; j < columns; ++j) {
    for (std::ptrdiff_t i = j; i < columns; i += 4) {
      const int count = columns - i < 4 ? static_cast<int>(columns - i) : 4;
      some_dots(count, a + j * ld, a + i * ld, ld, rows, part);
      for (int c = 0; c < count; ++c) out[(i + c) * (i + c + 1) / 2 + j] += part[c];
    }
  }
}

void cross_pair(const double* a, const double* b, int columns, std::ptrdiff_t ld,
                std::ptrdiff_t rows, double* out) {
  double part[4];
  for (std::ptrdiff_t i = 0; i < columns; ++i) {
    for (std::ptrdiff_t j = 0; j < columns; j += 4) {
      const int count = columns - j < 4 ? static_cast<int>(columns - j) : 4;
      some_dots(count, a + i * ld, b + j * ld, ld, rows, part);
      for (int c = 0; c < count; ++c) out[i * columns + j + c] += part[c];
    }
  }
}

void cross_exact(const double* a, int columns, std::ptrdiff_t ld, std::ptrdiff_t rows, double* high,
                 double* low) {
  const Lane8 splitter = lane_splat(SPLITTER);
  for (std::ptrdiff_t i = 0; i < columns; ++i) {
    for (std::ptrdiff_t j = 0; j <= i; ++j) {
      const std::ptrdiff_t place = (i * (i + 1) / 2 + j) * 8;
      Lane8 s = lane_load(high + place);
      Lane8 rest = lane_load(low + place);
      for (std::ptrdiff_t t = 0; t < rows; t += 8) {
        const Lane8 x = lane_load(a + i * ld + t);
        const Lane8 y = lane_load(a + j * ld + t);
        const Lane8 p = x * y;
        const Lane8 error = product_error(p, split(x, splitter), split(y, splitter));
        const Lane8 next = s + p;
        rest = rest + (sum_error(next, s, p) + error);
        s = next;
      }
      lane_store(high + place, s);
      lane_store(low + place, rest);
    }
  }
}

}  // namespace

const LsLanes& ls_lane_set() {
  static constexpr LsLanes set = {weighted_sum, centre, cross, cross_pair, cross_exact};
  return set;
}

}  // namespace korvel::KORVEL_LANES
