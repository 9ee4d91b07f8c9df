#include "expr/kernels/general_eigen.h"

#include <algorithm>
#include <cmath>
#include <complex>

#include "engine/output.h"
#include "expr/kernels/vector_lanes.h"

namespace korvel {
namespace {

constexpr double EPS = 0x1p-52;

// A square matrix by columns, from 0.
struct Square {
  double* data;
  std::int64_t n;
  double& operator()(std::int64_t i, std::int64_t j) const { return data[i + j * n]; }
  double* column(std::int64_t j) const { return data + j * n; }
};

// Scales rows and columns by powers of two until their lengths are about equal; exact. scale: what
// the rows of the eigenvectors are to be multiplied by.
void balance(const Square& a, std::span<double> scale) {
  std::ranges::fill(scale, 1.0);
  for (bool again = true; again;) {
    again = false;
    for (std::int64_t i = 0; i < a.n; ++i) {
      double c = 0.0;
      double r = 0.0;
      for (std::int64_t j = 0; j < a.n; ++j) {
        if (j == i) continue;
        c += std::fabs(a(j, i));
        r += std::fabs(a(i, j));
      }
      if (!(c > 0.0 && r > 0.0 && std::isfinite(c) && std::isfinite(r))) continue;
      double f = 1.0;
      const double s = c + r;
      for (; c < r / 2.0 && f < 0x1p500; c *= 4.0) f *= 2.0;
      for (; c >= r * 2.0 && f > 0x1p-500; c /= 4.0) f /= 2.0;
      if ((c + r) / f >= 0.95 * s) continue;
      const double total = scale[static_cast<std::size_t>(i)] * f;
      if (!(total > 0x1p-500 && total < 0x1p500)) continue;
      scale[static_cast<std::size_t>(i)] = total;
      for (std::int64_t j = 0; j < a.n; ++j) {
        a(i, j) /= f;
        a(j, i) *= f;
      }
      again = true;
    }
  }
}

// Reduces a to Hessenberg form; z, when wanted, becomes the product of the reflections.
bool hessenberg(const Square& a, double* z, std::span<double> work) {
  const std::int64_t n = a.n;
  const VectorLanes& lanes = vector_lanes();
  const auto order = static_cast<std::size_t>(n);
  const std::span<double> diagonal = work.first(order);  // first elements of the reflections
  double* w = work.data() + n;
  for (std::int64_t m = 1; m + 1 < n; ++m) {
    // Column m-1 below row m: x -> (g, 0, ...), reflection I - u u'/h on rows and columns m..
    double* u = a.column(m - 1) + m;
    double size = 0.0;
    for (std::int64_t i = 0; i < n - m; ++i) size = std::max(size, std::fabs(u[i]));
    double& first = diagonal[static_cast<std::size_t>(m)];
    first = 0.0;
    if (size == 0.0) continue;
    for (std::int64_t i = 0; i < n - m; ++i) u[i] /= size;
    const double square = lanes.dot(u, u, n - m);
    const double g = -std::copysign(std::sqrt(square), u[0]);
    const double h = square - u[0] * g;
    u[0] -= g;
    for (std::int64_t j = m; j < n; ++j) {
      double* y = a.column(j) + m;
      lanes.add(-lanes.dot(u, y, n - m) / h, u, n - m, y);
    }
    std::fill_n(w, n, 0.0);
    for (std::int64_t j = m; j < n; ++j) lanes.add(u[j - m], a.column(j), n, w);
    for (std::int64_t j = m; j < n; ++j) lanes.add(-u[j - m] / h, w, n, a.column(j));
    first = u[0];
    u[0] = size * g;
    if (stop_requested()) return false;
  }
  if (z != nullptr) {
    const Square q{z, n};
    std::fill_n(z, n * n, 0.0);
    for (std::int64_t i = 0; i < n; ++i) q(i, i) = 1.0;
    for (std::int64_t m = n - 2; m >= 1; --m) {
      const double first = diagonal[static_cast<std::size_t>(m)];
      if (first == 0.0) continue;
      double* u = a.column(m - 1) + m;
      const double kept = u[0];
      u[0] = first;
      const double h = lanes.dot(u, u, n - m) / 2.0;
      for (std::int64_t j = m; j < n; ++j) {
        double* y = q.column(j) + m;
        lanes.add(-lanes.dot(u, y, n - m) / h, u, n - m, y);
      }
      u[0] = kept;
    }
  }
  for (std::int64_t j = 0; j + 2 < n; ++j) std::fill_n(a.column(j) + j + 2, n - j - 2, 0.0);
  return true;
}

// The QR iteration on a Hessenberg matrix.
struct Qr {
  Square h;
  double* z;  // null: values only
  std::span<double> re, im;
  double norm = 0.0;
  double shift = 0.0;  // taken off the diagonal by exceptional shifts

  int run();
  std::int64_t small_subdiagonal(std::int64_t high) const;
  void one(std::int64_t high) const;
  void pair(std::int64_t high) const;
  void sweep(std::int64_t low, std::int64_t high, double x, double y, double w) const;
};

// First row of the block that ends with row `high`: its subdiagonal element counts as zero.
std::int64_t Qr::small_subdiagonal(std::int64_t high) const {
  std::int64_t l = high;
  for (; l > 0; --l) {
    double s = std::fabs(h(l - 1, l - 1)) + std::fabs(h(l, l));
    if (s == 0.0) s = norm;
    if (std::fabs(h(l, l - 1)) <= EPS * s) break;
  }
  return l;
}

void Qr::one(std::int64_t high) const {
  h(high, high) += shift;
  re[static_cast<std::size_t>(high)] = h(high, high);
  im[static_cast<std::size_t>(high)] = 0.0;
}

// The two values of the last block; real ones are rotated apart.
void Qr::pair(std::int64_t high) const {
  const std::int64_t n = h.n;
  const std::int64_t k = high - 1;
  const auto place = static_cast<std::size_t>(k);
  const double w = h(high, k) * h(k, high);
  double p = (h(k, k) - h(high, high)) / 2.0;
  double q = p * p + w;
  double root = std::sqrt(std::fabs(q));
  h(high, high) += shift;
  h(k, k) += shift;
  const double x = h(high, high);
  if (q < 0.0) {
    re[place] = re[place + 1] = x + p;
    im[place] = root;
    im[place + 1] = -root;
    return;
  }
  root = p + std::copysign(root, p);
  re[place] = re[place + 1] = x + root;
  if (root != 0.0) re[place + 1] = x - w / root;
  im[place] = im[place + 1] = 0.0;
  if (z == nullptr) return;
  const double c = h(high, k);
  const double s = std::fabs(c) + std::fabs(root);
  p = c / s;
  q = root / s;
  const double r = std::hypot(p, q);
  p /= r;
  q /= r;
  for (std::int64_t j = k; j < n; ++j) {  // rows
    const double t = h(k, j);
    h(k, j) = q * t + p * h(high, j);
    h(high, j) = q * h(high, j) - p * t;
  }
  vector_lanes().rotate(q, p, high + 1, h.column(k), h.column(high));
  vector_lanes().rotate(q, p, n, z + k * n, z + high * n);
}

// A double step on rows low..high with the shifts of x + y and x y - w.
void Qr::sweep(std::int64_t low, std::int64_t high, double x, double y, double w) const {
  const std::int64_t n = h.n;
  // Two small subdiagonal elements one behind the other: the step may begin between them.
  double p = 0.0;
  double q = 0.0;
  double r = 0.0;
  std::int64_t m = high - 2;
  for (;; --m) {
    const double zz = h(m, m);
    const double a = x - zz;
    const double b = y - zz;
    p = (a * b - w) / h(m + 1, m) + h(m, m + 1);
    q = h(m + 1, m + 1) - zz - a - b;
    r = h(m + 2, m + 1);
    const double s = std::fabs(p) + std::fabs(q) + std::fabs(r);
    p /= s;
    q /= s;
    r /= s;
    if (m == low) break;
    const double left = std::fabs(h(m, m - 1)) * (std::fabs(q) + std::fabs(r));
    const double right =
        std::fabs(p) * (std::fabs(h(m - 1, m - 1)) + std::fabs(zz) + std::fabs(h(m + 1, m + 1)));
    if (left <= EPS * right) break;
  }
  for (std::int64_t i = m + 2; i <= high; ++i) {
    h(i, i - 2) = 0.0;
    if (i > m + 2) h(i, i - 3) = 0.0;
  }
  const std::int64_t first_row = z != nullptr ? 0 : low;
  const std::int64_t last_column = z != nullptr ? n - 1 : high;
  for (std::int64_t k = m; k < high; ++k) {
    const bool three = k != high - 1;
    double size = 0.0;
    if (k != m) {
      p = h(k, k - 1);
      q = h(k + 1, k - 1);
      r = three ? h(k + 2, k - 1) : 0.0;
      size = std::fabs(p) + std::fabs(q) + std::fabs(r);
      if (size == 0.0) continue;
      p /= size;
      q /= size;
      r /= size;
    }
    const double s = std::copysign(std::sqrt(p * p + q * q + r * r), p);
    if (k != m) {
      h(k, k - 1) = -s * size;
    } else if (low != m) {
      h(k, k - 1) = -h(k, k - 1);
    }
    p += s;
    const double u = p / s;
    const double v = q / s;
    const double t = r / s;
    q /= p;
    r /= p;
    // Rows k..k+2, then columns.
    for (std::int64_t j = k; j <= last_column; ++j) {
      double* c = h.column(j) + k;
      const double sum = c[0] + q * c[1] + (three ? r * c[2] : 0.0);
      c[0] -= sum * u;
      c[1] -= sum * v;
      if (three) c[2] -= sum * t;
    }
    const auto columns = [&](double* at, std::int64_t from, std::int64_t to) {
      double* c0 = at + k * n;
      double* c1 = c0 + n;
      double* c2 = three ? c1 + n : c1;
      for (std::int64_t i = from; i <= to; ++i) {
        const double sum = u * c0[i] + v * c1[i] + (three ? t * c2[i] : 0.0);
        c0[i] -= sum;
        c1[i] -= sum * q;
        if (three) c2[i] -= sum * r;
      }
    };
    columns(h.data, first_row, std::min(high, k + 3));
    if (z != nullptr) columns(z, 0, n - 1);
  }
}

int Qr::run() {
  constexpr int STOPPED = -2;
  for (std::int64_t j = 0; j < h.n; ++j) {
    for (std::int64_t i = 0; i <= std::min(j + 1, h.n - 1); ++i) norm += std::fabs(h(i, j));
  }
  if (!std::isfinite(norm)) return -1;
  int iterations = 0;
  for (std::int64_t high = h.n - 1; high >= 0;) {
    const std::int64_t low = small_subdiagonal(high);
    if (low == high) {
      one(high--);
      iterations = 0;
      continue;
    }
    if (low == high - 1) {
      pair(high);
      high -= 2;
      iterations = 0;
      continue;
    }
    if (iterations == QR_ITERATIONS) return static_cast<int>(high) + 1;
    double x = h(high, high);
    double y = h(high - 1, high - 1);
    double w = h(high, high - 1) * h(high - 1, high);
    if (iterations == 10 || iterations == 20) {  // an exceptional shift
      shift += x;
      for (std::int64_t i = 0; i <= high; ++i) h(i, i) -= x;
      const double s = std::fabs(h(high, high - 1)) + std::fabs(h(high - 1, high - 2));
      x = y = 0.75 * s;
      w = -0.4375 * s * s;
    }
    ++iterations;
    sweep(low, high, x, y, w);
    if (stop_requested()) return STOPPED;
  }
  return 0;
}

using Complex = std::complex<double>;
Complex quotient(double a, double b, double c, double d) {  // (a + bi) / (c + di), Smith (1962)
  if (std::fabs(c) >= std::fabs(d)) {
    const double r = d / c;
    const double e = c + d * r;
    return {(a + b * r) / e, (b - a * r) / e};
  }
  const double r = c / d;
  const double e = d + c * r;
  return {(a * r + b) / e, (b * r - a) / e};
}

// Vectors of the quasi-triangular matrix in place of h's upper triangle, then of the matrix in z.
struct Vectors {
  Square h;
  std::span<const double> re, im;
  double norm;

  double value(std::int64_t i) const { return re[static_cast<std::size_t>(i)]; }
  double imaginary(std::int64_t i) const { return im[static_cast<std::size_t>(i)]; }
  void real_vector(std::int64_t k) const;
  void complex_vector(std::int64_t k) const;
};

void Vectors::real_vector(std::int64_t k) const {
  double* x = h.column(k);
  const double p = value(k);
  x[k] = 1.0;
  std::int64_t m = k;  // first row that is known
  for (std::int64_t i = k - 1; i >= 0; --i) {
    const double w = h(i, i) - p;
    double r = 0.0;
    for (std::int64_t j = m; j <= k; ++j) r += h(i, j) * x[j];
    if (imaginary(i) < 0.0) continue;  // second row of a pair: solved with the first
    m = i;
    if (imaginary(i) == 0.0) {
      x[i] = -r / (w != 0.0 ? w : EPS * norm);
    } else {
      double s = 0.0;
      for (std::int64_t j = i + 2; j <= k; ++j) s += h(i + 1, j) * x[j];
      const double a = h(i, i + 1);
      const double b = h(i + 1, i);
      const double z = h(i + 1, i + 1) - p;
      const double d = value(i) - p;
      const double q = d * d + imaginary(i) * imaginary(i);
      const double t = (a * s - z * r) / q;
      x[i] = t;
      x[i + 1] = std::fabs(a) > std::fabs(z) ? (-r - w * t) / a : (-s - b * t) / z;
    }
    const double t = std::fabs(x[i]);  // overflow is kept away
    if (EPS * t * t > 1.0) {
      for (std::int64_t j = i; j <= k; ++j) x[j] /= t;
    }
  }
}

// Columns k-1 and k get the real and the imaginary part of the vector of the value p + q i.
void Vectors::complex_vector(std::int64_t k) const {
  double* x = h.column(k - 1);
  double* y = h.column(k);
  const double p = value(k);
  const double q = imaginary(k);  // negative: the vector is that of the conjugate value
  const std::int64_t l = k - 1;
  Complex top;
  if (std::fabs(h(k, l)) > std::fabs(h(l, k))) {
    top = {q / h(k, l), -(h(k, k) - p) / h(k, l)};
  } else {
    top = quotient(0.0, -h(l, k), h(l, l) - p, q);
  }
  x[l] = top.real();
  y[l] = top.imag();
  x[k] = 0.0;
  y[k] = 1.0;
  std::int64_t m = l;
  for (std::int64_t i = k - 2; i >= 0; --i) {
    const double w = h(i, i) - p;
    double ra = 0.0;
    double sa = 0.0;
    for (std::int64_t j = m; j <= k; ++j) {
      ra += h(i, j) * x[j];
      sa += h(i, j) * y[j];
    }
    if (imaginary(i) < 0.0) continue;
    m = i;
    if (imaginary(i) == 0.0) {
      const Complex v = quotient(-ra, -sa, w, q);
      x[i] = v.real();
      y[i] = v.imag();
    } else {
      double r = 0.0;
      double s = 0.0;
      for (std::int64_t j = i + 2; j <= k; ++j) {
        r += h(i + 1, j) * x[j];
        s += h(i + 1, j) * y[j];
      }
      const double a = h(i, i + 1);
      const double b = h(i + 1, i);
      const double z = h(i + 1, i + 1) - p;
      const double d = value(i) - p;
      double vr = d * d + imaginary(i) * imaginary(i) - q * q;
      const double vi = d * 2.0 * q;
      if (vr == 0.0 && vi == 0.0) {
        vr =
            EPS * norm * (std::fabs(w) + std::fabs(q) + std::fabs(a) + std::fabs(b) + std::fabs(z));
      }
      const Complex v = quotient(a * r - z * ra + q * sa, a * s - z * sa - q * ra, vr, vi);
      x[i] = v.real();
      y[i] = v.imag();
      if (std::fabs(a) > std::fabs(z) + std::fabs(q)) {
        x[i + 1] = (-ra - w * x[i] + q * y[i]) / a;
        y[i + 1] = (-sa - w * y[i] - q * x[i]) / a;
      } else {
        const Complex u = quotient(-r - b * x[i], -s - b * y[i], z, q);
        x[i + 1] = u.real();
        y[i + 1] = u.imag();
      }
    }
    const double t = std::max(std::fabs(x[i]), std::fabs(y[i]));
    if (EPS * t * t > 1.0) {
      for (std::int64_t j = i; j <= k; ++j) {
        x[j] /= t;
        y[j] /= t;
      }
    }
  }
}

}  // namespace

int general_eigen(double* a, int n, std::span<double> re, std::span<double> im, double* z,
                  std::span<double> work) {
  constexpr int STOPPED = -2;
  const Square h{a, n};
  const auto order = static_cast<std::size_t>(n);
  for (std::int64_t i = 0; i < h.n * h.n; ++i) {
    if (!std::isfinite(a[i])) return -1;
  }
  const std::span<double> scale = work.subspan(2 * order, order);
  balance(h, scale);
  if (!hessenberg(h, z, work)) return STOPPED;
  Qr qr{.h = h, .z = z, .re = re, .im = im};
  const int IFAULT = qr.run();
  if (IFAULT != 0 || z == nullptr) return IFAULT;
  // The vectors of h, then those of the matrix: z times them (column j needs those up to j), the
  // scaling of the rows undone.
  Vectors vectors{.h = h, .re = re, .im = im, .norm = qr.norm};
  for (std::int64_t k = n - 1; k >= 0 && qr.norm > 0.0; --k) {
    if (im[static_cast<std::size_t>(k)] == 0.0) vectors.real_vector(k);
    if (im[static_cast<std::size_t>(k)] < 0.0) vectors.complex_vector(k);
  }
  if (qr.norm > 0.0) {
    for (std::int64_t j = n - 1; j >= 0; --j) {
      double* column = work.data();
      const double* x = h.column(j);
      std::fill_n(column, n, 0.0);
      for (std::int64_t k = 0; k <= j; ++k) vector_lanes().add(x[k], z + k * n, n, column);
      std::copy_n(column, n, z + j * h.n);
      if (stop_requested()) return STOPPED;
    }
  }
  for (std::int64_t j = 0; j < n; ++j) {
    for (std::int64_t i = 0; i < n; ++i) z[i + j * h.n] *= scale[static_cast<std::size_t>(i)];
  }
  return 0;
}

}  // namespace korvel
