#include "stats/stats_results.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "engine/output.h"
#include "expr/kernels/packed.h"

namespace korvel {

std::span<double> result_variable(Workspace ws, const NameOption& option, VarType type,
                                  std::int64_t length, int columns) {
  if (length < 1) return {};
  const int var = make_result(ws, option, type, length, columns);
  if (var == 0) return {};
  const std::span<double> to = elements(ws, var);
  const std::span<double> all = to.first(std::min(to.size(), static_cast<std::size_t>(length)));
  std::ranges::fill(all, MACOM.XMISS);
  return all;
}

void store_result(Workspace ws, const NameOption& option, VarType type,
                  std::span<const double> values, int columns) {
  const std::span<double> to =
      result_variable(ws, option, type, static_cast<std::int64_t>(values.size()), columns);
  for (std::size_t i = 0; i < to.size(); ++i) {
    to[i] = std::isfinite(values[i]) ? values[i] : MACOM.XMISS;
  }
}

void print_packed(std::span<const double> a, int order, std::string_view (*name)(const void*, int),
                  const void* names) {
  print_covariances(
      order, [&](int i) { return name(names, i); },
      [&](int i, int j) {
        const double v = a[packed(i, j)];
        return std::isfinite(v) ? v : MACOM.XMISS;
      });
}

std::int64_t free_words() { return std::int64_t{ADDCOM.SCRTOP} - ADDCOM.LASADD; }

}  // namespace korvel
