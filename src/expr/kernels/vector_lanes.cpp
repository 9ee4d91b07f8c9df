// Inner loops of the orthogonal decompositions, built once for each vector width.
#include "expr/kernels/vector_lanes.h"

#include "expr/kernels/lane_vectors.h"

namespace korvel::KORVEL_LANES {
namespace {

constexpr std::ptrdiff_t whole(std::ptrdiff_t n) { return n & ~std::ptrdiff_t{7}; }

double dot(const double* x, const double* y, std::ptrdiff_t n) {
  Lane8 sum = lane_splat(0.0);
  const std::ptrdiff_t m = whole(n);
  for (std::ptrdiff_t i = 0; i < m; i += 8) sum = sum + lane_load(x + i) * lane_load(y + i);
  double rest = 0.0;
  for (std::ptrdiff_t i = m; i < n; ++i) rest += x[i] * y[i];
  return lane_sum(sum) + rest;
}

void add(double a, const double* x, std::ptrdiff_t n, double* y) {
  const Lane8 factor = lane_splat(a);
  const std::ptrdiff_t m = whole(n);
  for (std::ptrdiff_t i = 0; i < m; i += 8) {
    lane_store(y + i, lane_load(y + i) + factor * lane_load(x + i));
  }
  for (std::ptrdiff_t i = m; i < n; ++i) y[i] += a * x[i];
}

double add_dot(double a, const double* x, const double* z, std::ptrdiff_t n, double* y) {
  const Lane8 factor = lane_splat(a);
  Lane8 sum = lane_splat(0.0);
  const std::ptrdiff_t m = whole(n);
  for (std::ptrdiff_t i = 0; i < m; i += 8) {
    const Lane8 v = lane_load(x + i);
    lane_store(y + i, lane_load(y + i) + factor * v);
    sum = sum + v * lane_load(z + i);
  }
  double rest = 0.0;
  for (std::ptrdiff_t i = m; i < n; ++i) {
    y[i] += a * x[i];
    rest += x[i] * z[i];
  }
  return lane_sum(sum) + rest;
}

void add_two(double a, const double* u, double b, const double* v, std::ptrdiff_t n, double* y) {
  const Lane8 first = lane_splat(a);
  const Lane8 second = lane_splat(b);
  const std::ptrdiff_t m = whole(n);
  for (std::ptrdiff_t i = 0; i < m; i += 8) {
    lane_store(y + i, (lane_load(y + i) + first * lane_load(u + i)) + second * lane_load(v + i));
  }
  for (std::ptrdiff_t i = m; i < n; ++i) y[i] = (y[i] + a * u[i]) + b * v[i];
}

void rotate(double c, double s, std::ptrdiff_t n, double* x, double* y) {
  const Lane8 cosine = lane_splat(c);
  const Lane8 sine = lane_splat(s);
  const std::ptrdiff_t m = whole(n);
  for (std::ptrdiff_t i = 0; i < m; i += 8) {
    const Lane8 p = lane_load(x + i);
    const Lane8 q = lane_load(y + i);
    lane_store(x + i, cosine * p + sine * q);
    lane_store(y + i, cosine * q - sine * p);
  }
  for (std::ptrdiff_t i = m; i < n; ++i) {
    const double p = x[i];
    const double q = y[i];
    x[i] = c * p + s * q;
    y[i] = c * q - s * p;
  }
}

void rotate_two(const double* c, const double* s, std::ptrdiff_t n, double* x, double* y,
                double* z) {
  const Lane8 c0 = lane_splat(c[0]);
  const Lane8 s0 = lane_splat(s[0]);
  const Lane8 c1 = lane_splat(c[1]);
  const Lane8 s1 = lane_splat(s[1]);
  const std::ptrdiff_t m = whole(n);
  for (std::ptrdiff_t i = 0; i < m; i += 8) {
    const Lane8 q = lane_load(y + i);
    const Lane8 r = lane_load(z + i);
    lane_store(z + i, c0 * r - s0 * q);
    const Lane8 t = c0 * q + s0 * r;
    const Lane8 p = lane_load(x + i);
    lane_store(y + i, c1 * t - s1 * p);
    lane_store(x + i, c1 * p + s1 * t);
  }
  for (std::ptrdiff_t i = m; i < n; ++i) {
    const double q = y[i];
    const double r = z[i];
    z[i] = c[0] * r - s[0] * q;
    const double t = c[0] * q + s[0] * r;
    const double p = x[i];
    y[i] = c[1] * t - s[1] * p;
    x[i] = c[1] * p + s[1] * t;
  }
}

}  // namespace

const VectorLanes& vector_lane_set() {
  static constexpr VectorLanes set = {dot, add, add_dot, add_two, rotate, rotate_two};
  return set;
}

}  // namespace korvel::KORVEL_LANES
