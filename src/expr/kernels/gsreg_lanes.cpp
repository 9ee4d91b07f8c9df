// Inner loops of the least-squares kernel, built once for each vector width.
#include "expr/kernels/gsreg_lanes.h"

#include "expr/kernels/exact_lanes.h"
#include "expr/kernels/lane_vectors.h"

namespace korvel::KORVEL_LANES {
namespace {

// Offset of (row, column), row >= column, both from 1, in a packed triangle.
std::ptrdiff_t place(std::ptrdiff_t row, std::ptrdiff_t column) {
  return row * (row - 1) / 2 + column - 1;
}

// Below this a sum of squares has lost its digits to underflow: the column counts as zero.
constexpr double NO_SQUARES = 1e-290;
double reciprocal(double S) { return S < NO_SQUARES ? 0.0 : 1.0 / S; }

double load_column(const double* src, const double* root, std::ptrdiff_t n, double* dst) {
  const std::ptrdiff_t whole = n & ~std::ptrdiff_t{7};
  Lane8 sum = lane_splat(0.0);
  const Lane8 one = lane_splat(1.0);
  for (std::ptrdiff_t i = 0; i < whole; i += 8) {
    Lane8 v = src != nullptr ? lane_load(src + i) : one;
    if (root != nullptr) v = v * lane_load(root + i);
    lane_store(dst + i, v);
    sum = sum + v;
  }
  if (whole == n) return lane_sum(sum);
  lane_store(dst + whole, lane_splat(0.0));
  for (std::ptrdiff_t i = whole; i < n; ++i) {
    const double v = src != nullptr ? src[i] : 1.0;
    dst[i] = root != nullptr ? v * root[i] : v;
  }
  return lane_sum(sum + lane_load(dst + whole));
}

double squares_about(const double* x, std::ptrdiff_t n, double mean, double* drift) {
  const std::ptrdiff_t whole = n & ~std::ptrdiff_t{7};
  const Lane8 m = lane_splat(mean);
  Lane8 squares = lane_splat(0.0);
  Lane8 sum = lane_splat(0.0);
  for (std::ptrdiff_t i = 0; i < whole; i += 8) {
    const Lane8 d = lane_load(x + i) - m;
    squares = squares + d * d;
    sum = sum + d;
  }
  double rest = 0.0;
  double rest_drift = 0.0;
  for (std::ptrdiff_t i = whole; i < n; ++i) {
    const double d = x[i] - mean;
    rest += d * d;
    rest_drift += d;
  }
  *drift = lane_sum(sum) + rest_drift;
  return lane_sum(squares) + rest;
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

// x -= r q for C columns and, in the same pass, the sums next x: next is the column that is taken
// from them afterwards. One read and one write of x a step instead of two and one.
template <int C>
void update(const double* q, const double* next, double* x, std::ptrdiff_t ld, std::ptrdiff_t rows,
            const double* r, double* out) {
  Lane8 sum[static_cast<std::size_t>(C)];
  Lane8 factor[static_cast<std::size_t>(C)];
  for (int c = 0; c < C; ++c) {
    sum[c] = lane_splat(0.0);
    factor[c] = lane_splat(r[c]);
  }
  for (std::ptrdiff_t i = 0; i < rows; i += 8) {
    const Lane8 v = lane_load(q + i);
    const Lane8 w = lane_load(next + i);
    for (int c = 0; c < C; ++c) {
      double* to = x + c * ld + i;
      const Lane8 fresh = lane_load(to) - factor[c] * v;
      lane_store(to, fresh);
      sum[c] = sum[c] + w * fresh;
    }
  }
  for (int c = 0; c < C; ++c) out[c] = lane_sum(sum[c]);
}

// x -= r q; returns the sum of squares of the new x.
double update_squares(const double* q, double* x, std::ptrdiff_t rows, double r) {
  const Lane8 factor = lane_splat(r);
  Lane8 sum = lane_splat(0.0);
  for (std::ptrdiff_t i = 0; i < rows; i += 8) {
    const Lane8 fresh = lane_load(x + i) - factor * lane_load(q + i);
    lane_store(x + i, fresh);
    sum = sum + fresh * fresh;
  }
  return lane_sum(sum);
}

void orthogonalise(double* a, int columns, std::ptrdiff_t ld, std::ptrdiff_t rows, double* factor) {
  double r[4];
  double out[4];
  double S;
  dots<1>(a, a, ld, rows, &S);
  factor[0] = S;
  double d = reciprocal(S);
  for (int k = 1; k < columns; k += 4) {
    const int c = columns - k < 4 ? columns - k : 4;
    const double* x = a + k * ld;
    if (c == 4)
      dots<4>(a, x, ld, rows, out);
    else if (c == 3)
      dots<3>(a, x, ld, rows, out);
    else if (c == 2)
      dots<2>(a, x, ld, rows, out);
    else
      dots<1>(a, x, ld, rows, out);
    for (int i = 0; i < c; ++i) factor[place(k + i + 1, 1)] = d * out[i];
  }
  for (int j = 0; j + 1 < columns; ++j) {
    const double* q = a + j * ld;
    double* next = a + (j + 1) * ld;
    S = update_squares(q, next, rows, factor[place(j + 2, j + 1)]);
    factor[place(j + 2, j + 2)] = S;
    d = reciprocal(S);
    for (int k = j + 2; k < columns; k += 4) {
      const int c = columns - k < 4 ? columns - k : 4;
      double* x = a + k * ld;
      for (int i = 0; i < c; ++i) r[i] = factor[place(k + i + 1, j + 1)];
      if (c == 4)
        update<4>(q, next, x, ld, rows, r, out);
      else if (c == 3)
        update<3>(q, next, x, ld, rows, r, out);
      else if (c == 2)
        update<2>(q, next, x, ld, rows, r, out);
      else
        update<1>(q, next, x, ld, rows, r, out);
      for (int i = 0; i < c; ++i) factor[place(k + i + 1, j + 2)] = d * out[i];
    }
  }
}

// Residuals and X'e are kept in twice the working precision.
double refine_block(const double* a, int K, std::ptrdiff_t ld, std::ptrdiff_t rows, const double* b,
                    const double* blo, double* e, double* g, double* glo) {
  const Lane8 splitter = lane_splat(SPLITTER);
  Lane8 sse = lane_splat(0.0);
  for (std::ptrdiff_t i = 0; i < rows; i += 8) {
    Lane8 s = lane_load(a + K * ld + i);
    Lane8 low = lane_splat(0.0);
    for (int k = 0; k < K; ++k) {
      const Lane8 x = lane_load(a + k * ld + i);
      const Lane8 minus_b = lane_splat(-b[k]);
      const Lane8 p = x * minus_b;
      const Lane8 error = product_error(p, split(x, splitter), split(minus_b, splitter));
      const Lane8 next = s + p;
      low = low + (sum_error(next, s, p) + (error - x * lane_splat(blo[k])));
      s = next;
    }
    const Lane8 high = s + low;
    lane_store(e + i, high);
    lane_store(e + rows + i, sum_error(high, s, low));
    sse = sse + high * high;
  }
  for (std::ptrdiff_t k = 0; k < K; ++k) {
    Lane8 s = lane_load(g + k * 8);
    Lane8 low = lane_load(glo + k * 8);
    for (std::ptrdiff_t i = 0; i < rows; i += 8) {
      const Lane8 x = lane_load(a + k * ld + i);
      const Lane8 high = lane_load(e + i);
      const Lane8 p = x * high;
      const Lane8 error = product_error(p, split(x, splitter), split(high, splitter));
      const Lane8 next = s + p;
      low = low + (sum_error(next, s, p) + (error + x * lane_load(e + rows + i)));
      s = next;
    }
    lane_store(g + k * 8, s);
    lane_store(glo + k * 8, low);
  }
  return lane_sum(sse);
}

void take_column(const double* x, double b, std::ptrdiff_t n, double* e) {
  const std::ptrdiff_t whole = n & ~std::ptrdiff_t{7};
  const Lane8 factor = lane_splat(b);
  for (std::ptrdiff_t i = 0; i < whole; i += 8) {
    const Lane8 p = x != nullptr ? factor * lane_load(x + i) : factor;
    lane_store(e + i, lane_load(e + i) - p);
  }
  for (std::ptrdiff_t i = whole; i < n; ++i) e[i] -= x != nullptr ? b * x[i] : b;
}

}  // namespace

const GsLanes& gs_lane_set() {
  static constexpr GsLanes set = {load_column, squares_about, orthogonalise, refine_block,
                                  take_column};
  return set;
}

}  // namespace korvel::KORVEL_LANES
