#include "expr/kernels/svd.h"

#include <algorithm>
#include <cmath>

#include "expr/kernels/vector_lanes.h"

namespace korvel {
namespace {

struct Decomposition {
  double* a;
  std::int64_t rows;
  int n;
  std::int64_t ld;
  double* w;  // diagonal, then the singular values
  double* e;  // superdiagonal: e[i] stands between w[i-1] and w[i]
  double* v;  // null: not wanted
  bool left;
  double* row;  // n words
  double* t;    // rows words
  const VectorLanes& lanes;
  double norm = 0.0;

  double* u(int j) const { return a + ld * j; }
  double* right(int j) const { return v + std::int64_t{n} * j; }
  bool negligible(double x) const { return std::fabs(x) + norm == norm; }

  void bidiagonalise();
  void form_right() const;
  void form_left() const;
  void cancel(int l, int k) const;
  void sweep(int l, int k) const;
  bool diagonalise(int k) const;
  void sort() const;
};

// Householder reflections from the left and from the right in turn. The vectors stay in a: those of
// the left in the columns from the diagonal on, those of the right in the rows behind it.
void Decomposition::bidiagonalise() {
  e[0] = 0.0;
  for (int i = 0; i < n; ++i) {
    double* x = u(i);
    const std::int64_t m = rows - i;
    const double S = lanes.dot(x + i, x + i, m);
    w[i] = 0.0;
    if (S > 0.0) {
      w[i] = x[i] < 0.0 ? std::sqrt(S) : -std::sqrt(S);
      const double h = x[i] * w[i] - S;
      x[i] -= w[i];
      for (int j = i + 1; j < n; ++j) {
        lanes.add(lanes.dot(x + i, u(j) + i, m) / h, x + i, m, u(j) + i);
      }
    }
    norm = std::max(norm, std::fabs(w[i]) + std::fabs(e[i]));
    const int l = i + 1;
    if (l >= n) break;
    for (int k = l; k < n; ++k) row[k] = u(k)[i];
    const double T = lanes.dot(row + l, row + l, n - l);
    e[l] = 0.0;
    if (!(T > 0.0)) continue;
    e[l] = row[l] < 0.0 ? std::sqrt(T) : -std::sqrt(T);
    const double h = row[l] * e[l] - T;
    row[l] -= e[l];
    u(l)[i] = row[l];
    std::fill_n(t, rows - l, 0.0);
    for (int k = l; k < n; ++k) lanes.add(row[k] / h, u(k) + l, rows - l, t);
    for (int k = l; k < n; ++k) lanes.add(row[k], t, rows - l, u(k) + l);
  }
}

void Decomposition::form_right() const {
  for (int i = n - 1; i >= 0; --i) {
    double* z = right(i);
    std::fill_n(z, n, 0.0);
    z[i] = 1.0;
    const int l = i + 1;
    if (l >= n || e[l] == 0.0) continue;
    for (int k = l; k < n; ++k) row[k] = u(k)[i];
    // h of the reflection is row[l] e[l].
    for (int j = l; j < n; ++j) {
      double* y = right(j);
      lanes.add(lanes.dot(row + l, y + l, n - l) / (row[l] * e[l]), row + l, n - l, y + l);
    }
  }
}

void Decomposition::form_left() const {
  for (int i = n - 1; i >= 0; --i) {
    double* x = u(i);
    const std::int64_t m = rows - i;
    for (int j = i + 1; j < n; ++j) u(j)[i] = 0.0;
    if (w[i] == 0.0) {
      std::fill(x, x + rows, 0.0);
      x[i] = 1.0;
      continue;
    }
    for (int j = i + 1; j < n; ++j) {
      lanes.add(lanes.dot(x + i, u(j) + i, m) / (x[i] * w[i]), x + i, m, u(j) + i);
    }
    const double scale = 1.0 / w[i];
    for (std::int64_t k = i; k < rows; ++k) x[k] *= scale;
    x[i] += 1.0;
  }
}

// e[l] goes where w[l-1] is negligible.
void Decomposition::cancel(int l, int k) const {
  double c = 0.0;
  double s = 1.0;
  for (int i = l; i <= k; ++i) {
    const double f = s * e[i];
    e[i] *= c;
    if (negligible(f)) return;
    const double g = w[i];
    w[i] = std::hypot(f, g);
    c = g / w[i];
    s = -f / w[i];
    if (left) lanes.rotate(c, s, rows, u(l - 1), u(i));
  }
}

// One implicit QR step with a shift from the bottom 2 by 2 minor.
void Decomposition::sweep(int l, int k) const {
  const double z = w[k];
  double x = w[l];
  double y = w[k - 1];
  double g = e[k - 1];
  double h = e[k];
  double f = ((y - z) * (y + z) + (g - h) * (g + h)) / (2.0 * h * y);
  g = std::hypot(f, 1.0);
  f = ((x - z) * (x + z) + h * (y / (f + std::copysign(g, f)) - h)) / x;
  double c = 1.0;
  double s = 1.0;
  for (int j = l; j < k; ++j) {
    const int i = j + 1;
    g = e[i];
    y = w[i];
    h = s * g;
    g = c * g;
    double length = std::hypot(f, h);
    e[j] = length;
    c = f / length;
    s = h / length;
    f = x * c + g * s;
    g = g * c - x * s;
    h = y * s;
    y *= c;
    if (v != nullptr) lanes.rotate(c, s, n, right(j), right(i));
    length = std::hypot(f, h);
    w[j] = length;
    if (length != 0.0) {
      c = f / length;
      s = h / length;
    }
    f = c * g + s * y;
    x = c * y - s * g;
    if (left) lanes.rotate(c, s, rows, u(j), u(i));
  }
  e[l] = 0.0;
  e[k] = f;
  w[k] = x;
}

// Finds value k. False when the iterations run out.
bool Decomposition::diagonalise(int k) const {
  for (int iteration = 1;; ++iteration) {
    int l = k;
    bool split = false;
    for (; l > 0; --l) {
      split = negligible(e[l]);
      if (split || negligible(w[l - 1])) break;
    }
    if (l > 0 && !split) cancel(l, k);
    if (l == k) {
      if (w[k] < 0.0) {
        w[k] = -w[k];
        if (v != nullptr) std::for_each_n(right(k), n, [](double& x) { x = -x; });
      }
      return true;
    }
    if (iteration > SVD_ITERATIONS) return false;
    sweep(l, k);
  }
}

void Decomposition::sort() const {
  for (int i = 0; i + 1 < n; ++i) {
    const int best = static_cast<int>(std::max_element(w + i, w + n) - w);
    if (best == i) continue;
    std::swap(w[i], w[best]);
    if (v != nullptr) std::swap_ranges(right(i), right(i) + n, right(best));
    if (left) std::swap_ranges(u(i), u(i) + rows, u(best));
  }
}

}  // namespace

int SVD(double* a, std::int64_t rows, int columns, std::int64_t ld, std::span<double> values,
        double* v, bool left, std::span<double> work) {  // NOLINT: v is written by d
  if (columns < 1) return 0;
  // 1. A power of two brings the largest element near 1, so that no square leaves the range.
  double largest = 0.0;
  for (int j = 0; j < columns; ++j) {
    for (std::int64_t i = 0; i < rows; ++i) {
      const double x = std::fabs(a[ld * j + i]);
      if (!std::isfinite(x)) return -1;
      largest = std::max(largest, x);
    }
  }
  const int exponent = largest > 0.0 ? std::clamp(std::ilogb(largest), -1020, 1020) : 0;
  const double scale = std::ldexp(1.0, -exponent);
  for (int j = 0; j < columns; ++j) {
    for (std::int64_t i = 0; i < rows; ++i) a[ld * j + i] *= scale;
  }
  // 2. The decomposition.
  double* const e = work.data();
  double* const row = e + columns;
  Decomposition d{a,   rows,          columns,       ld, values.data(), e, v, left,
                  row, row + columns, vector_lanes()};
  d.bidiagonalise();
  if (v != nullptr) d.form_right();
  if (left) d.form_left();
  for (int k = columns - 1; k >= 0; --k) {
    if (!d.diagonalise(k)) return k + 1;
  }
  d.sort();
  for (int j = 0; j < columns; ++j) {
    values[static_cast<std::size_t>(j)] = std::ldexp(values[static_cast<std::size_t>(j)], exponent);
  }
  return 0;
}

}  // namespace korvel
