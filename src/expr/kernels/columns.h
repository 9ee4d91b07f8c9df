// The data matrix as kernels read it: a list of columns, each where it lies.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace korvel {

struct ColumnList {
  std::span<const double* const> column;  // a null pointer stands for a column of ones
  std::int64_t rows = 0;
  const double* root = nullptr;  // row t counts as root[t] times itself; null: as it is
  // Powers of two that the fits multiply columns by, for data whose squares leave the range of
  // reals; empty: as they are. at() and residuals leave them aside.
  std::span<const double> scale{};

  int columns() const { return static_cast<int>(column.size()); }
  double at(std::size_t c, std::int64_t t) const {
    return column[c] == nullptr ? 1.0 : column[c][t];
  }
};

}  // namespace korvel
