#include "expr/kernels/cholesky.h"

#include <cmath>

#include "expr/kernels/packed.h"

namespace korvel {

// Row by row, so that a failure leaves the rows before it factored. The test on the pivot d
// compares d/32 with the sum s of squares that was taken off the diagonal: where it no longer
// changes s, less than five bits of the pivot are data. A larger constant would let noise through
// as a pivot, a smaller one would refuse polynomial regressors that still give some digits.
int cholesky_factor(std::span<double> a, int order) {
  if (order < 1) return 0;
  if (!(a[0] > 0.0)) return 1;
  a[0] = 1.0 / std::sqrt(a[0]);
  for (int i = 2; i <= order; ++i) {
    double* row = a.data() + packed(i, 1);
    double s = 0.0;
    for (int j = 1; j < i; ++j) {
      const double* other = a.data() + packed(j, 1);
      double sum = row[j - 1];
      for (int k = 0; k < j - 1; ++k) sum -= row[k] * other[k];
      row[j - 1] = sum * other[j - 1];
      s += row[j - 1] * row[j - 1];
    }
    const double d = row[i - 1] - s;
    if (!(d > 0.0)) return i;
    if (d * 0.03125 + s == s) return -i;
    row[i - 1] = 1.0 / std::sqrt(d);
  }
  return 0;
}

int DSYMP(std::span<double> a, int order) {
  const int IFAULT = cholesky_factor(a, order);
  if (IFAULT != 0) return IFAULT;
  for (int i = 2; i <= order; ++i) {
    double* row = a.data() + packed(i, 1);
    for (int j = 1; j < i; ++j) {
      double sum = 0.0;
      for (int k = j; k < i; ++k) sum += row[k - 1] * a[packed(k, j)];
      row[j - 1] = -sum * row[i - 1];
    }
  }
  return 0;
}

int symmetric_inverse(std::span<double> a, int order) {
  const int IFAULT = DSYMP(a, order);
  if (IFAULT != 0) return IFAULT;
  for (int i = 1; i <= order; ++i) {
    for (int j = 1; j <= i; ++j) {
      double sum = 0.0;
      for (int k = i; k <= order; ++k) sum += a[packed(k, i)] * a[packed(k, j)];
      a[packed(i, j)] = sum;
    }
  }
  return 0;
}

int positive_solve(std::span<double> a, int order, std::span<double> rhs) {
  const int IFAULT = cholesky_factor(a, order);
  if (IFAULT != 0) return IFAULT;
  for (int i = 1; i <= order; ++i) {
    double sum = rhs[static_cast<std::size_t>(i - 1)];
    for (int k = 1; k < i; ++k) sum -= a[packed(i, k)] * rhs[static_cast<std::size_t>(k - 1)];
    rhs[static_cast<std::size_t>(i - 1)] = sum * a[packed(i, i)];
  }
  for (int i = order; i >= 1; --i) {
    double sum = rhs[static_cast<std::size_t>(i - 1)];
    for (int k = i + 1; k <= order; ++k)
      sum -= a[packed(k, i)] * rhs[static_cast<std::size_t>(k - 1)];
    rhs[static_cast<std::size_t>(i - 1)] = sum * a[packed(i, i)];
  }
  return 0;
}

}  // namespace korvel
