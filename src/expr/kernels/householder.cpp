#include "expr/kernels/householder.h"

#include <algorithm>
#include <cmath>

#include "expr/kernels/vector_lanes.h"
#include "platform/cpu.h"

namespace korvel {

namespace baseline {
const VectorLanes& vector_lane_set();
}
#if defined(__x86_64__)
namespace avx2 {
const VectorLanes& vector_lane_set();
}
namespace avx512 {
const VectorLanes& vector_lane_set();
}
#endif

const VectorLanes& vector_lanes() {
#if defined(__x86_64__)
  if (cpu_lanes() == Lanes::avx512) return avx512::vector_lane_set();
  if (cpu_lanes() == Lanes::avx2) return avx2::vector_lane_set();
#endif
  return baseline::vector_lane_set();
}

namespace {

// Turns column j, whose sum of squares from the diagonal on is S > 0, into its reflection vector.
void make_reflection(const HouseholderMatrix& x, int j, double S) {
  double& head = x.column(j)[j];
  x.alpha[j] = head < 0.0 ? std::sqrt(S) : -std::sqrt(S);
  head -= x.alpha[j];
}

// y := (I - v v' / (|v|^2 / 2)) y below row j; |v|^2 / 2 = -alpha v(j).
void reflect(const HouseholderMatrix& x, int j, double* y, const VectorLanes& lanes) {
  const double* v = x.column(j) + j;
  const std::int64_t n = x.rows - j;
  const double scale = x.alpha[j] * v[0];
  if (scale == 0.0) return;
  lanes.add(lanes.dot(v, y + j, n) / scale, v, n, y + j);
}

}  // namespace

double hh_squares(const double* x, std::int64_t n) { return vector_lanes().dot(x, x, n); }

int HHDCMP(const HouseholderMatrix& x, std::span<double> squares, std::span<int> order,
           std::span<double> work) {
  const VectorLanes& lanes = vector_lanes();
  const auto columns = static_cast<std::size_t>(x.columns);
  // What is left of each column's sum of squares, and what it was when last summed afresh.
  const std::span<double> left = work.first(columns);
  const std::span<double> summed = work.subspan(columns, columns);
  for (std::size_t k = 0; k < columns; ++k) {
    order[k] = static_cast<int>(k);
    left[k] = summed[k] = squares[k];
  }
  for (int j = 0; j < x.columns; ++j) {
    const auto place = static_cast<std::size_t>(j);
    // 1. The longest remaining column comes forward.
    const auto best =
        static_cast<std::size_t>(std::max_element(left.begin() + j, left.end()) - left.begin());
    if (best != place) {
      std::swap_ranges(x.column(j), x.column(j) + x.rows, x.column(static_cast<int>(best)));
      std::swap(order[place], order[best]);
      std::swap(left[place], left[best]);
      std::swap(summed[place], summed[best]);
      std::swap(squares[place], squares[best]);
    }
    // 2. Its reflection. `left` was kept by subtraction: only a fresh sum tells a dependent column.
    const double S = hh_squares(x.column(j) + j, x.rows - j);
    if (!(S > HH_DEPENDENT * squares[place])) return j + 1;
    make_reflection(x, j, S);
    // 3. The columns behind it, and what is left of them. A length that has lost half its digits is
    // summed again.
    for (int k = j + 1; k < x.columns; ++k) {
      const auto c = static_cast<std::size_t>(k);
      double* y = x.column(k);
      reflect(x, j, y, lanes);
      left[c] -= y[j] * y[j];
      if (left[c] <= 1e-8 * summed[c]) {
        left[c] = summed[c] = hh_squares(y + j + 1, x.rows - j - 1);
      }
    }
  }
  return 0;
}

void HHDCMP(const HouseholderMatrix& x) {
  const VectorLanes& lanes = vector_lanes();
  for (int j = 0; j < x.columns; ++j) {
    make_reflection(x, j, hh_squares(x.column(j) + j, x.rows - j));
    for (int k = j + 1; k < x.columns; ++k) reflect(x, j, x.column(k), lanes);
  }
}

void hh_transpose(const HouseholderMatrix& x, double* y) {
  for (int j = 0; j < x.columns; ++j) reflect(x, j, y, vector_lanes());
}

void hh_product(const HouseholderMatrix& x, double* y) {
  for (int j = x.columns - 1; j >= 0; --j) reflect(x, j, y, vector_lanes());
}

void hh_columns(const HouseholderMatrix& x) {
  const VectorLanes& lanes = vector_lanes();
  for (int j = x.columns - 1; j >= 0; --j) {
    double* v = x.column(j);
    for (int k = j + 1; k < x.columns; ++k) reflect(x, j, x.column(k), lanes);
    // Column j: the reflection of the unit vector.
    const double scale = 1.0 / x.alpha[j];
    for (std::int64_t i = j; i < x.rows; ++i) v[i] *= scale;
    v[j] += 1.0;
    std::fill(v, v + j, 0.0);
  }
}

double HHSOLV(const HouseholderMatrix& x, std::span<const int> order, double* y,
              std::span<double> Qty, std::span<double> b) {
  hh_transpose(x, y);
  const double SSE = hh_squares(y + x.columns, x.rows - x.columns);
  std::copy_n(y, x.columns, Qty.begin());
  for (int j = x.columns - 1; j >= 0; --j) {
    double value = y[j];
    for (int k = j + 1; k < x.columns; ++k) value -= x.column(k)[j] * y[k];
    y[j] = value / x.alpha[j];
    b[static_cast<std::size_t>(order[static_cast<std::size_t>(j)])] = y[j];
  }
  std::fill_n(y, x.columns, 0.0);
  hh_product(x, y);
  return SSE;
}

}  // namespace korvel
