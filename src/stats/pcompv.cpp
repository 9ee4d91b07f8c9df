// PCOMPV: varimax rotation.
#include <cmath>

#include "engine/output.h"
#include "stats/pcomp.h"

namespace korvel {
namespace {

constexpr double COS45 = 0.7071066;  // cosine and sine of the turn when no angle stands out
constexpr double ANGLE = 0.00116;    // tangent of 4 angle below which a pair is left alone
constexpr double TOLERANCE = 0.0000001;
constexpr int QUIET_CYCLES = 4;  // cycles without growth that end the rotation
constexpr int MOST_CYCLES = 50;

// Sum over the factors of the variance of the squared loadings.
double criterion(std::span<const double> a, int p, int m) {
  double total = 0.0;
  for (int j = 0; j < m; ++j) {
    double squares = 0.0;
    double fourth = 0.0;
    for (int i = 0; i < p; ++i) {
      const double v = a[static_cast<std::size_t>(j * p + i)];
      squares += v * v;
      fourth += v * v * v * v;
    }
    total += (fourth - squares * squares / p) / p;
  }
  return total;
}

// Turns the columns x and y towards the largest variance.
void rotate_pair(double* x, double* y, int p) {
  double sum_u = 0.0;
  double sum_v = 0.0;
  double uv = 0.0;
  double u2_v2 = 0.0;
  for (int i = 0; i < p; ++i) {
    const double u = x[i] * x[i] - y[i] * y[i];
    const double v = 2.0 * x[i] * y[i];
    sum_u += u;
    sum_v += v;
    uv += u * v;
    u2_v2 += u * u - v * v;
  }
  const double num = 2.0 * (uv - sum_u * sum_v / p);
  const double den = u2_v2 - (sum_u * sum_u - sum_v * sum_v) / p;
  double c = COS45;
  double s = COS45;
  if (std::fabs(num) + std::fabs(den) >= ANGLE * TOLERANCE) {
    if (den > 0.0 && std::fabs(num) < ANGLE * den) return;
    const double angle = std::atan2(num, den) / 4.0;
    c = std::cos(angle);
    s = std::sin(angle);
  } else if (std::fabs(num) + std::fabs(den) == 0.0) {
    return;  // the criterion is the same at every angle
  }
  for (int i = 0; i < p; ++i) {
    const double a = x[i];
    x[i] = c * a + s * y[i];
    y[i] = c * y[i] - s * a;
  }
}

}  // namespace

int PCOMPV(std::span<double> a, int p, int m, bool trace, std::span<double> work) {
  const auto at = [&](int i, int j) -> double& { return a[static_cast<std::size_t>(j * p + i)]; };
  // 1. Rows of unit length.
  for (int i = 0; i < p; ++i) {
    double squares = 0.0;
    for (int j = 0; j < m; ++j) squares += at(i, j) * at(i, j);
    const double length = std::sqrt(squares);
    work[static_cast<std::size_t>(i)] = length;
    for (int j = 0; j < m && length > 0.0; ++j) at(i, j) /= length;
  }
  // 2. Cycles over all pairs until the criterion has stopped to grow.
  double before = criterion(a, p, m);
  int quiet = 0;
  int cycle = 0;
  if (trace) {
    say(" ITERATION");
    say(" VARIANCES");
    say<"('   CYCLE', I5, G18.7)">(0, before);
  }
  while (quiet < QUIET_CYCLES && cycle < MOST_CYCLES && !stop_requested()) {
    ++cycle;
    for (int j = 0; j < m; ++j) {
      for (int k = j + 1; k < m; ++k) rotate_pair(&at(0, j), &at(0, k), p);
    }
    const double now = criterion(a, p, m);
    quiet = now - before <= TOLERANCE ? quiet + 1 : 0;
    before = now;
    if (trace) say<"('   CYCLE', I5, G18.7)">(cycle, now);
  }
  // 3. Back to the rows' own length.
  for (int i = 0; i < p; ++i) {
    for (int j = 0; j < m; ++j) at(i, j) *= work[static_cast<std::size_t>(i)];
  }
  return cycle;
}

}  // namespace korvel
