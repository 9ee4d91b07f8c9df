#include "expr/kernels/symmetric_eigen.h"

#include <algorithm>
#include <cmath>

#include "expr/kernels/vector_lanes.h"

namespace korvel {
namespace {

constexpr double EPS = 0x1p-52;
// Sweeps whose rotations are gathered before the vectors feel them: by then a panel of rows stays
// in the cache while all of them pass over it.
constexpr int MOST_SWEEPS = 32;
constexpr std::int64_t PANEL = 128;  // rows of a panel

struct SweepRange {
  int first = 0;  // columns first..last are rotated, from the last pair to the first
  int last = 0;
  std::int64_t place = 0;  // of its first rotation in the gathered ones
};

struct Ql {
  double* z;  // null: values only
  std::int64_t n;
  double* d;
  double* e;       // e[i] couples d[i] and d[i+1]
  double* cosine;  // gathered rotations
  double* sine;
  const VectorLanes& lanes;
  SweepRange sweeps[MOST_SWEEPS] = {};
  int count = 0;
  std::int64_t used = 0;

  int block_end(int l) const;
  void sweep(int l, int m);
  void apply();
};

// Last row of the unreduced block that begins with row l.
int Ql::block_end(int l) const {
  int m = l;
  for (; m + 1 < n; ++m) {
    if (std::fabs(e[m]) <= EPS * (std::fabs(d[m]) + std::fabs(d[m + 1]))) break;
  }
  return m;
}

// One QL step on rows l..m with Wilkinson's shift.
void Ql::sweep(int l, int m) {
  double g = (d[l + 1] - d[l]) / (2.0 * e[l]);
  g = d[m] - d[l] + e[l] / (g + std::copysign(std::hypot(g, 1.0), g));
  double s = 1.0;
  double c = 1.0;
  double p = 0.0;
  const std::int64_t place = used;
  int i = m - 1;
  for (; i >= l; --i) {
    const double f = s * e[i];
    const double b = c * e[i];
    double r = std::hypot(f, g);
    e[i + 1] = r;
    if (r == 0.0) {
      // The block falls apart here; the next step begins anew.
      d[i + 1] -= p;
      e[m] = 0.0;
      break;
    }
    s = f / r;
    c = g / r;
    g = d[i + 1] - p;
    r = (d[i] - g) * s + 2.0 * c * b;
    p = s * r;
    d[i + 1] = g + p;
    g = c * r - b;
    cosine[used] = c;
    sine[used] = -s;
    ++used;
  }
  if (i < l) {
    d[l] -= p;
    e[l] = g;
    e[m] = 0.0;
  }
  if (z == nullptr) {
    used = 0;
    return;
  }
  sweeps[count++] = {i + 1, m, place};
  if (count == MOST_SWEEPS) apply();
}

void Ql::apply() {
  for (std::int64_t from = 0; from < n; from += PANEL) {
    const std::int64_t rows = std::min(PANEL, n - from);
    const auto column = [&](int j) { return z + n * j + from; };
    for (int k = 0; k < count; ++k) {
      const double* c = cosine + sweeps[k].place;
      const double* s = sine + sweeps[k].place;
      int i = sweeps[k].last - 1;
      for (; i > sweeps[k].first; i -= 2, c += 2, s += 2) {
        lanes.rotate_two(c, s, rows, column(i - 1), column(i), column(i + 1));
      }
      if (i == sweeps[k].first) lanes.rotate(*c, *s, rows, column(i), column(i + 1));
    }
  }
  count = 0;
  used = 0;
}

// Reduces the lower triangle to d and e; column i keeps the vector of reflection i below the
// diagonal, tau[i] its factor: H = I - tau v v'.
void tridiagonalise(double* a, std::int64_t n, double* d, double* e, double* tau, double* p,
                    const VectorLanes& lanes) {
  for (std::int64_t i = 0; i < n; ++i) {
    d[i] = a[n * i + i];
    if (i + 1 >= n) break;
    double* v = a + n * i + i + 1;
    const std::int64_t m = n - i - 1;
    const double S = m > 1 ? lanes.dot(v + 1, v + 1, m - 1) : 0.0;
    tau[i] = 0.0;
    e[i] = v[0];
    if (!(S > 0.0)) continue;
    const double length = std::sqrt(S + v[0] * v[0]);
    e[i] = v[0] < 0.0 ? length : -length;
    v[0] -= e[i];
    tau[i] = -1.0 / (e[i] * v[0]);
    // p = tau A v from the lower triangle.
    std::fill_n(p, m, 0.0);
    double* const corner = v + n;  // element (i+1, i+1)
    for (std::int64_t j = 0; j < m; ++j) {
      double* const x = corner + n * j + j;
      p[j] += x[0] * v[j] + lanes.add_dot(v[j], x + 1, v + j + 1, m - j - 1, p + j + 1);
    }
    for (std::int64_t j = 0; j < m; ++j) p[j] *= tau[i];
    // A - v w' - w v' with w = p - (tau/2)(p'v) v.
    lanes.add(-0.5 * tau[i] * lanes.dot(p, v, m), v, m, p);
    for (std::int64_t j = 0; j < m; ++j) {
      lanes.add_two(-p[j], v + j, -v[j], p + j, m - j, corner + n * j + j);
    }
  }
}

// The product of the reflections, in place: the vector of reflection i moves to column i+1.
void form_vectors(double* a, std::int64_t n, const double* tau, const VectorLanes& lanes) {
  for (std::int64_t j = n - 1; j > 0; --j) {
    std::copy(a + n * (j - 1) + j, a + n * j, a + n * j + j);
    std::fill(a + n * j, a + n * j + j, 0.0);
  }
  std::fill(a, a + n, 0.0);
  a[0] = 1.0;
  for (std::int64_t j = n - 1; j > 0; --j) {
    double* v = a + n * j + j;
    const std::int64_t m = n - j;
    const double t = tau[j - 1];
    for (std::int64_t k = j + 1; k < n && t != 0.0; ++k) {
      double* y = a + n * k + j;
      lanes.add(-t * lanes.dot(v, y, m), v, m, y);
    }
    const double head = t == 0.0 ? 0.0 : t * v[0];
    for (std::int64_t i = 0; i < m; ++i) v[i] *= -head;
    v[0] += 1.0;
  }
}

}  // namespace

std::int64_t symmetric_eigen_words(std::int64_t n) { return (5 + std::int64_t{2} * MOST_SWEEPS) * n; }

int symmetric_eigen(double* a, int n, bool vectors, std::span<double> values,
                    std::span<double> work) {
  const VectorLanes& lanes = vector_lanes();
  const std::int64_t order = n;
  // 1. A power of two brings the largest element near 1, so that no square leaves the range.
  double largest = 0.0;
  for (std::int64_t j = 0; j < order; ++j) {
    for (std::int64_t i = j; i < order; ++i) {
      const double x = std::fabs(a[order * j + i]);
      if (!std::isfinite(x)) return -1;
      largest = std::max(largest, x);
    }
  }
  const int exponent = largest > 0.0 ? std::clamp(std::ilogb(largest), -1020, 1020) : 0;
  const double scale = std::ldexp(1.0, -exponent);
  for (std::int64_t k = 0; k < order * order; ++k) a[k] *= scale;
  // 2. Tridiagonal form, its values, the vectors.
  double* const d = values.data();
  double* const e = work.data();
  double* const tau = e + order;
  double* const p = tau + order;
  double* const rotations = p + order;
  tridiagonalise(a, order, d, e, tau, p, lanes);
  if (vectors) form_vectors(a, order, tau, lanes);
  if (n > 0) e[n - 1] = 0.0;
  Ql ql{
      vectors ? a : nullptr, order, d, e, rotations, rotations + (MOST_SWEEPS + 1) * order, lanes};
  for (int l = 0; l < n; ++l) {
    for (int iteration = 0;; ++iteration) {
      const int m = ql.block_end(l);
      if (m == l) break;
      if (iteration == QL_ITERATIONS) return l + 1;
      ql.sweep(l, m);
    }
  }
  ql.apply();
  // 3. Ascending order.
  for (int i = 0; i + 1 < n; ++i) {
    const auto best = std::min_element(d + i, d + n) - d;
    if (best == i) continue;
    std::swap(d[i], d[best]);
    if (vectors) std::swap_ranges(a + order * i, a + order * (i + 1), a + order * best);
  }
  for (int i = 0; i < n; ++i) d[i] = std::ldexp(d[i], exponent);
  return 0;
}

}  // namespace korvel
