// Packed symmetric matrices: the lower triangle by rows (equally, the upper one by columns).
#pragma once

#include <cstddef>
#include <utility>

namespace korvel {

// Offset of element (i, j) in the packed triangle; rows and columns count from 1, in either order.
constexpr std::size_t packed(int i, int j) {
  if (i < j) std::swap(i, j);
  const auto row = static_cast<std::size_t>(i);
  return row * (row - 1) / 2 + static_cast<std::size_t>(j) - 1;
}

// Words of a packed matrix of order n.
constexpr std::size_t packed_words(int n) {
  const auto order = static_cast<std::size_t>(n);
  return order * (order + 1) / 2;
}

}  // namespace korvel
