#include "expr/kernels/recursive.h"

#include "expr/kernels/packed.h"

namespace korvel {

void rotate_row(std::span<double> factor, int columns, int i, std::span<double> row, double& w) {
  const double x = row[static_cast<std::size_t>(i - 1)];
  if (x == 0.0) return;
  double& d = factor[packed(i, i)];
  const double grown = d + w * x * x;
  const double c = d / grown;
  const double s = w * x / grown;
  d = grown;
  w *= c;
  for (int k = i + 1; k <= columns; ++k) {
    double& r = factor[packed(k, i)];
    double& left = row[static_cast<std::size_t>(k - 1)];
    const double before = left;
    left -= x * r;
    r = c * r + s * before;
  }
}

RecursiveStep close_row(std::span<double> factor, int columns, std::span<const double> row,
                        double w) {
  const double error = row[static_cast<std::size_t>(columns - 1)];
  factor[packed(columns, columns)] += w * error * error;
  return {.error = error, .variance = w > 0.0 ? 1.0 / w : 0.0};
}

RecursiveStep add_row(std::span<double> factor, int columns, std::span<double> row) {
  double w = 1.0;  // weight of what is left of the row
  for (int i = 1; i < columns; ++i) rotate_row(factor, columns, i, row, w);
  return close_row(factor, columns, row, w);
}

}  // namespace korvel
