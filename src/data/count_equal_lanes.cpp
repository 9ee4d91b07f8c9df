// Counting the elements of a run that equal a value: built once for each vector width.

#include <cstddef>
#include <cstdint>

namespace korvel::KORVEL_LANES {

// Eight counters side by side, so that the compiler keeps them in one register. Counts are whole
// numbers: every width gives the same.
std::size_t count_equal(const double* x, std::size_t n, double value) {
  std::int64_t count[8] = {0, 0, 0, 0, 0, 0, 0, 0};
  std::size_t i = 0;
  for (; i + 8 <= n; i += 8) {
    for (std::size_t j = 0; j < 8; ++j) count[j] += x[i + j] == value ? 1 : 0;
  }
  std::int64_t total = 0;
  for (; i < n; ++i) total += x[i] == value ? 1 : 0;
  for (const std::int64_t c : count) total += c;
  return static_cast<std::size_t>(total);
}

}  // namespace korvel::KORVEL_LANES
